// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Reconstruction.h>

#include <cstdio>

namespace QZmath
{

namespace
{

std::string counted(std::size_t count, char const * one, char const * many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string percent(double share)
{
    char text[32];
    std::snprintf(text, sizeof(text), share < 1.0 ? "%.2g %%" : "%.0f %%", 100.0 * share);
    return text;
}

class Sentence
{
public:
    void add(std::string const & part)
    {
        if (!m_text.empty())
            m_text += ", ";
        m_text += part;
    }
    std::string const & text() const { return m_text; }

private:
    std::string m_text;
};

} // namespace

ReconstructionError::ReconstructionError(Kind kind, std::string const & sentence)
    : std::runtime_error(sentence), m_kind(kind)
{}

ReconstructionError::~ReconstructionError() = default;

std::string ReconstructionReport::summary() const
{
    auto const size = [](int count) { return static_cast<std::size_t>(count); };
    Sentence sentence;
    if (outliersRemoved > 0)
        sentence.add("removed " + counted(outliersRemoved, "outlier", "outliers"));
    if (repeatedRemoved > 0)
        sentence.add("left out " + counted(repeatedRemoved, "repeated point", "repeated points"));
    if (normalsEstimated)
        sentence.add("estimated the normals");
    if (normalsReplaced > 0)
        sentence.add("estimated " + counted(normalsReplaced, "missing normal", "missing normals"));
    if (turnedInsideOut)
        sentence.add("turned the surface inside out");
    if (holesClosed > 0)
        sentence.add("closed " + counted(size(holesClosed), "hole", "holes") + " (" + percent(closedArea) +
                     " of the area)");
    if (boundariesLeft > 0)
        sentence.add("left " + counted(size(boundariesLeft), "boundary", "boundaries") + " open");
    if (specksDropped > 0)
        sentence.add("dropped " + counted(size(specksDropped), "speck", "specks"));
    if (trianglesBeforeSimplification > 0)
        sentence.add("merged " + counted(trianglesBeforeSimplification, "triangle", "triangles") + " to " +
                     std::to_string(triangles));
    sentence.add("kept " + counted(size(componentsKept), "component", "components"));
    return sentence.text();
}

} // namespace QZmath

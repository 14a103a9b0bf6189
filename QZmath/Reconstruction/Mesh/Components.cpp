// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Components.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <algorithm>
#include <array>

namespace QZmath::Stages
{

namespace
{

std::size_t const leastSamples = 4; // that support a piece

struct Component
{
    std::size_t triangles = 0;
    std::array<std::int32_t, leastSamples>
        supporters{}; // different samples next to it, as far as they matter
    std::size_t supportersFound = 0;
    std::size_t samples = 0;
    bool isKept = false;

    void support(std::int32_t sample)
    {
        auto const end = supporters.begin() + static_cast<std::ptrdiff_t>(supportersFound);
        if (std::find(supporters.begin(), end, sample) == end)
            supporters[supportersFound++] = sample;
    }
};

// The component of each vertex; -1 for those without triangles. They are numbered by their least vertices.
std::vector<std::int32_t> findComponents(TriangleMesh const & mesh, std::vector<Component> & components)
{
    VertexSets sets(mesh.vertexCount());
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        sets.unite(mesh.triangles[3 * t], mesh.triangles[3 * t + 1]);
        sets.unite(mesh.triangles[3 * t], mesh.triangles[3 * t + 2]);
    }
    std::vector<std::int32_t> componentOf(mesh.vertexCount(), -1);
    for (std::int32_t const vertex : mesh.triangles)
        componentOf[at(vertex)] = 0;
    for (std::size_t v = 0; v < componentOf.size(); ++v) {
        if (componentOf[v] < 0)
            continue;
        std::size_t const root = at(sets.find(static_cast<std::int32_t>(v)));
        if (root == v) {
            componentOf[v] = static_cast<std::int32_t>(components.size());
            components.emplace_back();
        } else {
            componentOf[v] = componentOf[root];
        }
    }
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t)
        ++components[at(componentOf[at(mesh.triangles[3 * t])])].triangles;
    return componentOf;
}

} // namespace

ComponentFindings keepComponents(TriangleMesh & mesh, SampleIndex const & samples, ComponentRule const & rule,
                                 QzBackend::LoopTeam & team, double until)
{
    std::vector<Component> components;
    std::vector<std::int32_t> const componentOf = findComponents(mesh, components);
    for (std::size_t v = 0; v < componentOf.size(); ++v) {
        if (componentOf[v] < 0)
            continue;
        Component & component = components[at(componentOf[v])];
        if (component.supportersFound == leastSamples)
            continue;
        SampleIndex::Nearest const found =
            samples.nearest(vertexOf(mesh, static_cast<std::int32_t>(v)), rule.supportDistance);
        if (found.sample != SampleIndex::none)
            component.support(found.sample);
    }
    double const least = rule.smallest * static_cast<double>(mesh.triangleCount());
    for (Component & component : components)
        component.isKept =
            component.supportersFound == leastSamples && static_cast<double>(component.triangles) >= least;

    if (!rule.keepAll && components.size() > 1) {
        SampleIndex const vertices(mesh.positions.data(), mesh.vertexCount(), team);
        std::vector<std::int32_t> nearest(samples.size());
        forRanges(
            team, nearest.size(), 512,
            [&](std::size_t begin, std::size_t end) {
                std::int32_t hint = SampleIndex::none;
                for (std::size_t slot = begin; slot < end; ++slot) {
                    nearest[slot] =
                        vertices
                            .nearest(samples.positionOf(samples.sampleAt(slot)), rule.supportDistance, hint)
                            .sample;
                    hint = nearest[slot];
                }
            },
            until);
        for (std::int32_t const vertex : nearest) {
            if (vertex != SampleIndex::none && componentOf[at(vertex)] >= 0)
                ++components[at(componentOf[at(vertex)])].samples;
        }
        Component * best = nullptr;
        for (Component & component : components) {
            if (component.isKept && (best == nullptr || component.samples > best->samples))
                best = &component;
            component.isKept = false;
        }
        if (best != nullptr)
            best->isKept = true;
    }

    ComponentFindings findings;
    findings.found = static_cast<int>(components.size());
    for (Component const & component : components)
        ++(component.isKept ? findings.kept : findings.dropped);
    if (findings.dropped > 0) {
        std::vector<std::uint8_t> keep(mesh.triangleCount());
        for (std::size_t t = 0; t < keep.size(); ++t)
            keep[t] = components[at(componentOf[at(mesh.triangles[3 * t])])].isKept;
        compact(mesh, keep, team);
    }
    return findings;
}

} // namespace QZmath::Stages

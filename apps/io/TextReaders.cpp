// SPDX-License-Identifier: Apache-2.0
#include <apps/io/CloudReaderDetail.h>
#include <apps/io/InputError.h>

#include <string>
#include <vector>

namespace qz_io
{

namespace
{

std::string atLine(ByteSource const & source) { return "line " + std::to_string(source.lineNumber()); }

// Reads three numbers off a line and appends them.
void appendTriple(std::vector<float> & values, std::string_view & line, ByteSource const & source)
{
    for (int axis = 0; axis < 3; ++axis) {
        double value = 0.0;
        if (!parseNumber(takeWord(line), value))
            throw InputError(atLine(source) + " does not hold three numbers where it should");
        values.push_back(static_cast<float>(value));
    }
}

// Which normal each vertex has by the word of the faces.
class NormalsOfVertices
{
public:
    // The first face that mentions a vertex decides.
    void set(std::size_t vertex, std::size_t normal)
    {
        if (m_normals.size() <= vertex)
            m_normals.resize(vertex + 1, st_none);
        if (m_normals[vertex] == st_none)
            m_normals[vertex] = normal;
    }

    bool empty() const { return m_normals.empty(); }
    // A vertex that no face mentions has the normal of its own index.
    std::size_t of(std::size_t vertex) const
    {
        return vertex < m_normals.size() && m_normals[vertex] != st_none ? m_normals[vertex] : vertex;
    }

private:
    static constexpr std::size_t st_none = static_cast<std::size_t>(-1);

    std::vector<std::size_t> m_normals;
};

// Index of an OBJ face, which counts from 1 or, negative, back from the last element; false when there is no
// such element.
bool resolveIndex(std::string_view word, std::size_t count, std::size_t & index)
{
    long long number = 0;
    if (!parseNumber(word, number) || number == 0)
        return false;
    auto const signedCount = static_cast<long long>(count);
    long long const resolved = number > 0 ? number - 1 : signedCount + number;
    if (number < -signedCount || resolved >= signedCount)
        return false;
    index = static_cast<std::size_t>(resolved);
    return true;
}

// Notes the normals that the corners of a face mention: "v//vn" or "v/vt/vn".
void readFace(std::string_view line, std::size_t vertices, std::size_t normals, NormalsOfVertices & assigned,
              ByteSource const & source)
{
    for (std::string_view corner = takeWord(line); !corner.empty(); corner = takeWord(line)) {
        std::size_t const lastSlash = corner.rfind('/');
        std::size_t const firstSlash = corner.find('/');
        if (firstSlash == lastSlash)
            continue; // no normal: "v" or "v/vt"
        std::size_t vertex = 0;
        std::size_t normal = 0;
        if (!resolveIndex(corner.substr(0, firstSlash), vertices, vertex) ||
            !resolveIndex(corner.substr(lastSlash + 1), normals, normal))
            throw InputError(atLine(source) + " has a face over a vertex or normal that does not exist");
        assigned.set(vertex, normal);
    }
}

} // namespace

PointCloud readObj(ByteSource & source, CProgressCounter * progress, InputNormals wanted)
{
    PointCloud cloud;
    std::vector<float> normals;
    NormalsOfVertices assigned;
    ReadingProgress reading(source, progress);
    std::string_view line;
    while (source.readLine(line)) {
        reading.update();
        std::string_view const keyword = takeWord(line);
        if (keyword == "v")
            appendTriple(cloud.coords, line, source);
        else if (keyword == "vn")
            appendTriple(normals, line, source);
        else if (keyword == "f")
            readFace(line, cloud.coords.size() / 3, normals.size() / 3, assigned, source);
    }
    if (cloud.coords.empty())
        throw InputError("the input has no points");
    if (normals.empty() && wanted == InputNormals::optional)
        return cloud;
    if (normals.empty())
        throw InputError("the input has no normals");
    if (assigned.empty()) {
        if (normals.size() != cloud.coords.size())
            throw InputError("the input has " + std::to_string(cloud.size()) + " points but " +
                             std::to_string(normals.size() / 3) + " normals");
        cloud.normals = std::move(normals);
        return cloud;
    }
    cloud.normals.resize(cloud.coords.size());
    for (std::size_t vertex = 0; vertex < cloud.size(); ++vertex) {
        std::size_t const normal = assigned.of(vertex);
        if (3 * normal >= normals.size())
            throw InputError("the point at index " + std::to_string(vertex) +
                             ", counted from 0, has no normal");
        for (std::size_t axis = 0; axis < 3; ++axis)
            cloud.normals[3 * vertex + axis] = normals[3 * normal + axis];
    }
    return cloud;
}

PointCloud readText(ByteSource & source, CProgressCounter * progress, InputNormals wanted)
{
    PointCloud cloud;
    ReadingProgress reading(source, progress);
    std::string_view line;
    std::size_t columns = 0; // of the first line, which all others must have
    while (source.readLine(line)) {
        reading.update();
        line = line.substr(0, line.find('#'));
        double values[7];
        std::size_t count = 0;
        for (std::string_view word = takeWord(line); !word.empty(); word = takeWord(line), ++count) {
            if (count < 7 && !parseNumber(word, values[count]))
                throw InputError(atLine(source) + ", column " + std::to_string(count + 1) +
                                 " is not a number");
        }
        if (count == 0)
            continue;
        if (columns == 0)
            columns = count;
        bool const isBare = columns == 3 && wanted == InputNormals::optional;
        if (columns == 3 && !isBare)
            throw InputError("the input has no normals: " + atLine(source) + " has 3 columns instead of 6");
        if (count != columns || ((count < 6 || count > 7) && !isBare))
            throw InputError(atLine(source) + " has " + std::to_string(count) +
                             (count == 1 ? " column" : " columns") + " instead of " +
                             (columns == 7 ? "7"
                              : isBare     ? "3"
                                           : "6"));
        for (std::size_t column = 0; column < (isBare ? 3 : 6); ++column)
            (column < 3 ? cloud.coords : cloud.normals).push_back(static_cast<float>(values[column]));
        if (columns == 7)
            cloud.boundary.push_back(values[6] != 0.0);
    }
    return cloud;
}

} // namespace qz_io

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/CloudColumns.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Streams/SourceBlocks.h>
#include <QZmath/Files/Streams/Words.h>

#include <limits>
#include <string>
#include <vector>

namespace QZmath
{

namespace
{

std::string atLine(ByteSource const & source) { return "line " + std::to_string(source.lineNumber()); }

// Reads numbers off a line, as many as there are, up to seven. Stops at a comment.
struct Numbers
{
    double values[7];
    std::size_t count = 0;
    bool isFloatEnough = true; // for the first three

    Numbers(std::string_view line, ByteSource const & source)
    {
        for (std::string_view word = takeWord(line); count < 7 && !word.empty() && word.front() != '#';
             word = takeWord(line), ++count) {
            if (!parseNumber(word, values[count]))
                throw InputError(atLine(source) + " has \"" + quotable(word) + "\" where a number should be");
            if (count < 3 && !QZmath::isFloatEnough(word, values[count]))
                isFloatEnough = false;
        }
        if (count < 3)
            throw InputError(atLine(source) + " does not hold three numbers where it should");
    }
};

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

// Notes the vertices of the corners of a face, and the normals that they mention: "v", "v/vt", "v//vn" or
// "v/vt/vn".
void readFace(std::string_view line, std::size_t vertices, std::size_t normals, NormalsOfVertices & assigned,
              std::vector<std::size_t> * corners, ByteSource const & source)
{
    for (std::string_view corner = takeWord(line); !corner.empty() && corner.front() != '#';
         corner = takeWord(line)) {
        std::size_t const lastSlash = corner.rfind('/');
        std::size_t const firstSlash = corner.find('/');
        bool const hasNormal = firstSlash != lastSlash;
        if (!hasNormal && corners == nullptr)
            continue;
        std::size_t vertex = 0;
        std::size_t normal = 0;
        if (!resolveIndex(corner.substr(0, firstSlash), vertices, vertex) ||
            (hasNormal && !resolveIndex(corner.substr(lastSlash + 1), normals, normal)))
            throw InputError(atLine(source) + " has a face over a vertex or normal that does not exist");
        if (hasNormal)
            assigned.set(vertex, normal);
        if (corners != nullptr)
            corners->push_back(vertex);
    }
}

// Whether a face says which normal is whose.
bool namesNormals(std::string_view line)
{
    for (std::string_view corner = takeWord(line); !corner.empty() && corner.front() != '#';
         corner = takeWord(line))
        if (corner.find('/') != corner.rfind('/'))
            return true;
    return false;
}

struct ObjColumns
{
    PositionColumn positions{PositionColumn::Origin::text};
    ColorColumn colors{ColorColumn::Range::share};
    std::size_t colored = 0;
    std::vector<float> normals;

    // False when the line is neither a vertex nor a normal.
    bool add(std::string_view keyword, std::string_view line, ByteSource const & source)
    {
        if (keyword == "v") {
            Numbers const numbers(line, source);
            positions.add(numbers.values, numbers.isFloatEnough);
            if (numbers.count >= 6) { // a seventh number is an opacity
                ++colored;
                colors.add(numbers.values + 3);
            }
            return true;
        }
        if (keyword != "vn")
            return false;
        Numbers const numbers(line, source);
        for (int axis = 0; axis < 3; ++axis)
            normals.push_back(static_cast<float>(numbers.values[axis]));
        return true;
    }
    void append(ObjColumns const & other)
    {
        positions.append(other.positions);
        colors.append(other.colors);
        colored += other.colored;
        normals.insert(normals.end(), other.normals.begin(), other.normals.end());
    }
    void clear()
    {
        positions.clear();
        colors.clear();
        colored = 0;
        normals.clear();
    }
};

// Gives the vertices their normals; of a mesh, none to any if one has none.
void assignNormals(PointCloud & cloud, std::vector<float> normals, NormalsOfVertices const & assigned,
                   Wanted wanted)
{
    if (normals.empty())
        return;
    std::size_t const size = cloud.size();
    if (assigned.empty() && normals.size() == 3 * size) {
        cloud.normals = std::move(normals);
        return;
    }
    if (assigned.empty() && wanted == Wanted::mesh)
        return;
    if (assigned.empty())
        throw InputError("the input has " + std::to_string(size) + " points but " +
                         std::to_string(normals.size() / 3) + " normals");
    cloud.normals.resize(3 * size);
    for (std::size_t vertex = 0; vertex < size; ++vertex) {
        std::size_t const normal = assigned.of(vertex);
        if (3 * normal >= normals.size()) {
            if (wanted == Wanted::points)
                throw InputError("the point at index " + std::to_string(vertex) +
                                 ", counted from 0, has no normal");
            cloud.normals.clear();
            return;
        }
        for (std::size_t axis = 0; axis < 3; ++axis)
            cloud.normals[3 * vertex + axis] = normals[3 * normal + axis];
    }
}

} // namespace

VertexData readObj(ByteSource & source, ReadingProgress & reading, Wanted wanted)
{
    auto const most = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
    VertexData data;
    ObjColumns columns;
    PositionColumn & positions = columns.positions;
    NormalsOfVertices assigned;
    std::vector<std::size_t> corners;
    std::string_view line;
    auto const readBy = [&](std::uint64_t end) {
        while (source.position() < end && source.readLine(line)) {
            reading.update();
            std::string_view const keyword = takeWord(line);
            if (!columns.add(keyword, line, source) && keyword == "f") {
                corners.clear();
                readFace(line, positions.size(), columns.normals.size() / 3, assigned,
                         wanted == Wanted::mesh ? &corners : nullptr, source);
                for (std::size_t corner = 2; corner < corners.size(); ++corner)
                    for (std::size_t const used : {std::size_t(0), corner - 1, corner})
                        data.triangles.push_back(static_cast<std::int32_t>(corners[used]));
            }
            if (positions.size() > most)
                throw InputError("the input has more than 2147483647 points");
        }
        return true;
    };
    auto const readBlock = [&](ByteSource & block, ObjColumns & part) {
        for (std::string_view blockLine; block.readLine(blockLine);) {
            std::string_view const keyword = takeWord(blockLine);
            bool const isPart = part.add(keyword, blockLine, block);
            if (!isPart && keyword == "f" && (wanted == Wanted::mesh || namesNormals(blockLine)))
                throw InputError("a face counts from the vertices before it");
        }
    };
    auto const append = [&](ObjColumns const & part) {
        if (positions.size() + part.positions.size() > most)
            return false;
        columns.append(part);
        reading.update();
        return true;
    };
    SourceBlocks(source).readLines(ObjColumns(), readBlock, append, readBy);
    readBy(std::numeric_limits<std::uint64_t>::max());
    std::size_t const size = positions.size();
    if (size == 0)
        throw InputError("the input has no points");
    positions.moveTo(data.points);
    if (columns.colored == size)
        data.points.colors = columns.colors.finish();
    else if (columns.colored > 0)
        data.points.notes.push_back("only " + std::to_string(columns.colored) + " of " +
                                    std::to_string(size) + " points have a colour, so no colours are taken");
    assignNormals(data.points, std::move(columns.normals), assigned, wanted);
    return data;
}

} // namespace QZmath

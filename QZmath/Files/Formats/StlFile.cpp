// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/MeshFormats.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Streams/Words.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

namespace QZmath
{

namespace
{

using Corner = std::array<float, 3>;

// Corners of triangles, one behind the other, to vertices: those in the same place are one, numbered in the
// order in which they come first. NaN, which is in no place, is refused.
VertexData joined(std::vector<Corner> const & corners)
{
    if (corners.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        throw InputError("the input has more than 715827882 triangles");
    std::vector<std::int32_t> order(corners.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = static_cast<std::int32_t>(i);
    auto const cornerAt = [&](std::int32_t i) -> Corner const & {
        return corners[static_cast<std::size_t>(i)];
    };
    std::sort(order.begin(), order.end(), [&](std::int32_t a, std::int32_t b) {
        return cornerAt(a) != cornerAt(b) ? cornerAt(a) < cornerAt(b) : a < b;
    });
    std::vector<std::int32_t> first(corners.size()); // of the corners in the same place
    for (std::size_t i = 0; i < order.size(); ++i) {
        bool const isSame = i > 0 && cornerAt(order[i]) == cornerAt(order[i - 1]);
        first[static_cast<std::size_t>(order[i])] =
            isSame ? first[static_cast<std::size_t>(order[i - 1])] : order[i];
    }
    VertexData data;
    data.triangles.resize(corners.size());
    for (std::size_t i = 0; i < corners.size(); ++i) {
        auto const source = static_cast<std::size_t>(first[i]);
        if (source == i) {
            data.triangles[i] = static_cast<std::int32_t>(data.points.positions.size() / 3);
            data.points.positions.insert(data.points.positions.end(), corners[i].begin(), corners[i].end());
        } else {
            data.triangles[i] = data.triangles[source];
        }
    }
    return data;
}

void checkNumbers(Corner const & corner)
{
    for (float const value : corner)
        if (std::isnan(value))
            throw InputError("a corner of a triangle is no number");
}

std::vector<Corner> readBinary(ByteSource & source, std::uint64_t triangles, ReadingProgress & reading)
{
    std::size_t const length = 50;
    if (!source.mayHold(triangles, length))
        throw InputError("the input is truncated: " + std::to_string(triangles) +
                         " triangles are promised, and " + std::to_string(source.remaining() / length) +
                         " are there");
    std::vector<Corner> corners;
    corners.reserve(3 * source.worthReserving(triangles));
    for (std::uint64_t i = 0; i < triangles; ++i) {
        std::string_view const bytes = source.peek(length);
        if (bytes.size() < length)
            throw InputError("the input is truncated: " + std::to_string(triangles) +
                             " triangles are promised, and " + std::to_string(i) + " are there");
        for (std::size_t corner = 0; corner < 3; ++corner) {
            Corner place;
            std::memcpy(place.data(), bytes.data() + 12 * (corner + 1), sizeof(place));
            checkNumbers(place);
            corners.push_back(place);
        }
        source.skip(length);
        reading.update();
    }
    return corners;
}

std::vector<Corner> readAscii(ByteSource & source, ReadingProgress & reading)
{
    std::vector<Corner> corners;
    std::string_view line;
    bool hasEnd = false;
    while (source.readLine(line)) {
        reading.update();
        std::string_view const keyword = takeWord(line);
        hasEnd = keyword == "endsolid" || (hasEnd && keyword.empty());
        if (keyword == "endfacet" && corners.size() % 3 != 0)
            throw InputError("line " + std::to_string(source.lineNumber()) +
                             " ends a facet that has not three corners");
        if (keyword != "vertex")
            continue;
        Corner place;
        for (float & coordinate : place) {
            double value = 0;
            if (!parseNumber(takeWord(line), value))
                throw InputError("line " + std::to_string(source.lineNumber()) +
                                 " does not hold three numbers");
            coordinate = static_cast<float>(value);
        }
        checkNumbers(place);
        corners.push_back(place);
    }
    if (!hasEnd || corners.size() % 3 != 0)
        throw InputError("the input is truncated: there is no \"endsolid\"");
    return corners;
}

} // namespace

VertexData readStl(ByteSource & source, ReadingProgress & reading)
{
    // "solid" begins the ascii form, and against all rules some binary ones too; those hold a zero soon.
    std::size_t const header = 84;
    std::string_view const start = source.peek(512);
    bool const isAscii = start.substr(0, 5) == "solid" && start.find('\0') == std::string_view::npos;
    if (isAscii)
        return joined(readAscii(source, reading));
    if (start.size() < header)
        throw InputError("the input is not an STL file");
    std::uint32_t triangles = 0;
    std::memcpy(&triangles, start.data() + header - sizeof(triangles), sizeof(triangles));
    source.skip(header);
    return joined(readBinary(source, triangles, reading));
}

void writeStl(TriangleMesh const & mesh, ByteSink & sink)
{
    // Must not begin like the ascii form, with "solid".
    char header[80] = "binary STL";
    if (hasOrigin(mesh))
        std::snprintf(header, sizeof(header), "binary STL, origin %.9g %.9g %.9g", mesh.origin[0],
                      mesh.origin[1], mesh.origin[2]);
    sink.bytes(header, sizeof(header));
    sink.put(static_cast<std::uint32_t>(mesh.triangleCount()));
    std::size_t const length = 50;
    sink.forEach(mesh.triangleCount(), length, [&](std::size_t i, ByteBlock & block) {
        float values[12]; // the normal, then the corners
        for (std::size_t corner = 0; corner < 3; ++corner)
            std::copy_n(mesh.positions.data() + 3 * static_cast<std::size_t>(mesh.triangles[3 * i + corner]),
                        3, values + 3 + 3 * corner);
        double a[3], b[3];
        for (int axis = 0; axis < 3; ++axis) {
            a[axis] = static_cast<double>(values[6 + axis]) - static_cast<double>(values[3 + axis]);
            b[axis] = static_cast<double>(values[9 + axis]) - static_cast<double>(values[3 + axis]);
        }
        double const normal[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                                  a[0] * b[1] - a[1] * b[0]};
        // In range for all floats: products of four of them stay below 1e154.
        double const size = std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
        for (int axis = 0; axis < 3; ++axis)
            values[axis] = size > 0 ? static_cast<float>(normal[axis] / size) : 0.0f;
        char * const place = block.claim(length);
        std::memcpy(place, values, sizeof(values));
        std::memset(place + sizeof(values), 0, length - sizeof(values));
    });
}

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Drawing/SceneMesh.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Viewer/Drawing/Loops.h>

#include <meshoptimizer.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace QZmath::Viewing
{

namespace
{

void check(MeshScene const & scene)
{
    if (scene.mesh == nullptr)
        throw InputError("the scene has no mesh");
    TriangleMesh const & mesh = *scene.mesh;
    std::size_t const vertices = mesh.vertexCount();
    auto const fits = [](std::size_t size, std::size_t expected) { return size == 0 || size == expected; };
    bool const areFitting = mesh.positions.size() % 3 == 0 && mesh.triangles.size() % 3 == 0 &&
                            fits(mesh.normals.size(), 3 * vertices) &&
                            fits(mesh.colors.size(), 3 * vertices) && fits(mesh.density.size(), vertices) &&
                            (scene.distances == nullptr || fits(scene.distances->size(), vertices));
    if (!areFitting || vertices > std::size_t(std::numeric_limits<std::int32_t>::max()))
        throw InputError("the arrays of the mesh do not fit together");
    if (!std::all_of(mesh.origin.begin(), mesh.origin.end(),
                     [](double value) { return std::isfinite(value); }))
        throw InputError("the origin of the mesh is no finite place");
    for (std::int32_t const corner : mesh.triangles)
        if (corner < 0 || static_cast<std::size_t>(corner) >= vertices)
            throw InputError("the mesh has a triangle with a vertex that there is not");
}

// Of the triangles whose corners are finite, in terms of the mesh's own vertices.
std::vector<std::uint32_t> finiteTriangles(TriangleMesh const & mesh)
{
    std::vector<std::uint32_t> triangles;
    triangles.reserve(mesh.triangles.size());
    auto const isFinite = [&](std::int32_t vertex) {
        float const * const place = &mesh.positions[3 * static_cast<std::size_t>(vertex)];
        return std::isfinite(place[0]) && std::isfinite(place[1]) && std::isfinite(place[2]);
    };
    for (std::size_t i = 0; i < mesh.triangles.size(); i += 3)
        if (std::all_of(&mesh.triangles[i], &mesh.triangles[i] + 3, isFinite))
            for (std::size_t k = 0; k < 3; ++k)
                triangles.push_back(static_cast<std::uint32_t>(mesh.triangles[i + k]));
    return triangles;
}

void placeInBox(TriangleMesh const & mesh, SceneMesh & result)
{
    std::size_t const count = result.sources.size();
    std::array<float, 3> low, high;
    low.fill(std::numeric_limits<float>::infinity());
    high.fill(-std::numeric_limits<float>::infinity());
    for (std::uint32_t const source : result.sources)
        for (std::size_t k = 0; k < 3; ++k) {
            float const value = mesh.positions[3 * std::size_t(source) + k];
            low[k] = std::min(low[k], value);
            high[k] = std::max(high[k], value);
        }
    if (count == 0)
        low = high = {};
    double longest = 0;
    for (std::size_t k = 0; k < 3; ++k)
        longest = std::max(longest, double(high[k]) - double(low[k]));
    result.scale = longest > 0 ? longest : 1;
    result.origin = mesh.origin;
    for (std::size_t k = 0; k < 3; ++k) {
        result.low[k] = low[k];
        result.size[k] = static_cast<float>((double(high[k]) - double(low[k])) / result.scale);
    }
    result.places.resize(3 * count);
    for (std::size_t i = 0; i < 3 * count; ++i)
        result.places[i] = static_cast<float>(
            (mesh.positions[3 * std::size_t(result.sources[i / 3]) + i % 3] - result.low[i % 3]) /
            result.scale);
}

// Those of the mesh, or the mean of the triangles around a vertex, by their areas.
void setNormals(TriangleMesh const & mesh, SceneMesh & result)
{
    std::vector<Vec3> sums(result.vertexCount());
    for (std::size_t i = 0; i < result.triangles.size(); i += 3) {
        std::uint32_t const * const corners = &result.triangles[i];
        Vec3 const a = result.place(corners[0]);
        Vec3 const across = cross(result.place(corners[1]) - a, result.place(corners[2]) - a);
        for (std::size_t k = 0; k < 3; ++k)
            sums[corners[k]] = sums[corners[k]] + across;
    }
    result.normals.resize(result.places.size());
    for (std::size_t v = 0; v < sums.size(); ++v) {
        Vec3 normal = sums[v];
        if (!mesh.normals.empty()) {
            Vec3 const given = Vec3::of(&mesh.normals[3 * std::size_t(result.sources[v])]);
            float const length = given.length();
            if (length > 0 && std::isfinite(length))
                normal = given;
        }
        normal = normal.unit();
        float const parts[3] = {normal.x, normal.y, normal.z};
        std::copy_n(parts, 3, &result.normals[3 * v]);
    }
}

// Each edge adds a number that follows from its ends, and takes it off when it runs the other way: so the sum
// of a closed mesh is 0, and that of another one is so with a chance of 2^-64.
bool isClosed(std::vector<std::uint32_t> const & triangles)
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < triangles.size(); i += 3)
        for (std::size_t k = 0; k < 3; ++k) {
            std::uint32_t const from = triangles[i + k], to = triangles[i + (k + 1) % 3];
            std::uint64_t number = std::uint64_t(std::min(from, to)) << 32 | std::max(from, to);
            number = (number ^ number >> 30) * 0xbf58476d1ce4e5b9u; // splitmix64
            number = (number ^ number >> 27) * 0x94d049bb133111ebu;
            number ^= number >> 31;
            sum += from < to ? number : 0 - number;
        }
    return sum == 0;
}

std::vector<std::uint32_t> simplified(std::vector<std::uint32_t> triangles, TriangleMesh const & mesh,
                                      std::size_t mostTriangles)
{
    std::size_t const wanted = 3 * mostTriangles;
    // The simplification reads all vertices: those that are no numbers belong to no triangle any more.
    std::vector<float> positions = mesh.positions;
    for (float & value : positions)
        if (!std::isfinite(value))
            value = 0;
    std::vector<std::uint32_t> fewer(triangles.size());
    float const anyError = 1.0f; // of the extent
    std::size_t size = meshopt_simplify(fewer.data(), triangles.data(), triangles.size(), positions.data(),
                                        mesh.vertexCount(), 3 * sizeof(float), wanted, anyError, 0, nullptr);
    if (size > wanted + wanted / 10) // too many borders and pieces to keep
        size = meshopt_simplifySloppy(fewer.data(), triangles.data(), triangles.size(), positions.data(),
                                      mesh.vertexCount(), 3 * sizeof(float), wanted, anyError, nullptr);
    fewer.resize(size);
    return fewer;
}

} // namespace

SceneMesh sceneMesh(MeshScene const & scene, std::size_t mostTriangles)
{
    check(scene);
    TriangleMesh const & mesh = *scene.mesh;
    SceneMesh result;
    result.trianglesBefore = mesh.triangleCount();
    std::vector<std::uint32_t> triangles = finiteTriangles(mesh);
    result.leftOut = mesh.triangleCount() - triangles.size() / 3;
    if (triangles.size() / 3 > mostTriangles)
        triangles = simplified(std::move(triangles), mesh, mostTriangles);

    result.triangles.resize(triangles.size());
    if (!triangles.empty())
        meshopt_optimizeVertexCache(result.triangles.data(), triangles.data(), triangles.size(),
                                    mesh.vertexCount());
    std::uint32_t const unseen = std::numeric_limits<std::uint32_t>::max();
    std::vector<std::uint32_t> numbers(mesh.vertexCount(), unseen); // by first use
    for (std::uint32_t & corner : result.triangles) {
        if (numbers[corner] == unseen) {
            numbers[corner] = static_cast<std::uint32_t>(result.sources.size());
            result.sources.push_back(corner);
        }
        corner = numbers[corner];
    }
    placeInBox(mesh, result);
    setNormals(mesh, result);
    result.isClosed = isClosed(result.triangles);
    return result;
}

ByteRange byteRange(std::vector<float> const & values, SceneMesh const & mesh, bool fromZero)
{
    ByteRange range;
    range.bytes.assign(mesh.vertexCount(), 0);
    std::vector<float> finite;
    finite.reserve(mesh.vertexCount());
    for (std::uint32_t const source : mesh.sources)
        if (std::isfinite(values[source]))
            finite.push_back(values[source]);
    if (finite.empty())
        return range;
    auto const at = [&](double share) {
        auto const place = finite.begin() + static_cast<std::ptrdiff_t>(share * double(finite.size() - 1));
        std::nth_element(finite.begin(), place, finite.end());
        return double(*place);
    };
    range.low = fromZero ? 0.0 : at(0.01);
    range.high = at(0.99);
    auto const [least, greatest] = std::minmax_element(finite.begin(), finite.end());
    range.lowIsLess = double(*least) < range.low;
    range.highIsMore = double(*greatest) > range.high;
    double const width = range.high - range.low;
    for (std::size_t v = 0; v < range.bytes.size(); ++v) {
        double const value = values[mesh.sources[v]];
        if (!std::isfinite(value))
            continue;
        double const share = width > 0 ? (value - range.low) / width : 0.0;
        range.bytes[v] = static_cast<std::uint8_t>(std::lround(255 * std::clamp(share, 0.0, 1.0)));
    }
    return range;
}

int upAxis(SceneMesh const & mesh)
{
    bool const isMap =
        std::any_of(mesh.origin.begin(), mesh.origin.end(), [](double value) { return value != 0; });
    return isMap || mesh.size[2] < 0.45f * std::min(mesh.size[0], mesh.size[1]) ? 2 : 1;
}

std::string plainNumber(double value, int digits)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.*g", digits, value);
    return text;
}

std::string grouped(std::size_t count)
{
    std::string const digits = std::to_string(count);
    std::string text;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0)
            text += "\u202f";
        text += digits[i];
    }
    return text;
}

} // namespace QZmath::Viewing

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Crossings.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <algorithm>
#include <limits>
#include <optional>

namespace QZmath::Stages
{

namespace
{

double const ordinarySize = 1.5; // in mean radii
std::size_t const mostClasses = 40;

// Six times the volume of a tetrahedron.
double orientation(Vec const & a, Vec const & b, Vec const & c, Vec const & d)
{
    return dot(b - a, cross(c - a, d - a));
}

bool goesThrough(Vec const & from, Vec const & to, Triangle const & face)
{
    Vec const normal = face.areaNormal();
    double const start = dot(from - face.a, normal);
    double const end = dot(to - face.a, normal);
    if (!(start > 0 && end < 0) && !(start < 0 && end > 0))
        return false;
    double const ab = orientation(from, to, face.a, face.b);
    double const bc = orientation(from, to, face.b, face.c);
    double const ca = orientation(from, to, face.c, face.a);
    return (ab > 0 && bc > 0 && ca > 0) || (ab < 0 && bc < 0 && ca < 0);
}

// Does an edge of the first triangle, none of whose ends the second has, go through the second?
bool pierces(TriangleMesh const & mesh, std::int32_t first, std::int32_t second)
{
    std::int32_t const * corners = &mesh.triangles[3 * at(second)];
    Triangle const face = triangleOf(mesh, at(second));
    auto const isOfSecond = [&](std::int32_t vertex) {
        return vertex == corners[0] || vertex == corners[1] || vertex == corners[2];
    };
    for (std::int32_t h = 3 * first; h < 3 * first + 3; ++h) {
        std::int32_t const a = mesh.triangles[at(h)];
        std::int32_t const b = mesh.triangles[at(nextInTriangle(h))];
        if (!isOfSecond(a) && !isOfSecond(b) && goesThrough(vertexOf(mesh, a), vertexOf(mesh, b), face))
            return true;
    }
    return false;
}

double radiusOf(Triangle const & face)
{
    Vec const centre = face.centroid();
    return std::sqrt(
        std::max({(face.a - centre).squared(), (face.b - centre).squared(), (face.c - centre).squared()}));
}

// Triangles of similar size, by their centroids.
struct SizeClass
{
    std::vector<std::int32_t> triangles;
    std::vector<float> centroids;
    std::vector<double> radii;
    double reach = 0;
    std::optional<SampleIndex> index;

    void add(std::int32_t triangle, Triangle const & face, double radius)
    {
        triangles.push_back(triangle);
        centroids.resize(centroids.size() + 3);
        face.centroid().store(&centroids[centroids.size() - 3]);
        radii.push_back(radius);
        reach = std::max(reach, radius);
    }
};

} // namespace

std::size_t countCrossings(TriangleMesh const & mesh, std::vector<std::int32_t> const & triangles,
                           QzBackend::LoopTeam & team, double until)
{
    double const infinity = std::numeric_limits<double>::infinity();
    Vec low{{infinity, infinity, infinity}};
    Vec high = low * -1.0;
    double meanRadius = 0;
    for (std::int32_t const t : triangles) {
        Triangle const face = triangleOf(mesh, at(t));
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min({low[axis], face.a[axis], face.b[axis], face.c[axis]});
            high[axis] = std::max({high[axis], face.a[axis], face.b[axis], face.c[axis]});
        }
        meanRadius += radiusOf(face) / static_cast<double>(triangles.size());
    }
    // What may reach into the box: ordinary ones, then those up to twice as large, and so on.
    std::vector<SizeClass> classes(1);
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        Triangle const face = triangleOf(mesh, t);
        bool isIn = true;
        for (std::size_t axis = 0; axis < 3; ++axis)
            isIn = isIn && std::min({face.a[axis], face.b[axis], face.c[axis]}) <= high[axis] &&
                   std::max({face.a[axis], face.b[axis], face.c[axis]}) >= low[axis];
        if (!isIn)
            continue;
        double const radius = radiusOf(face);
        std::size_t sizeClass = 0;
        for (double limit = ordinarySize * meanRadius; radius > limit && sizeClass < mostClasses; limit *= 2)
            ++sizeClass;
        classes.resize(std::max(classes.size(), sizeClass + 1));
        classes[sizeClass].add(static_cast<std::int32_t>(t), face, radius);
    }
    for (SizeClass & sizeClass : classes)
        sizeClass.index.emplace(sizeClass.centroids.data(), sizeClass.triangles.size(), team);
    double const rounding = 1e-6 * std::max(low.length(), high.length());
    std::vector<std::uint8_t> isCrossing(triangles.size(), 0);
    forRanges(
        team, triangles.size(), 64,
        [&](std::size_t begin, std::size_t end) {
            for (std::size_t n = begin; n < end; ++n) {
                std::int32_t const t = triangles[n];
                Triangle const face = triangleOf(mesh, at(t));
                double const radius = radiusOf(face) + rounding;
                for (SizeClass const & others : classes) {
                    others.index->forEachWithin(
                        face.centroid(), radius + others.reach, [&](std::int32_t slot, double square) {
                            std::int32_t const other = others.triangles[at(slot)];
                            double const together = radius + others.radii[at(slot)];
                            isCrossing[n] =
                                isCrossing[n] || (square <= together * together && other != t &&
                                                  (pierces(mesh, t, other) || pierces(mesh, other, t)));
                        });
                }
            }
        },
        until);
    return static_cast<std::size_t>(std::count(isCrossing.begin(), isCrossing.end(), 1));
}

} // namespace QZmath::Stages

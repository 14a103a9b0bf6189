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
int const mostCellsOnAxis = 64;
// Triangles that are larger, in edges of a cell, are looked at always.
double const largestInCell = 0.5;

// Six times the volume of a tetrahedron.
double orientation(Vec const & a, Vec const & b, Vec const & c, Vec const & d)
{
    return dot(b - a, cross(c - a, d - a));
}

// Does an edge of the first triangle, none of whose ends the second has, go through the second?
bool pierces(TriangleMesh const & mesh, std::int32_t first, std::int32_t second)
{
    std::int32_t const * const edges = &mesh.triangles[3 * at(first)];
    std::int32_t const * const corners = &mesh.triangles[3 * at(second)];
    Triangle const face = triangleOf(mesh, at(second));
    Vec const normal = face.areaNormal();
    double sides[3]; // of the plane; none for what both have
    for (std::size_t k = 0; k < 3; ++k) {
        bool const isShared = edges[k] == corners[0] || edges[k] == corners[1] || edges[k] == corners[2];
        sides[k] = isShared ? 0.0 : dot(vertexOf(mesh, edges[k]) - face.a, normal);
    }
    for (std::size_t k = 0; k < 3; ++k) {
        std::size_t const next = k == 2 ? 0 : k + 1;
        if (!(sides[k] > 0 && sides[next] < 0) && !(sides[k] < 0 && sides[next] > 0))
            continue;
        Vec const from = vertexOf(mesh, edges[k]);
        Vec const to = vertexOf(mesh, edges[next]);
        double const ab = orientation(from, to, face.a, face.b);
        double const bc = orientation(from, to, face.b, face.c);
        double const ca = orientation(from, to, face.c, face.a);
        if ((ab > 0 && bc > 0 && ca > 0) || (ab < 0 && bc < 0 && ca < 0))
            return true;
    }
    return false;
}

// The box of a set of triangles; empty at first.
struct Bounds
{
    Vec low = {{infinity, infinity, infinity}};
    Vec high = {{-infinity, -infinity, -infinity}};

    void add(Triangle const & face)
    {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min({low[axis], face.a[axis], face.b[axis], face.c[axis]});
            high[axis] = std::max({high[axis], face.a[axis], face.b[axis], face.c[axis]});
        }
    }
    bool meets(Triangle const & face) const
    {
        bool isIn = true;
        for (std::size_t axis = 0; axis < 3; ++axis)
            isIn = isIn && std::min({face.a[axis], face.b[axis], face.c[axis]}) <= high[axis] &&
                   std::max({face.a[axis], face.b[axis], face.c[axis]}) >= low[axis];
        return isIn;
    }

private:
    static constexpr double infinity = std::numeric_limits<double>::infinity();
};

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

CrossingSearch::CrossingSearch(TriangleMesh const & mesh, std::vector<std::uint8_t> const & mayMove)
    : m_mesh(mesh)
{
    Bounds bounds;
    auto const moves = [&](std::size_t t) {
        std::int32_t const * corners = &mesh.triangles[3 * t];
        return !mayMove.empty() &&
               (mayMove[at(corners[0])] || mayMove[at(corners[1])] || mayMove[at(corners[2])]);
    };
    std::size_t still = 0;
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        if (moves(t)) {
            m_always.push_back(static_cast<std::int32_t>(t));
        } else {
            bounds.add(triangleOf(mesh, t));
            ++still;
        }
    }
    m_cellsBegin.assign(1, 0);
    if (still == 0)
        return;
    double const longest = std::max(
        {bounds.high[0] - bounds.low[0], bounds.high[1] - bounds.low[1], bounds.high[2] - bounds.low[2]});
    m_low = bounds.low;
    m_cell = longest > 0 ? longest / mostCellsOnAxis : 1.0;
    std::size_t cells = 1;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        m_cells[axis] = 1 + cellOf(bounds.high[axis], axis, mostCellsOnAxis);
        cells *= static_cast<std::size_t>(m_cells[axis]);
    }
    // Sorted by counting: the number of each cell's, then where each begins.
    m_cellsBegin.assign(cells + 1, 0);
    std::vector<std::int32_t> cellOfTriangle(mesh.triangleCount(), -1);
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        if (moves(t))
            continue;
        Triangle const face = triangleOf(mesh, t);
        if (!(radiusOf(face) <= largestInCell * m_cell)) {
            m_always.push_back(static_cast<std::int32_t>(t));
            continue;
        }
        Vec const centre = face.centroid();
        std::size_t cell = 0;
        for (std::size_t axis = 0; axis < 3; ++axis)
            cell = cell * static_cast<std::size_t>(m_cells[axis]) +
                   static_cast<std::size_t>(cellOf(centre[axis], axis, m_cells[axis] - 1));
        cellOfTriangle[t] = static_cast<std::int32_t>(cell);
        ++m_cellsBegin[cell + 1];
    }
    for (std::size_t cell = 0; cell < cells; ++cell)
        m_cellsBegin[cell + 1] += m_cellsBegin[cell];
    m_ofCells.resize(m_cellsBegin.back());
    std::vector<std::uint32_t> next(m_cellsBegin.begin(), m_cellsBegin.end() - 1);
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        if (cellOfTriangle[t] >= 0)
            m_ofCells[next[at(cellOfTriangle[t])]++] = static_cast<std::int32_t>(t);
    }
}

int CrossingSearch::cellOf(double coord, std::size_t axis, int last) const
{
    double const place = (coord - m_low[axis]) / m_cell;
    return place > 0 ? (place < last ? static_cast<int>(place) : last) : 0;
}

template <class Visit>
void CrossingSearch::forEachNear(Vec const & low, Vec const & high, Visit const & visit) const
{
    for (std::int32_t const t : m_always)
        visit(t);
    if (m_ofCells.empty())
        return;
    int range[3][2];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        range[axis][0] = cellOf(low[axis] - largestInCell * m_cell, axis, m_cells[axis] - 1);
        range[axis][1] = cellOf(high[axis] + largestInCell * m_cell, axis, m_cells[axis] - 1);
    }
    for (int x = range[0][0]; x <= range[0][1]; ++x) {
        for (int y = range[1][0]; y <= range[1][1]; ++y) {
            std::size_t const row = static_cast<std::size_t>((x * m_cells[1] + y) * m_cells[2]);
            std::size_t const end = m_cellsBegin[row + static_cast<std::size_t>(range[2][1]) + 1];
            for (std::size_t n = m_cellsBegin[row + static_cast<std::size_t>(range[2][0])]; n < end; ++n)
                visit(m_ofCells[n]);
        }
    }
}

std::size_t CrossingSearch::count(std::vector<std::int32_t> const & triangles, QzBackend::LoopTeam & team,
                                  double until) const
{
    Bounds bounds;
    double meanRadius = 0;
    for (std::int32_t const t : triangles) {
        Triangle const face = triangleOf(m_mesh, at(t));
        bounds.add(face);
        meanRadius += radiusOf(face) / static_cast<double>(triangles.size());
    }
    // What may reach into the box: ordinary ones, then those up to twice as large, and so on.
    std::vector<SizeClass> classes(1);
    forEachNear(bounds.low, bounds.high, [&](std::int32_t t) {
        Triangle const face = triangleOf(m_mesh, at(t));
        if (!bounds.meets(face))
            return;
        double const radius = radiusOf(face);
        std::size_t sizeClass = 0;
        for (double limit = ordinarySize * meanRadius; radius > limit && sizeClass < mostClasses; limit *= 2)
            ++sizeClass;
        classes.resize(std::max(classes.size(), sizeClass + 1));
        classes[sizeClass].add(t, face, radius);
    });
    for (SizeClass & sizeClass : classes)
        sizeClass.index.emplace(sizeClass.centroids.data(), sizeClass.triangles.size(), team);
    double const rounding = 1e-6 * std::max(bounds.low.length(), bounds.high.length());
    std::vector<std::uint8_t> isCrossing(triangles.size(), 0);
    forRanges(
        team, triangles.size(), 64,
        [&](std::size_t begin, std::size_t end) {
            for (std::size_t n = begin; n < end; ++n) {
                std::int32_t const t = triangles[n];
                Triangle const face = triangleOf(m_mesh, at(t));
                double const radius = radiusOf(face) + rounding;
                for (SizeClass const & others : classes) {
                    others.index->forEachWithin(
                        face.centroid(), radius + others.reach, [&](std::int32_t slot, double square) {
                            std::int32_t const other = others.triangles[at(slot)];
                            double const together = radius + others.radii[at(slot)];
                            isCrossing[n] =
                                isCrossing[n] || (square <= together * together && other != t &&
                                                  (pierces(m_mesh, t, other) || pierces(m_mesh, other, t)));
                        });
                }
            }
        },
        until);
    return static_cast<std::size_t>(std::count(isCrossing.begin(), isCrossing.end(), 1));
}

} // namespace QZmath::Stages

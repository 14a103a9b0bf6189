// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/UnreachedParts.h>

#include <apps/qzrecon/Lattice64.h>

#include <algorithm>
#include <cmath>

namespace qz_recon
{

namespace
{

// The cubic lattice over the cloud; vertices outside are drawn to its border.
class Lattice
{
public:
    Lattice(std::vector<float> const & coords, double edge) : m_edge(edge)
    {
        double extent = 0.0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            float min = coords[axis];
            float max = min;
            for (std::size_t i = axis; i < coords.size(); i += 3) {
                min = std::min(min, coords[i]);
                max = std::max(max, coords[i]);
            }
            m_min[axis] = min;
            extent = std::max(extent, static_cast<double>(max) - min);
        }
        m_edge = std::max(edge, extent / static_cast<double>(st_greatestCell - 2));
    }

    CellKey cellOf(float const * point) const
    {
        std::int64_t cell[3];
        for (int axis = 0; axis < 3; ++axis) {
            double const place = std::floor((point[axis] - m_min[axis]) / m_edge);
            cell[axis] =
                static_cast<std::int64_t>(std::clamp(place, -1.0, static_cast<double>(st_greatestCell)));
        }
        // Moved away from -1, so that neighbours of border cells have keys too.
        return cellKey(cell[0] + 1, cell[1] + 1, cell[2] + 1);
    }

private:
    double m_min[3];
    double m_edge;
};

// Calls a function with the 27 cells around a cell, itself included, until it returns true.
template <class TFunction>
bool anyNeighbour(CellKey key, TFunction function)
{
    for (CellKey const x : {key - st_stepOnAxis[0], key, key + st_stepOnAxis[0]})
        for (CellKey const y : {x - st_stepOnAxis[1], x, x + st_stepOnAxis[1]})
            for (CellKey const z : {y - st_stepOnAxis[2], y, y + st_stepOnAxis[2]})
                if (function(z))
                    return true;
    return false;
}

std::size_t rootOf(std::vector<std::size_t> & parents, std::size_t member)
{
    while (parents[member] != member)
        member = parents[member] = parents[parents[member]];
    return member;
}

} // namespace

std::vector<UnreachedPart> findUnreachedParts(QZmath::PointCloud const & cloud,
                                              QZmath::TriangleMesh const & mesh, double distance)
{
    std::size_t const leastSamples = 10;
    Lattice const lattice(cloud.positions, distance);

    std::vector<CellKey> meshCells;
    for (std::size_t i = 0; i < mesh.vertexCount(); ++i) {
        CellKey const key = lattice.cellOf(&mesh.positions[3 * i]);
        if (meshCells.empty() || meshCells.back() != key)
            meshCells.push_back(key);
    }
    sortUnique(meshCells);

    std::vector<CellKey> lonelyCells;
    std::vector<std::size_t> lonelySamples;
    CellKey lastReached = 0; // neighbouring samples mostly share a cell
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        CellKey const key = lattice.cellOf(&cloud.positions[3 * i]);
        if (key == lastReached)
            continue;
        if (anyNeighbour(key, [&](CellKey near) { return containsCell(meshCells, near); })) {
            lastReached = key;
            continue;
        }
        lonelyCells.push_back(key);
        lonelySamples.push_back(i);
    }
    std::vector<CellKey> const cellsOfSamples = lonelyCells;
    sortUnique(lonelyCells);

    auto const indexOf = [&](CellKey key) {
        return static_cast<std::size_t>(std::lower_bound(lonelyCells.begin(), lonelyCells.end(), key) -
                                        lonelyCells.begin());
    };
    std::vector<std::size_t> parents(lonelyCells.size());
    for (std::size_t i = 0; i < parents.size(); ++i)
        parents[i] = i;
    for (std::size_t i = 0; i < parents.size(); ++i)
        anyNeighbour(lonelyCells[i], [&](CellKey near) {
            std::size_t const j = indexOf(near);
            if (j < lonelyCells.size() && lonelyCells[j] == near)
                parents[rootOf(parents, j)] = rootOf(parents, i);
            return false;
        });

    std::vector<UnreachedPart> parts(lonelyCells.size());
    for (std::size_t k = 0; k < lonelySamples.size(); ++k) {
        UnreachedPart & part = parts[rootOf(parents, indexOf(cellsOfSamples[k]))];
        if (part.samples++ == 0)
            std::copy_n(&cloud.positions[3 * lonelySamples[k]], 3, part.firstSample);
    }
    parts.erase(std::remove_if(parts.begin(), parts.end(),
                               [](UnreachedPart const & part) { return part.samples < leastSamples; }),
                parts.end());
    std::stable_sort(parts.begin(), parts.end(),
                     [](UnreachedPart const & a, UnreachedPart const & b) { return a.samples > b.samples; });
    return parts;
}

} // namespace qz_recon

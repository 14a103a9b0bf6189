// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/Reconstruction/Mesh/Vec.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

/// Finds triangles of a mesh that pass through others: an edge of one goes through the inside of the other,
/// and they do not meet there in a common vertex. Touching is not passing, and triangles that lie in one
/// plane do not pass.
///
/// Triangles whose vertices stay are sorted into cells once, 4 bytes each, so that many small questions about
/// a large mesh do not each look at all of it. The mesh is referred to, not copied.
class CrossingSearch
{
public:
    /// \param mayMove  marks of the vertices that move between questions; empty for none
    CrossingSearch(TriangleMesh const & mesh, std::vector<std::uint8_t> const & mayMove);

    /// How many of some triangles pass through others of the mesh.
    ///
    /// Builds an index over the centroids of the triangles near those asked about, 27 bytes each, and looks
    /// at all triangles whose longest edges reach. The same result for any number of threads.
    std::size_t count(std::vector<std::int32_t> const & triangles, QzBackend::LoopTeam & team,
                      double until = 0) const;

private:
    int cellOf(double coord, std::size_t axis, int last) const;
    template <class Visit>
    void forEachNear(Vec const & low, Vec const & high, Visit const & visit) const;

    TriangleMesh const & m_mesh;
    std::vector<std::int32_t> m_always; // those that move, and large ones
    // The others, by cell: those of cell c are m_ofCells[m_cellsBegin[c]] to m_ofCells[m_cellsBegin[c + 1]].
    std::vector<std::uint32_t> m_cellsBegin;
    std::vector<std::int32_t> m_ofCells;
    std::array<int, 3> m_cells = {1, 1, 1};
    Vec m_low;
    double m_cell = 1.0; // edge
};

} // namespace QZmath::Stages

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Bricks/BrickPasses.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

class COctree;

/// The nodes of one depth of an octree, gathered in bricks of 8 x 8 x 8 places of the depth's own lattice.
///
/// The place of a node counts in cells of its depth: the node stands at `place` (nodes at corners) or at
/// `place + 1/2` (nodes at centres) cell edges from the least corner of the octree's cube. Brick b holds the
/// places 8 b to 8 b + 7 of each axis; inside it place (x, y, z) has the index 64 x + 8 y + z, and a row is
/// the eight places of equal x and y. Values over the nodes come in two forms:
///
///  - dense: 512 numbers a brick, 0 where no node stands;
///  - compact: one number a node, brick after brick, in each brick by ascending index.
struct QZMATH_SISTER_API BrickLevel
{
    static constexpr int noBrick = -1;

    int depth = 0;
    std::vector<std::array<int, 3>> bricks; ///< their places divided by 8; ascending in x, then y, then z
    std::vector<std::uint8_t> rows; ///< 64 a brick: bit z of row 8 x + y tells that a node stands there
    std::vector<std::uint32_t>
        firstNode; ///< compact index of the first node of a brick; one entry more at the end
    /// 27 a brick: the brick at (dx, dy, dz) of -1 to 1, or `noBrick`,
    /// under 9 (dx + 1) + 3 (dy + 1) + dz + 1.
    std::vector<int> neighbours;

    int bricksNumber() const { return static_cast<int>(bricks.size()); }
    std::uint8_t const * rowsOf(int brick) const
    {
        return rows.data() + static_cast<std::size_t>(brick) * brickRows;
    }
    int const * neighboursOf(int brick) const
    {
        return neighbours.data() + static_cast<std::size_t>(brick) * 27;
    }
    /// Index of a brick, or `noBrick`. Any numbers are allowed.
    int find(int x, int y, int z) const;

    /// The bricks without their nodes' numbers: as they are sent to other processes.
    struct Outline
    {
        std::vector<std::array<int, 3>> bricks; ///< ascending
        std::vector<std::uint8_t> rows;
    };

    std::vector<int> slots; ///< hash table of the bricks, a power of two of entries, `noBrick` where free
};

/// All nodes of an octree in bricks. Immutable; safe to read from many threads.
class QZMATH_SISTER_API BrickLattice
{
public:
    explicit BrickLattice(COctree const & octree);
    BrickLattice(COctree const & octree, QzBackend::LoopTeam & team);
    /// Of given bricks, depth after depth from `firstDepth` on; without numbers of an octree's nodes.
    BrickLattice(int firstDepth, bool isCentred, std::vector<BrickLevel::Outline> outlines,
                 QzBackend::LoopTeam & team);

    int firstDepth() const { return m_firstDepth; }
    int endDepth() const { return m_firstDepth + static_cast<int>(m_levels.size()); }
    /// The bricks of a depth from `firstDepth()` up to, but not including, `endDepth()`.
    BrickLevel const & level(int depth) const
    {
        return m_levels[static_cast<std::size_t>(depth - m_firstDepth)];
    }
    std::size_t nodesNumber() const { return m_levels.empty() ? 0 : m_levels.back().firstNode.back(); }
    /// Node index of the octree for each compact index; empty when the bricks are not an octree's.
    std::vector<int> const & nodes() const { return m_nodes; }
    /// Do the nodes stand at the centres of the cells of their depth?
    bool isCentred() const { return m_isCentred; }

private:
    struct Slab;
    void build(COctree const & octree, QzBackend::LoopTeam & team);
    void buildLevel(COctree const & octree, BrickLevel & level, std::size_t & nodes,
                    QzBackend::LoopTeam & team);
    static void linkBricks(BrickLevel & level, QzBackend::LoopTeam & team);

    int m_firstDepth;
    bool m_isCentred;
    std::vector<BrickLevel> m_levels;
    std::vector<int> m_nodes;
};

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Bricks/BrickLattice.h>

#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>

#include <algorithm>

namespace VolTr
{

namespace
{

std::uint64_t hashOfBrick(int x, int y, int z) { return CLatticeHash::hashOf(CInt3(x, y, z), 0); }

// A node in its slab of bricks of equal x: y and z of the brick, then the place
// inside, as bits of one number.
struct NodeInSlab
{
    std::uint64_t order;
    int node;
};

// A brick reaches from -1 to 2^26 on each axis.
std::uint64_t orderInSlab(int y, int z, int place)
{
    return static_cast<std::uint64_t>((y >> 3) + 1) << 36 | static_cast<std::uint64_t>((z >> 3) + 1) << 9 |
           static_cast<std::uint64_t>(place);
}

} // namespace

int BrickLevel::find(int x, int y, int z) const
{
    std::size_t const mask = slots.size() - 1;
    for (std::size_t slot = hashOfBrick(x, y, z) & mask;; slot = (slot + 1) & mask) {
        int const brick = slots[slot];
        if (brick == noBrick)
            return brick;
        // Not as arrays, which is a call.
        std::array<int, 3> const & place = bricks[static_cast<std::size_t>(brick)];
        if (place[0] == x && place[1] == y && place[2] == z)
            return brick;
    }
}

BrickLattice::BrickLattice(COctree const & octree)
    : m_firstDepth(octree.getNodeDepthBegin()),
      m_isCentred(octree.getNodeDepthEnd() <= octree.getLeafCellDepth()),
      m_levels(static_cast<std::size_t>(octree.getNodeDepthEnd() - octree.getNodeDepthBegin()))
{
    m_nodes.reserve(static_cast<std::size_t>(octree.getNodesNumber()));
    for (std::size_t index = 0; index < m_levels.size(); ++index) {
        m_levels[index].depth = m_firstDepth + static_cast<int>(index);
        buildLevel(octree, m_levels[index]);
    }
}

void BrickLattice::buildLevel(COctree const & octree, BrickLevel & level)
{
    // The index holds the nodes of the depth by x, y and z, so the slabs of bricks follow each other.
    CLatticeIndex const & index = octree.getNodeIndex(level.depth);
    int const shift = octree.getLeafCellDepth() - level.depth;
    std::vector<NodeInSlab> slab;
    int slabX = 0;
    auto const finishSlab = [&] {
        std::sort(slab.begin(), slab.end(),
                  [](NodeInSlab const & a, NodeInSlab const & b) { return a.order < b.order; });
        std::uint64_t brick = ~std::uint64_t{0};
        for (NodeInSlab const & entry : slab) {
            if (entry.order >> 9 != brick) {
                brick = entry.order >> 9;
                level.bricks.push_back({slabX, static_cast<int>(brick >> 27) - 1,
                                        static_cast<int>(brick & ((1U << 27) - 1)) - 1});
                level.rows.resize(level.rows.size() + brickRows, 0);
                level.firstNode.push_back(static_cast<std::uint32_t>(m_nodes.size()));
            }
            std::uint8_t & row = level.rows[level.rows.size() - brickRows + (entry.order >> 3 & 63)];
            row = static_cast<std::uint8_t>(row | 1U << (entry.order & 7));
            m_nodes.push_back(entry.node);
        }
        slab.clear();
    };
    for (int position = 0; position < index.size(); ++position) {
        int const node = index.payload(position);
        int offset[3];
        octree.getNodeOffset(node, offset);
        int const x = offset[0] >> shift;
        int const y = offset[1] >> shift;
        int const z = offset[2] >> shift;
        if (x >> 3 != slabX) {
            finishSlab();
            slabX = x >> 3;
        }
        slab.push_back({orderInSlab(y, z, (x & 7) * brickRows + (y & 7) * brickEdge + (z & 7)), node});
    }
    finishSlab();
    level.firstNode.push_back(static_cast<std::uint32_t>(m_nodes.size()));

    std::size_t slots = 4;
    while (slots < 2 * level.bricks.size())
        slots *= 2;
    level.slots.assign(slots, BrickLevel::noBrick);
    for (std::size_t brick = 0; brick < level.bricks.size(); ++brick) {
        std::array<int, 3> const & place = level.bricks[brick];
        std::size_t slot = hashOfBrick(place[0], place[1], place[2]) & (slots - 1);
        while (level.slots[slot] != BrickLevel::noBrick)
            slot = (slot + 1) & (slots - 1);
        level.slots[slot] = static_cast<int>(brick);
    }

    level.neighbours.reserve(27 * level.bricks.size());
    for (std::array<int, 3> const & place : level.bricks) {
        for (int x = -1; x <= 1; ++x) {
            for (int y = -1; y <= 1; ++y) {
                for (int z = -1; z <= 1; ++z)
                    level.neighbours.push_back(level.find(place[0] + x, place[1] + y, place[2] + z));
            }
        }
    }
}

} // namespace VolTr

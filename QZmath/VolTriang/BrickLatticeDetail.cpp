// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/BrickLatticeDetail.h>

#include <QZmath/VolTriang/LatticeHashDetail.h>
#include <QZmath/VolTriang/Octree.h>

#include <algorithm>

namespace VolTr
{

namespace
{

std::uint64_t hashOfBrick(int x, int y, int z) { return CLatticeHash::hashOf(CInt3(x, y, z), 0); }

struct NodePlace
{
    std::array<int, 3> brick;
    int place; // inside the brick
    int node;
};

bool isBefore(NodePlace const & a, NodePlace const & b)
{
    return a.brick != b.brick ? a.brick < b.brick : a.place < b.place;
}

} // namespace

int BrickLevel::find(int x, int y, int z) const
{
    std::size_t const mask = slots.size() - 1;
    for (std::size_t slot = hashOfBrick(x, y, z) & mask;; slot = (slot + 1) & mask) {
        int const brick = slots[slot];
        if (brick == noBrick || bricks[static_cast<std::size_t>(brick)] == std::array<int, 3>{x, y, z})
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
    // The nodes of the depth by x, y and z of their places; bricks need them by brick, then place.
    CLatticeIndex const & index = octree.getNodeIndex(level.depth);
    int const shift = octree.getLeafCellDepth() - level.depth;
    std::vector<NodePlace> places;
    places.reserve(static_cast<std::size_t>(index.size()));
    for (int position = 0; position < index.size(); ++position) {
        int const node = index.payload(position);
        int offset[3];
        octree.getNodeOffset(node, offset);
        int const x = offset[0] >> shift;
        int const y = offset[1] >> shift;
        int const z = offset[2] >> shift;
        places.push_back(
            {{x >> 3, y >> 3, z >> 3}, (x & 7) * brickRows + (y & 7) * brickEdge + (z & 7), node});
    }
    std::sort(places.begin(), places.end(), isBefore);

    for (NodePlace const & place : places) {
        if (level.bricks.empty() || level.bricks.back() != place.brick) {
            level.bricks.push_back(place.brick);
            level.rows.resize(level.rows.size() + brickRows, 0);
            level.firstNode.push_back(static_cast<std::uint32_t>(m_nodes.size()));
        }
        level.rows[level.rows.size() - brickRows + static_cast<std::size_t>(place.place >> 3)] |=
            static_cast<std::uint8_t>(1U << (place.place & 7));
        m_nodes.push_back(place.node);
    }
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

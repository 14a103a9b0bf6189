// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Bricks/BrickLattice.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>

#include <algorithm>
#include <utility>

namespace VolTr
{

namespace
{

std::size_t const bricksPerTurn = 1 << 14; // on one thread

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

// What a slab of bricks of equal x has, in the order of its bricks.
struct BrickLattice::Slab
{
    int begin; // in the index of the depth
    int end;
    int x;
    std::vector<std::array<int, 3>> bricks{};
    std::vector<std::uint8_t> rows{};
    std::vector<std::uint32_t> firstNode{}; // from the slab's first one
    std::vector<int> nodes{};

    void fill(COctree const & octree, CLatticeIndex const & index, int shift)
    {
        std::vector<NodeInSlab> entries;
        entries.reserve(static_cast<std::size_t>(end - begin));
        for (int position = begin; position < end; ++position) {
            int const node = index.payload(position);
            int offset[3];
            octree.getNodeOffset(node, offset);
            int const y = offset[1] >> shift;
            int const z = offset[2] >> shift;
            int const place = (offset[0] >> shift & 7) * brickRows + (y & 7) * brickEdge + (z & 7);
            entries.push_back({orderInSlab(y, z, place), node});
        }
        std::sort(entries.begin(), entries.end(),
                  [](NodeInSlab const & a, NodeInSlab const & b) { return a.order < b.order; });
        nodes.reserve(entries.size());
        std::uint64_t brick = ~std::uint64_t{0};
        for (NodeInSlab const & entry : entries) {
            if (entry.order >> 9 != brick) {
                brick = entry.order >> 9;
                bricks.push_back(
                    {x, static_cast<int>(brick >> 27) - 1, static_cast<int>(brick & ((1U << 27) - 1)) - 1});
                rows.resize(rows.size() + brickRows, 0);
                firstNode.push_back(static_cast<std::uint32_t>(nodes.size()));
            }
            std::uint8_t & row = rows[rows.size() - brickRows + (entry.order >> 3 & 63)];
            row = static_cast<std::uint8_t>(row | 1U << (entry.order & 7));
            nodes.push_back(entry.node);
        }
    }
};

BrickLattice::BrickLattice(COctree const & octree)
    : m_firstDepth(octree.getNodeDepthBegin()),
      m_isCentred(octree.getNodeDepthEnd() <= octree.getLeafCellDepth()),
      m_levels(static_cast<std::size_t>(octree.getNodeDepthEnd() - octree.getNodeDepthBegin()))
{
    QzBackend::LoopTeam::run(1, nullptr, [&](QzBackend::LoopTeam & team) { build(octree, team); });
}

BrickLattice::BrickLattice(COctree const & octree, QzBackend::LoopTeam & team)
    : m_firstDepth(octree.getNodeDepthBegin()),
      m_isCentred(octree.getNodeDepthEnd() <= octree.getLeafCellDepth()),
      m_levels(static_cast<std::size_t>(octree.getNodeDepthEnd() - octree.getNodeDepthBegin()))
{
    build(octree, team);
}

void BrickLattice::build(COctree const & octree, QzBackend::LoopTeam & team)
{
    QzBackend::assignLarge(team, m_nodes, static_cast<std::size_t>(octree.getNodesNumber()));
    std::size_t nodes = 0;
    for (std::size_t index = 0; index < m_levels.size(); ++index) {
        m_levels[index].depth = m_firstDepth + static_cast<int>(index);
        buildLevel(octree, m_levels[index], nodes, team);
    }
}

// `nodes` counts those of the levels so far.
void BrickLattice::buildLevel(COctree const & octree, BrickLevel & level, std::size_t & nodes,
                              QzBackend::LoopTeam & team)
{
    // The index holds the nodes of the depth by x, y and z, so the slabs of bricks follow each other.
    CLatticeIndex const & index = octree.getNodeIndex(level.depth);
    int const shift = octree.getLeafCellDepth() - level.depth;
    auto const slabOf = [&](int position) {
        int offset[3];
        octree.getNodeOffset(index.payload(position), offset);
        return offset[0] >> shift >> 3;
    };
    std::vector<Slab> slabs;
    for (int begin = 0; begin < index.size();) {
        int const x = slabOf(begin);
        int end = index.size();
        for (int first = begin + 1; first < end;) {
            int const middle = first + (end - first) / 2;
            if (slabOf(middle) > x)
                end = middle;
            else
                first = middle + 1;
        }
        slabs.push_back({begin, end, x});
        begin = end;
    }
    team.forEach(static_cast<int>(slabs.size()),
                 [&](int n) { slabs[static_cast<std::size_t>(n)].fill(octree, index, shift); });
    struct Begin
    {
        std::size_t brick, node;
    };
    std::vector<Begin> begins;
    std::size_t bricks = 0;
    for (Slab const & slab : slabs) {
        begins.push_back({bricks, nodes});
        bricks += slab.bricks.size();
        nodes += slab.nodes.size();
    }
    QzBackend::assignLarge(team, level.bricks, bricks);
    QzBackend::assignLarge(team, level.rows, bricks * brickRows);
    QzBackend::assignLarge(team, level.firstNode, bricks + 1, static_cast<std::uint32_t>(nodes));
    team.forEach(static_cast<int>(slabs.size()), [&](int n) {
        Slab & slab = slabs[static_cast<std::size_t>(n)];
        Begin const & begin = begins[static_cast<std::size_t>(n)];
        auto const from = [](auto & values, std::size_t at) {
            return values.begin() + static_cast<std::ptrdiff_t>(at);
        };
        std::copy(slab.bricks.begin(), slab.bricks.end(), from(level.bricks, begin.brick));
        std::copy(slab.rows.begin(), slab.rows.end(), from(level.rows, begin.brick * brickRows));
        std::copy(slab.nodes.begin(), slab.nodes.end(), from(m_nodes, begin.node));
        std::transform(slab.firstNode.begin(), slab.firstNode.end(), from(level.firstNode, begin.brick),
                       [&](std::uint32_t first) { return static_cast<std::uint32_t>(begin.node) + first; });
        slab = {};
    });
    linkBricks(level, team);
}

BrickLattice::BrickLattice(int firstDepth, bool isCentred, std::vector<BrickLevel::Outline> outlines,
                           QzBackend::LoopTeam & team)
    : m_firstDepth(firstDepth), m_isCentred(isCentred), m_levels(outlines.size())
{
    std::uint32_t nodes = 0;
    for (std::size_t index = 0; index < m_levels.size(); ++index) {
        BrickLevel & level = m_levels[index];
        level.depth = m_firstDepth + static_cast<int>(index);
        level.bricks = std::move(outlines[index].bricks);
        level.rows = std::move(outlines[index].rows);
        level.firstNode.reserve(level.bricks.size() + 1);
        for (int brick = 0; brick < level.bricksNumber(); ++brick) {
            level.firstNode.push_back(nodes);
            for (int row = 0; row < brickRows; ++row)
                nodes += rowCounts.of[level.rowsOf(brick)[row]];
        }
        level.firstNode.push_back(nodes);
        linkBricks(level, team);
    }
}

// Makes the bricks of a level known to each other.
void BrickLattice::linkBricks(BrickLevel & level, QzBackend::LoopTeam & team)
{
    std::size_t slots = 4;
    while (slots < 2 * level.bricks.size())
        slots *= 2;
    QzBackend::assignLarge(team, level.slots, slots, int{BrickLevel::noBrick});
    for (std::size_t brick = 0; brick < level.bricks.size(); ++brick) {
        if (brick % bricksPerTurn == 0)
            team.serve();
        std::array<int, 3> const & place = level.bricks[brick];
        std::size_t slot = hashOfBrick(place[0], place[1], place[2]) & (slots - 1);
        while (level.slots[slot] != BrickLevel::noBrick)
            slot = (slot + 1) & (slots - 1);
        level.slots[slot] = static_cast<int>(brick);
    }

    QzBackend::assignLarge(team, level.neighbours, 27 * level.bricks.size());
    team.forEach(level.bricksNumber(), [&](int brick) {
        std::array<int, 3> const & place = level.bricks[static_cast<std::size_t>(brick)];
        int * neighbour = level.neighbours.data() + static_cast<std::size_t>(brick) * 27;
        for (int x = -1; x <= 1; ++x) {
            for (int y = -1; y <= 1; ++y) {
                for (int z = -1; z <= 1; ++z)
                    *neighbour++ = level.find(place[0] + x, place[1] + y, place[2] + z);
            }
        }
    });
}

} // namespace VolTr

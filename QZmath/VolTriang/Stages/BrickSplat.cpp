// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/BrickSplat.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Bricks/BrickLattice.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/SampleSplat.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/Tree/TrilinearShare.h>

#include <algorithm>
#include <climits>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

std::uint8_t const noDepth = 255; // of a sample that takes no part

// Finds the compact indices of nodes from their places.
class NodeFinder
{
public:
    explicit NodeFinder(BrickLevel const & level) : m_level(level)
    {
        m_rowStarts.reserve(level.rows.size());
        for (int brick = 0; brick < level.bricksNumber(); ++brick) {
            unsigned start = 0;
            for (int row = 0; row < brickRows; ++row) {
                m_rowStarts.push_back(static_cast<std::uint16_t>(start));
                start += rowCounts.of[level.rowsOf(brick)[row]];
            }
        }
    }

    // The node must exist. `brick` is that of a node looked up before, or `noBrick`, and becomes its own.
    std::size_t indexOf(int x, int y, int z, int & brick) const
    {
        std::array<int, 3> const place = {x >> 3, y >> 3, z >> 3};
        if (brick < 0 || m_level.bricks[static_cast<std::size_t>(brick)] != place)
            brick = m_level.find(place[0], place[1], place[2]);
        std::size_t const row = static_cast<std::size_t>(brick * brickRows + (x & 7) * brickEdge + (y & 7));
        unsigned const before = m_level.rows[row] & ((1U << (z & 7)) - 1);
        return m_level.firstNode[static_cast<std::size_t>(brick)] + m_rowStarts[row] + rowCounts.of[before];
    }

private:
    BrickLevel const & m_level;
    std::vector<std::uint16_t> m_rowStarts;
};

// The normals of the samples on the nodes of one depth. A thread takes a column of bricks along z with all
// cells whose samples reach into it, so every node adds up in the order of the cells, and in them of the
// samples, on whatever thread.
class DepthSplat
{
public:
    using Field = std::vector<std::array<double, 3>>;

    // \param depths  of the nodes that each sample goes to; null when it is this one for all
    DepthSplat(StageContext const & context, BrickLevel const & level,
               std::vector<std::uint8_t> const * depths, int first, int deepest, Field & field)
        : m_context(context), m_level(level), m_depths(depths), m_first(first), m_deepest(deepest),
          m_finder(level), m_field(field), m_shift(context.octree.getLeafCellDepth() - level.depth),
          m_edge(context.octree.getCellSize(level.depth)),
          m_samplesEnd(context.octree.getSamplesEnd(context.octree.getCellsNumberOnDeepestLevel() - 1))
    {
        for (std::array<int, 3> const & brick : level.bricks) {
            if (m_columns.empty() || m_columns.back()[0] != brick[0] || m_columns.back()[1] != brick[1])
                m_columns.push_back({brick[0], brick[1]});
        }
    }

    void run(LoopTeam & team, double until)
    {
        team.forEach(
            static_cast<int>(m_columns.size()),
            [&](int column) { fillColumn(m_columns[static_cast<std::size_t>(column)]); }, until);
    }

private:
    void fillColumn(std::array<int, 2> const & column)
    {
        COctree const & octree = m_context.octree;
        CTreeNode first; // of the cell at the origin, to know where cubes between nodes begin
        octree.makeCellNode(&first, m_level.depth, CInt3(0, 0, 0), 0);
        // From the cubes below the first nodes of the column to those above the last ones.
        int const low[2] = {brickEdge * column[0] - 1, brickEdge * column[1] - 1};
        int const offset = first.shift().x() & ((1 << m_shift) - 1);
        auto const cellAt = [&](int cube) { return cube * (1 << m_shift) + offset; };
        CLatticeIndex const & cells = octree.getCellIndex();
        int brick = BrickLevel::noBrick;
        for (CLatticeBoxCursor it(
                 &cells, CInt3(cellAt(low[0]), cellAt(low[1]), INT_MIN),
                 CInt3(cellAt(low[0] + brickEdge + 1) - 1, cellAt(low[1] + brickEdge + 1) - 1, INT_MAX));
             !it.isFinished(); it.next())
            addCell(it.position(), it.place(), low, brick);
    }

    void addCell(int position, CInt3 const & cell, int const (&low)[2], int & brick)
    {
        COctree const & octree = m_context.octree;
        CTreeNode node;
        octree.makeCellNode(&node, m_level.depth, cell, 0);
        double corner[3];
        octree.cellCoordsToReal(corner, node.shift());
        std::array<std::array<double, 3>, 8> sums = {};
        bool isAny = false;
        for (int const * it = octree.getSamplesBegin(position); it != octree.getSamplesEnd(position); ++it) {
            // Samples of neighbouring cells may lie anywhere in memory.
            if (m_samplesEnd - it > samplesAhead) {
                int const later = it[samplesAhead];
                __builtin_prefetch(m_context.samples.getSampleCoords3(later));
                __builtin_prefetch(m_context.samples.getSampleNormal3(later));
                if (m_context.density != nullptr)
                    __builtin_prefetch(&m_context.density->weights[static_cast<std::size_t>(later)]);
                if (m_depths != nullptr)
                    __builtin_prefetch(&(*m_depths)[static_cast<std::size_t>(later)]);
            }
            if (m_depths != nullptr &&
                (*m_depths)[static_cast<std::size_t>(*it)] != static_cast<std::uint8_t>(m_level.depth))
                continue;
            isAny = true;
            float const weight = splatShareOf(m_context.density, *it, m_first, m_deepest).weight;
            float const * const point = m_context.samples.getSampleCoords3(*it);
            float const * const normal = m_context.samples.getSampleNormal3(*it);
            double share[3][2];
            for (int axis = 0; axis < 3; ++axis) {
                share[axis][0] = trilinearShare(point[axis], corner[axis], m_edge);
                share[axis][1] = trilinearShare(point[axis], corner[axis] + m_edge, m_edge);
            }
            for (std::size_t n = 0; n < 8; ++n) {
                double const factor = share[0][n >> 2] * share[1][n >> 1 & 1] * weight * share[2][n & 1];
                for (std::size_t axis = 0; axis < 3; ++axis)
                    sums[n][axis] += normal[axis] * factor;
            }
        }
        if (!isAny)
            return;
        int const place[3] = {node.shift().x() >> m_shift, node.shift().y() >> m_shift,
                              node.shift().z() >> m_shift};
        for (int n = 0; n < 8; ++n) {
            int const x = place[0] + (n >> 2);
            int const y = place[1] + (n >> 1 & 1);
            if (x <= low[0] || x > low[0] + brickEdge || y <= low[1] || y > low[1] + brickEdge)
                continue; // another column's
            std::array<double, 3> & value = m_field[m_finder.indexOf(x, y, place[2] + (n & 1), brick)];
            for (std::size_t axis = 0; axis < 3; ++axis)
                value[axis] += sums[static_cast<std::size_t>(n)][axis];
        }
    }

    static constexpr int samplesAhead = 8; // that are fetched while one is at hand

    StageContext const & m_context;
    BrickLevel const & m_level;
    std::vector<std::uint8_t> const * const m_depths;
    int const m_first;
    int const m_deepest;
    NodeFinder const m_finder;
    Field & m_field; // by compact index
    int const m_shift;
    double const m_edge;
    int const * const m_samplesEnd; // of the last cell
    std::vector<std::array<int, 2>> m_columns;
};

} // namespace

std::vector<std::array<double, 3>> splatOnBricks(StageContext const & context, BrickLattice const & lattice,
                                                 std::uint8_t const * isTaken, LoopTeam & team)
{
    int const samplesPerChunk = 1 << 15;
    int const samplesNumber = context.samples.pointsNumber();
    int const deepest = lattice.endDepth() - 1;
    int const first = lattice.firstDepth();
    DepthSplat::Field field(lattice.nodesNumber(), {0.0, 0.0, 0.0});
    // Which sample goes to which depth, and which depths there are.
    std::vector<std::uint8_t> depths;
    std::vector<std::uint32_t> found(1, 1U << deepest);
    if (context.density != nullptr || isTaken != nullptr) {
        depths.resize(static_cast<std::size_t>(samplesNumber));
        found.assign(depths.size() / samplesPerChunk + 1, 0);
        team.forEach(
            static_cast<int>(found.size()),
            [&](int chunk) {
                int const begin = chunk * samplesPerChunk;
                int const end = begin + std::min(samplesPerChunk, samplesNumber - begin);
                for (int sample = begin; sample < end; ++sample) {
                    std::uint8_t & depth = depths[static_cast<std::size_t>(sample)];
                    depth = noDepth;
                    if (isTaken != nullptr && isTaken[sample] == 0)
                        continue;
                    depth = static_cast<std::uint8_t>(
                        splatShareOf(context.density, sample, first, deepest).depth);
                    found[static_cast<std::size_t>(chunk)] |= 1U << depth;
                }
            },
            0.1);
    }
    std::uint32_t all = 0;
    for (std::uint32_t const some : found)
        all |= some;
    for (int depth = first; depth <= deepest; ++depth) {
        if ((all >> depth & 1U) != 0)
            DepthSplat(context, lattice.level(depth), depths.empty() ? nullptr : &depths, first, deepest,
                       field)
                .run(team, 0.1 + 0.9 * (depth - first + 1) / (deepest - first + 1));
    }
    return field;
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/BrickSplat.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Bricks/BrickLattice.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/SampleSplat.h>
#include <QZmath/VolTriang/Stages/SampleTurns.h>
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
    NodeFinder(BrickLevel const & level, LoopTeam & team) : m_level(level)
    {
        QzBackend::assignLarge(team, m_rowStarts, level.rows.size());
        team.forEach(level.bricksNumber(), [&](int brick) {
            std::uint16_t * const starts = m_rowStarts.data() + static_cast<std::size_t>(brick) * brickRows;
            unsigned start = 0;
            for (int row = 0; row < brickRows; ++row) {
                starts[row] = static_cast<std::uint16_t>(start);
                start += rowCounts.of[level.rowsOf(brick)[row]];
            }
        });
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
               std::vector<std::uint8_t> const * depths, int first, int deepest, Field & field,
               LoopTeam & team)
        : m_context(context), m_level(level), m_depths(depths), m_first(first), m_deepest(deepest),
          m_team(team), m_finder(level, team), m_field(field),
          m_shift(context.octree.getLeafCellDepth() - level.depth),
          m_edge(context.octree.getCellSize(level.depth)),
          m_samplesEnd(context.octree.getSamplesEnd(context.octree.getCellsNumberOnDeepestLevel() - 1))
    {
        for (std::array<int, 3> const & brick : level.bricks) {
            if (m_columns.empty() || m_columns.back()[0] != brick[0] || m_columns.back()[1] != brick[1])
                m_columns.push_back({brick[0], brick[1]});
        }
    }

    void run(double until)
    {
        std::vector<std::size_t> cellsDone(m_columns.size());
        m_team.forEach(
            static_cast<int>(m_columns.size()),
            [&](int number) {
                std::size_t const column = static_cast<std::size_t>(number);
                cellsDone[column] = fillColumn(m_columns[column]);
            },
            until);
        for (std::size_t column = 0; column < m_columns.size(); ++column) {
            if (cellsDone[column] != allCells)
                fillCrowdedColumn(m_columns[column], cellsDone[column]);
        }
    }

private:
    static constexpr int samplesAhead = 8; // that are fetched while one is at hand
    // More of them in a column are not one thread's alone.
    static constexpr std::ptrdiff_t crowdedSamples = 1 << 17;
    static constexpr std::size_t allCells = ~std::size_t{0};

    using Sums = std::array<std::array<double, 3>, 8>; // at the corners of a cell

    // A cell whose samples reach into a column.
    struct Cell
    {
        int position;
        CInt3 cube; // of nodes, that it lies in: its least corner
    };

    // What a sample adds at a node is its normal times a factor.
    struct Term
    {
        std::array<double, 8> factors;
        float normal[3];
        bool isAny; // of this depth
    };

    // Calls visit(cell) for the cells of a column in their order, while it returns true.
    template <class Visit>
    void forCells(std::array<int, 2> const & column, Visit const & visit) const
    {
        COctree const & octree = m_context.octree;
        CTreeNode first; // of the cell at the origin, to know where cubes between nodes begin
        octree.makeCellNode(&first, m_level.depth, CInt3(0, 0, 0), 0);
        // From the cubes below the first nodes of the column to those above the last ones.
        int const low[2] = {brickEdge * column[0] - 1, brickEdge * column[1] - 1};
        int const offset = first.shift().x() & ((1 << m_shift) - 1);
        auto const cellAt = [&](int cube) { return cube * (1 << m_shift) + offset; };
        CLatticeIndex const & cells = octree.getCellIndex();
        for (CLatticeBoxCursor it(
                 &cells, CInt3(cellAt(low[0]), cellAt(low[1]), INT_MIN),
                 CInt3(cellAt(low[0] + brickEdge + 1) - 1, cellAt(low[1] + brickEdge + 1) - 1, INT_MAX));
             !it.isFinished(); it.next()) {
            CTreeNode node;
            octree.makeCellNode(&node, m_level.depth, it.place(), 0);
            if (!visit(Cell{it.position(), node.shift()}))
                return;
        }
    }

    // The number of cells that are done when a column turns out to be crowded, or `allCells`.
    std::size_t fillColumn(std::array<int, 2> const & column)
    {
        COctree const & octree = m_context.octree;
        std::ptrdiff_t samplesLeft = crowdedSamples;
        std::size_t cellsDone = 0;
        int brick = BrickLevel::noBrick;
        forCells(column, [&](Cell const & cell) {
            int const * const begin = octree.getSamplesBegin(cell.position);
            int const * const end = octree.getSamplesEnd(cell.position);
            samplesLeft -= end - begin;
            if (samplesLeft < 0)
                return false;
            ++cellsDone;
            double corner[3];
            octree.cellCoordsToReal(corner, cell.cube);
            Sums sums = {};
            bool isAny = false;
            for (int const * it = begin; it != end; ++it)
                isAny = forCorners(it, corner,
                                   [&](std::size_t n, double factor, float const * normal) {
                                       add(sums[n], factor, normal);
                                   }) ||
                        isAny;
            if (isAny)
                keepSums(cell, sums, column, brick);
            return true;
        });
        return samplesLeft < 0 ? cellsDone : allCells;
    }

    void fillCrowdedColumn(std::array<int, 2> const & column, std::size_t cellsDone)
    {
        COctree const & octree = m_context.octree;
        std::vector<Cell> cells; // that are left
        forCells(column, [&](Cell const & cell) {
            if (cellsDone == 0)
                cells.push_back(cell);
            else
                --cellsDone;
            return true;
        });
        std::vector<Sums> sums(cells.size(), Sums{});
        std::vector<std::uint8_t> isAny(cells.size());
        auto turns = makeSampleTurns<Term>(
            m_team,
            [&](int, int cell, int const * samples, int count, Term * terms) {
                double corner[3];
                octree.cellCoordsToReal(corner, cells[static_cast<std::size_t>(cell)].cube);
                for (int n = 0; n < count; ++n) {
                    Term & term = terms[n];
                    term.isAny = forCorners(samples + n, corner,
                                            [&](std::size_t at, double factor, float const * normal) {
                                                term.factors[at] = factor;
                                                std::copy_n(normal, 3, term.normal);
                                            });
                }
            },
            [&](int number, Term const * terms, int count) {
                std::size_t const cell = static_cast<std::size_t>(number);
                Sums own = sums[cell];
                bool isAnyOwn = false;
                for (int n = 0; n < count; ++n) {
                    for (std::size_t at = 0; at < 8 && terms[n].isAny; ++at)
                        add(own[at], terms[n].factors[at], terms[n].normal);
                    isAnyOwn = terms[n].isAny || isAnyOwn;
                }
                sums[cell] = own;
                isAny[cell] = isAnyOwn ? 1 : isAny[cell];
            });
        for (std::size_t cell = 0; cell < cells.size(); ++cell)
            turns.add(static_cast<int>(cell), octree.getSamplesBegin(cells[cell].position),
                      octree.getSamplesEnd(cells[cell].position));
        turns.finish();
        int brick = BrickLevel::noBrick;
        for (std::size_t cell = 0; cell < cells.size(); ++cell) {
            if (isAny[cell] != 0)
                keepSums(cells[cell], sums[cell], column, brick);
        }
    }

    // Calls take(n, factor, normal) for the corners n of the cell of a sample: what it adds there is its
    // normal times the factor. False for a sample of another depth.
    template <class Take>
    [[gnu::always_inline]] bool forCorners(int const * it, double const (&corner)[3], Take const & take) const
    {
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
            return false;
        float const weight = splatShareOf(m_context.density, *it, m_first, m_deepest).weight;
        float const * const point = m_context.samples.getSampleCoords3(*it);
        float const * const normal = m_context.samples.getSampleNormal3(*it);
        double share[3][2];
        for (int axis = 0; axis < 3; ++axis) {
            share[axis][0] = trilinearShare(point[axis], corner[axis], m_edge);
            share[axis][1] = trilinearShare(point[axis], corner[axis] + m_edge, m_edge);
        }
        for (std::size_t n = 0; n < 8; ++n)
            take(n, share[0][n >> 2] * share[1][n >> 1 & 1] * weight * share[2][n & 1], normal);
        return true;
    }

    [[gnu::always_inline]] static void add(std::array<double, 3> & sum, double factor, float const * normal)
    {
        for (std::size_t axis = 0; axis < 3; ++axis)
            sum[axis] += normal[axis] * factor;
    }

    void keepSums(Cell const & cell, Sums const & sums, std::array<int, 2> const & column, int & brick)
    {
        int const place[3] = {cell.cube.x() >> m_shift, cell.cube.y() >> m_shift, cell.cube.z() >> m_shift};
        for (int n = 0; n < 8; ++n) {
            int const x = place[0] + (n >> 2);
            int const y = place[1] + (n >> 1 & 1);
            if (x >> 3 != column[0] || y >> 3 != column[1])
                continue; // another column's
            std::array<double, 3> & value = m_field[m_finder.indexOf(x, y, place[2] + (n & 1), brick)];
            for (std::size_t axis = 0; axis < 3; ++axis)
                value[axis] += sums[static_cast<std::size_t>(n)][axis];
        }
    }

    StageContext const & m_context;
    BrickLevel const & m_level;
    std::vector<std::uint8_t> const * const m_depths;
    int const m_first;
    int const m_deepest;
    LoopTeam & m_team;
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
    DepthSplat::Field field;
    QzBackend::assignLarge(team, field, lattice.nodesNumber(), {0.0, 0.0, 0.0});
    // Which sample goes to which depth, and which depths there are.
    std::vector<std::uint8_t> depths;
    std::vector<std::uint32_t> found(1, 1U << deepest);
    if (context.density != nullptr || isTaken != nullptr) {
        QzBackend::assignLarge(team, depths, static_cast<std::size_t>(samplesNumber));
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
                       field, team)
                .run(0.1 + 0.9 * (depth - first + 1) / (deepest - first + 1));
    }
    return field;
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Octree.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/ParallelPieces.h>
#include <QZmath/VolTriang/Tree/LatticeSweep.h>
#include <QZmath/VolTriang/Tree/SortedCells.h>
#include <QZmath/VolTriang/Tree/TreeRule.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdint>
#include <new>
#include <utility>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

// Fewer samples are not worth other threads.
int const leastForThreads = 20000;
int const elementsPerChunk = 1 << 15;

int bitsIn(unsigned bits)
{
    bits = (bits & 0x55U) + (bits >> 1 & 0x55U);
    bits = (bits & 0x33U) + (bits >> 2 & 0x33U);
    return static_cast<int>((bits & 0x0fU) + (bits >> 4));
}

// Calls body(begin, end) for ranges of indices.
template <class Body>
void forChunks(LoopTeam & team, std::size_t count, Body const & body)
{
    QzBackend::forRanges(team, count, elementsPerChunk, body);
}

// Replaces counts by the sums of those before them, and returns the sum of all.
std::int64_t sumUp(LoopTeam & team, std::vector<int> & counts)
{
    std::vector<std::int64_t> sums((counts.size() + elementsPerChunk - 1) / elementsPerChunk + 1, 0);
    forChunks(team, counts.size(), [&](std::size_t begin, std::size_t end) {
        for (std::size_t n = begin; n < end; ++n)
            sums[begin / elementsPerChunk + 1] += counts[n];
    });
    for (std::size_t chunk = 1; chunk < sums.size(); ++chunk)
        sums[chunk] += sums[chunk - 1];
    if (sums.back() > INT_MAX)
        throw std::bad_alloc(); // more than `int` can number
    forChunks(team, counts.size(), [&](std::size_t begin, std::size_t end) {
        std::int64_t sum = sums[begin / elementsPerChunk];
        for (std::size_t n = begin; n < end; ++n) {
            int const count = counts[n];
            counts[n] = static_cast<int>(sum);
            sum += count;
        }
    });
    return sums.back();
}

int treeThreads(IInputSamples const & samples)
{
    return samples.pointsNumber() < leastForThreads ? 1
                                                    : CVescaThreadingTasksHelper::getNumOfPhisicalThread();
}

} // namespace

// Cells and nodes are found sorted: the cells by sorting the samples, the nodes of a depth from the cells by
// merging their lines. Their numbers are to be those of a walk over the samples that numbers what it meets
// first, each cell with its nodes by depth and corner. So a cell's number is its rank by its least sample,
// and a node belongs to the cell of the least number around it and follows that cell's other nodes.
class COctree::Builder
{
public:
    Builder(COctree & octree, LoopTeam & team) : m_octree(octree), m_team(team), m_sweep(team) {}

    void run()
    {
        TreeCube const & cube = *m_octree.m_cube;
        SortedCells cells = sortIntoCells(*m_octree.m_samples, cube, m_team, 0.6);
        numberCells(cells);
        m_octree.m_cellSamples = std::move(cells.samples);
        m_octree.m_cellSamplesBegin = std::move(cells.samplesBegin);
        cells = {};
        m_team.setPosition(0.7);
        findNodes();
        m_team.setPosition(0.9);
        numberNodes();
    }

private:
    // The nodes of a depth.
    struct Level
    {
        LatticeSweep::Surroundings nodes;             // payloads: cells that they belong to
        std::vector<std::atomic<std::uint8_t>> owned; // by cell: the corners of its nodes
    };

    void numberCells(SortedCells const & cells)
    {
        std::vector<int> & sampleCells = m_octree.m_sampleCells;
        std::size_t const samplesNumber = cells.samples.size();
        std::size_t const cellsNumber = cells.places.size();
        auto const leastSample = [&](std::size_t cell) {
            return static_cast<std::size_t>(
                cells.samples[static_cast<std::size_t>(cells.samplesBegin[cell])]);
        };
        QzBackend::assignLarge(m_team, sampleCells, samplesNumber);
        forChunks(m_team, cellsNumber, [&](std::size_t begin, std::size_t end) {
            for (std::size_t cell = begin; cell < end; ++cell)
                sampleCells[leastSample(cell)] = 1;
        });
        sumUp(m_team, sampleCells);
        std::vector<int> numbers;
        QzBackend::assignLarge(m_team, numbers, cellsNumber);
        QzBackend::assignLarge(m_team, m_octree.m_cells, cellsNumber);
        forChunks(m_team, cellsNumber, [&](std::size_t begin, std::size_t end) {
            for (std::size_t cell = begin; cell < end; ++cell) {
                numbers[cell] = sampleCells[leastSample(cell)];
                m_octree.m_cells[static_cast<std::size_t>(numbers[cell])] = cells.places[cell];
            }
        });
        forChunks(m_team, cellsNumber, [&](std::size_t begin, std::size_t end) {
            for (std::size_t cell = begin; cell < end; ++cell) {
                for (int n = cells.samplesBegin[cell]; n < cells.samplesBegin[cell + 1]; ++n)
                    sampleCells[static_cast<std::size_t>(cells.samples[static_cast<std::size_t>(n)])] =
                        numbers[cell];
            }
        });
        m_octree.m_cellIndex = m_sweep.sorted(cells.places, numbers);
    }

    void findNodes()
    {
        int const leaf = m_octree.m_depth;
        bool const isCentred = m_octree.m_nodeDepthEnd <= leaf;
        m_levels = std::vector<Level>(static_cast<std::size_t>(m_octree.m_nodeDepthEnd));
        CLatticeIndex cells; // of the depth
        CLatticeIndex const * deeper = &m_octree.m_cellIndex;
        for (int depth = m_octree.m_nodeDepthEnd - 1; depth >= m_octree.m_nodeDepthBegin; --depth) {
            // Nodes at corners span the cells of their depth. Cubes between nodes at centres hold the second
            // half of a cell and the first of the next one, on each axis.
            CLatticeIndex const cubes = isCentred ? m_sweep.halved(*deeper, -1) : CLatticeIndex();
            Level & level = m_levels[static_cast<std::size_t>(depth)];
            level.nodes = m_sweep.surrounded(isCentred ? cubes : *deeper);
            level.owned = std::vector<std::atomic<std::uint8_t>>(m_octree.m_cells.size());
            m_sweep.forEachPoint(level.nodes.index, [&](int position, CInt3 const &, int & cell) {
                level.owned[static_cast<std::size_t>(cell)].fetch_or(
                    static_cast<std::uint8_t>(1U << level.nodes.corners[static_cast<std::size_t>(position)]),
                    std::memory_order_relaxed);
            });
            if (depth > m_octree.m_nodeDepthBegin) {
                cells = m_sweep.halved(*deeper, 0);
                deeper = &cells;
            }
        }
    }

    void numberNodes()
    {
        std::vector<int> next; // of each cell's nodes
        QzBackend::assignLarge(m_team, next, m_octree.m_cells.size());
        auto const addOwned = [&](Level const & level) {
            forChunks(m_team, level.owned.size(), [&](std::size_t begin, std::size_t end) {
                for (std::size_t cell = begin; cell < end; ++cell)
                    next[cell] += bitsIn(level.owned[cell].load(std::memory_order_relaxed));
            });
        };
        for (Level const & level : m_levels)
            addOwned(level);
        QzBackend::assignLarge(m_team, m_octree.m_nodes, static_cast<std::size_t>(sumUp(m_team, next)));
        m_octree.m_nodeIndex.resize(m_levels.size());
        for (int depth = m_octree.m_nodeDepthBegin; depth < m_octree.m_nodeDepthEnd; ++depth) {
            Level & level = m_levels[static_cast<std::size_t>(depth)];
            CLatticeIndex & index = level.nodes.index;
            int const shift = m_octree.m_depth - depth;
            bool const isCentred = m_octree.m_nodeDepthEnd <= m_octree.m_depth;
            m_sweep.scale(index, shift, isCentred ? 1 << (shift - 1) : 0);
            m_sweep.forEachPoint(index, [&](int position, CInt3 const & place, int & payload) {
                std::size_t const cell = static_cast<std::size_t>(payload);
                unsigned const before = (1U << level.nodes.corners[static_cast<std::size_t>(position)]) - 1;
                payload = next[cell] + bitsIn(level.owned[cell].load(std::memory_order_relaxed) & before);
                m_octree.m_nodes[static_cast<std::size_t>(payload)] = CTreeNode(depth, place);
            });
            addOwned(level);
            m_octree.m_nodeIndex[static_cast<std::size_t>(depth)] = std::move(index);
            level = Level();
        }
    }

    COctree & m_octree;
    LoopTeam & m_team;
    LatticeSweep m_sweep;
    std::vector<Level> m_levels; // by depth
};

COctree::COctree(IInputSamples const * samples, int depth, CProgressCounter * progress, bool useCenter,
                 int detalizationLevel)
    : m_boxMin{0.0, 0.0, 0.0}, m_boxMax{0.0, 0.0, 0.0}, m_depth(depth), m_nodeDepthBegin(0),
      m_nodeDepthEnd(0), m_unit(-1.0), m_samples(samples),
      m_policy(makeTreePolicy(depth, useCenter, detalizationLevel))
{
    m_nodeDepthBegin = m_policy->getNodeDepthBegin();
    m_nodeDepthEnd = m_policy->getNodeDepthEnd();
    int const threads = treeThreads(*samples);
    {
        CPrgCntSubPhase phase(progress, 0, 10, 0, true);
        LoopTeam::run(threads, progress,
                      [&](LoopTeam & team) { takeCube(makeTreeCube(*m_samples, *m_policy, team)); });
    }
    CPrgCntSubPhase phase(progress, 10, 90, 0, true);
    buildOctree(progress);
}

COctree::COctree(IInputSamples const * samples, TreeCube const & cube, int depth, CProgressCounter * progress,
                 bool useCenter, int detalizationLevel)
    : m_boxMin{0.0, 0.0, 0.0}, m_boxMax{0.0, 0.0, 0.0}, m_depth(depth), m_nodeDepthBegin(0),
      m_nodeDepthEnd(0), m_unit(-1.0), m_samples(samples),
      m_policy(makeTreePolicy(depth, useCenter, detalizationLevel))
{
    m_nodeDepthBegin = m_policy->getNodeDepthBegin();
    m_nodeDepthEnd = m_policy->getNodeDepthEnd();
    takeCube(cube);
    buildOctree(progress);
}

COctree::~COctree() = default;

void COctree::takeCube(TreeCube const & cube)
{
    m_cube = std::make_unique<TreeCube const>(cube);
    std::copy_n(m_cube->min, 3, m_boxMin);
    std::copy_n(m_cube->max, 3, m_boxMax);
    m_unit = m_cube->size / m_cube->cellsPerAxis;
}

void COctree::buildOctree(CProgressCounter * progress)
{
    LoopTeam::run(treeThreads(*m_samples), progress, [&](LoopTeam & team) { Builder(*this, team).run(); });
}

int COctree::realToLattice(double value, int axis, int ifNaN) const
{
    return m_cube->toLattice(value, axis, ifNaN);
}

CParallelepiped COctree::getCellBox(int cell) const
{
    CInt3 const low = getCellOffset(cell);
    double min[3];
    double max[3];
    cellCoordsToReal(min, low);
    cellCoordsToReal(max, low + CInt3(1, 1, 1));
    return CParallelepiped(min, max);
}

double COctree::getCellSize(int depth) const { return std::ldexp(m_unit, m_depth - depth); }

void COctree::getBoxCenter(double * out3) const
{
    for (int axis = 0; axis < 3; ++axis)
        out3[axis] = (m_boxMin[axis] + m_boxMax[axis]) * 0.5;
}

CParallelepiped COctree::getCellsBoundaryBox() const { return CParallelepiped(m_boxMin, m_boxMax); }

CParallelepiped COctree::getNodesBoundaryBox() const
{
    int const low = m_policy->getMinNodeCoord(m_nodeDepthBegin);
    int const high = m_policy->getMaxNodeCoord(m_nodeDepthBegin);
    double min[3];
    double max[3];
    cellCoordsToReal(min, CInt3(low, low, low));
    cellCoordsToReal(max, CInt3(high, high, high));
    return CParallelepiped(min, max);
}

CParallelepiped COctree::getBoxOnNbrNodes(int cell, int depth) const
{
    CInt3 const cellOffset = getCellOffset(cell);
    CTreeNode node;
    makeCellNode(&node, depth, cellOffset, 0);
    double min[3];
    cellCoordsToReal(min, node.shift());
    double const edge = getCellSize(depth);
    double const max[3] = {min[0] + edge, min[1] + edge, min[2] + edge};
    return CParallelepiped(min, max);
}

bool COctree::isInLeafCell(double const * point) const
{
    CInt3 cell;
    for (int axis = 0; axis < 3; ++axis)
        cell.coordMod(axis) = realToLattice(point[axis], axis, -1);
    return m_cellIndex.find(cell) >= 0;
}

void COctree::releaseNodes()
{
    m_nodes = decltype(m_nodes)();
    m_sampleCells = decltype(m_sampleCells)();
    for (CLatticeIndex & index : m_nodeIndex)
        index = CLatticeIndex();
}

CLatticeIndex const & COctree::getNodeIndex(int depth) const
{
    static CLatticeIndex const none;
    if (depth < m_nodeDepthBegin || depth >= m_nodeDepthEnd)
        return none;
    return m_nodeIndex[static_cast<std::size_t>(depth)];
}

} // namespace VolTr

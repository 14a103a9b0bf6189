// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Octree.h>

#include <QZmath/VolTriang/Tree/LatticeHash.h>
#include <QZmath/VolTriang/Tree/TreeRule.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <new>

namespace VolTr
{

// Numbers cells and nodes in the order in which the samples first touch them. The hash tables live only while
// the tree is built; afterwards the sorted sets answer all look-ups.
class COctree::Builder
{
public:
    explicit Builder(COctree & octree)
        : m_octree(octree), m_lastBase(static_cast<std::size_t>(octree.m_nodeDepthEnd), CInt3())
    {}

    void insertPoint(CInt3 const & cell)
    {
        std::vector<CInt3> & cells = m_octree.m_cells;
        std::uint64_t const hash = CLatticeHash::hashOf(cell, 0);
        int index =
            m_cellTable.find(hash, [&](int other) { return cells[static_cast<std::size_t>(other)] == cell; });
        if (index < 0) {
            index = m_octree.getCellsNumberOnDeepestLevel();
            cells.push_back(cell);
            m_cellTable.insert(hash, index, [&](int other) {
                return CLatticeHash::hashOf(cells[static_cast<std::size_t>(other)], 0);
            });
            addNodesAround(cell);
        }
        m_octree.m_sampleCells.push_back(index);
    }

private:
    struct HashedNode
    {
        CTreeNode node;
        std::uint64_t hash = 0;
    };

    // The eight nodes around a cell at a depth follow from the first of them, so a first node that served
    // another cell before stands for all eight. Nearly every look-up misses the cache where samples come in
    // no order, so all that can be are begun before any is finished.
    void addNodesAround(CInt3 const & cell)
    {
        std::array<HashedNode, MAX_DEPTH + 1> firstNodes;
        int const begin = m_octree.m_nodeDepthBegin;
        int const end = m_octree.m_nodeDepthEnd;
        for (int depth = begin; depth < end; ++depth)
            firstNodes[static_cast<std::size_t>(depth)] = hashNode(cell, depth, 0);
        for (int depth = begin; depth < end; ++depth)
            prefetchNode(firstNodes[static_cast<std::size_t>(depth)]);
        for (int depth = begin; depth < end; ++depth) {
            HashedNode const & firstNode = firstNodes[static_cast<std::size_t>(depth)];
            CInt3 & lastBase = m_lastBase[static_cast<std::size_t>(depth)];
            if (firstNode.node.shift() == lastBase && m_octree.m_cells.size() > 1)
                continue;
            lastBase = firstNode.node.shift();
            std::size_t const first = static_cast<std::size_t>(addNode(firstNode));
            if (m_surrounded[first])
                continue;
            m_surrounded[first] = true;
            std::array<HashedNode, 8> corners;
            std::size_t const nodesPerCell =
                std::min(corners.size(), static_cast<std::size_t>(m_octree.m_policy->getNodesPerCell()));
            for (std::size_t corner = 1; corner < nodesPerCell; ++corner)
                corners[corner] = hashNode(cell, depth, static_cast<int>(corner));
            for (std::size_t corner = 1; corner < nodesPerCell; ++corner)
                prefetchNode(corners[corner]);
            for (std::size_t corner = 1; corner < nodesPerCell; ++corner)
                addNode(corners[corner]);
        }
    }

    HashedNode hashNode(CInt3 const & cell, int depth, int corner) const
    {
        HashedNode result;
        m_octree.makeCellNode(&result.node, depth, cell, corner);
        result.hash = CLatticeHash::hashOf(result.node.shift(), depth);
        m_nodeTable.prefetch(result.hash);
        return result;
    }

    void prefetchNode(HashedNode const & hashed) const
    {
        int const candidate = m_nodeTable.first(hashed.hash);
        if (candidate >= 0)
            __builtin_prefetch(&m_octree.m_nodes[static_cast<std::size_t>(candidate)]);
    }

    int addNode(HashedNode const & hashed)
    {
        std::vector<CTreeNode> & nodes = m_octree.m_nodes;
        int index = m_nodeTable.find(
            hashed.hash, [&](int other) { return nodes[static_cast<std::size_t>(other)] == hashed.node; });
        if (index < 0) {
            if (nodes.size() >= static_cast<std::size_t>(INT_MAX))
                throw std::bad_alloc();
            index = static_cast<int>(nodes.size());
            nodes.push_back(hashed.node);
            m_surrounded.push_back(false);
            m_nodeTable.insert(hashed.hash, index, [&](int other) {
                CTreeNode const & element = nodes[static_cast<std::size_t>(other)];
                return CLatticeHash::hashOf(element.shift(), element.depth());
            });
        }
        return index;
    }

    COctree & m_octree;
    CLatticeHash m_cellTable;
    CLatticeHash m_nodeTable;
    std::vector<bool> m_surrounded; // by node: is it the first node of a cell whose eight nodes all exist
    std::vector<CInt3>
        m_lastBase; // by depth: first node of the cell before, since neighbours in a scan share it
};

COctree::COctree(IInputSamples const * samples, int depth, CProgressCounter * progress, bool useCenter,
                 int detalizationLevel)
    : m_boxMin{0.0, 0.0, 0.0}, m_boxMax{0.0, 0.0, 0.0}, m_depth(depth), m_nodeDepthBegin(0),
      m_nodeDepthEnd(0), m_unit(-1.0), m_samples(samples),
      m_policy(makeTreePolicy(depth, useCenter, detalizationLevel))
{
    m_nodeDepthBegin = m_policy->getNodeDepthBegin();
    m_nodeDepthEnd = m_policy->getNodeDepthEnd();
    buildOctree(progress);
}

COctree::~COctree() = default;

void COctree::buildOctree(CProgressCounter * progress)
{
    int const samplesNumber = m_samples->pointsNumber();
    {
        CPrgCntSubPhase phase(progress, 0, 10, 0, true);
        m_cube = std::make_unique<TreeCube const>(makeTreeCube(*m_samples, *m_policy));
    }
    std::copy_n(m_cube->min, 3, m_boxMin);
    std::copy_n(m_cube->max, 3, m_boxMax);
    m_unit = m_cube->size / m_cube->cellsPerAxis;

    CPrgCntSubPhase phase(progress, 10, 90, 0, true);
    {
        Builder builder(*this);
        m_sampleCells.reserve(static_cast<std::size_t>(std::max(samplesNumber, 0)));
        for (int sample = 0; sample < samplesNumber; ++sample) {
            if (progress != nullptr)
                progress->SetPosFloat(static_cast<double>(sample) / samplesNumber);
            builder.insertPoint(m_cube->cellOf(m_samples->getSampleCoords3(sample)));
        }
    }
    sortNodes();
    sortCells();
}

void COctree::sortNodes()
{
    m_nodeIndex.resize(static_cast<std::size_t>(m_nodeDepthEnd));
    std::vector<std::size_t> counts(static_cast<std::size_t>(m_nodeDepthEnd), 0);
    for (CTreeNode const & node : m_nodes)
        ++counts[static_cast<std::size_t>(node.depth())];
    std::vector<CLatticeIndex::Entry> entries;
    for (int depth = m_nodeDepthBegin; depth < m_nodeDepthEnd; ++depth) {
        entries.clear();
        entries.reserve(counts[static_cast<std::size_t>(depth)]);
        for (std::size_t node = 0; node < m_nodes.size(); ++node) {
            if (m_nodes[node].depth() == depth)
                entries.push_back({m_nodes[node].shift(), static_cast<int>(node)});
        }
        m_nodeIndex[static_cast<std::size_t>(depth)].build(entries);
    }
}

void COctree::sortCells()
{
    std::vector<CLatticeIndex::Entry> entries;
    entries.reserve(m_cells.size());
    for (std::size_t cell = 0; cell < m_cells.size(); ++cell)
        entries.push_back({m_cells[cell], static_cast<int>(cell)});
    m_cellIndex.build(entries);

    std::vector<int> positionOfCell(m_cells.size());
    for (std::size_t position = 0; position < m_cells.size(); ++position)
        positionOfCell[static_cast<std::size_t>(m_cellIndex.payload(static_cast<int>(position)))] =
            static_cast<int>(position);

    m_cellSamplesBegin.assign(m_cells.size() + 1, 0);
    for (int cell : m_sampleCells)
        ++m_cellSamplesBegin[static_cast<std::size_t>(positionOfCell[static_cast<std::size_t>(cell)]) + 1];
    for (std::size_t position = 1; position < m_cellSamplesBegin.size(); ++position)
        m_cellSamplesBegin[position] += m_cellSamplesBegin[position - 1];
    m_cellSamples.resize(m_sampleCells.size());
    std::vector<int> next(m_cellSamplesBegin.begin(), m_cellSamplesBegin.end() - 1);
    for (std::size_t sample = 0; sample < m_sampleCells.size(); ++sample) {
        int const position = positionOfCell[static_cast<std::size_t>(m_sampleCells[sample])];
        m_cellSamples[static_cast<std::size_t>(next[static_cast<std::size_t>(position)]++)] =
            static_cast<int>(sample);
    }
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

CLatticeIndex const & COctree::getNodeIndex(int depth) const
{
    static CLatticeIndex const none;
    if (depth < m_nodeDepthBegin || depth >= m_nodeDepthEnd)
        return none;
    return m_nodeIndex[static_cast<std::size_t>(depth)];
}

} // namespace VolTr

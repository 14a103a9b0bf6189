// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/OctreeIterators.h>

#include <algorithm>
#include <climits>
#include <cmath>

namespace VolTr
{

namespace
{

// Clamps a range of lattice coordinates to those that nodes of the depth can have, each bound on its own side
// only, so that a range outside stays empty.
CLatticeBoxCursor makeNodeCursor(COctree const & octree, CInt3 lo, CInt3 hi, int depth)
{
    if (depth < octree.getNodeDepthBegin() || depth >= octree.getNodeDepthEnd())
        return CLatticeBoxCursor();
    INodesPositioningPolicy const & policy = octree.getPositioningPolicy();
    int const min = policy.getMinNodeCoord(depth);
    int const max = policy.getMaxNodeCoord(depth);
    for (int axis = 0; axis < 3; ++axis) {
        lo.coordMod(axis) = std::max(lo.coord(axis), min);
        hi.coordMod(axis) = std::min(hi.coord(axis), max);
    }
    return CLatticeBoxCursor(&octree.getNodeIndex(depth), lo, hi);
}

CInt3 latticeFloor(COctree const & octree, double const * corner, int ifNaN)
{
    return CInt3(octree.realToLattice(corner[0], 0, ifNaN), octree.realToLattice(corner[1], 1, ifNaN),
                 octree.realToLattice(corner[2], 2, ifNaN));
}

// A box with a NaN corner holds nothing.
int const nothingAbove = 1 << 30;
int const nothingBelow = -(1 << 30);

CInt3 firstCellNode(COctree const & octree, int cell, int depth)
{
    CInt3 const cellOffset = octree.getCellOffset(cell);
    CTreeNode node;
    if (depth >= octree.getNodeDepthBegin() && depth < octree.getNodeDepthEnd())
        octree.makeCellNode(&node, depth, cellOffset, 0);
    return node.shift();
}

} // namespace

COctreeNodeIteratorBase::COctreeNodeIteratorBase(COctree const * octree, CInt3 const & lo, CInt3 const & hi,
                                                 int depth)
    : m_cursor(makeNodeCursor(*octree, lo, hi, depth))
{}

COctreeNodeIteratorBase::~COctreeNodeIteratorBase() = default;

COctreeInBoxNodeIterator::COctreeInBoxNodeIterator(COctree const * octree, CParallelepiped const & box,
                                                   int depth)
    : COctreeNodeIteratorBase(octree, latticeFloor(*octree, box.getMin(), nothingAbove),
                              latticeFloor(*octree, box.getMax(), nothingBelow) + CInt3(1, 1, 1), depth)
{}

COctreeInBoxNodeIterator::~COctreeInBoxNodeIterator() = default;

CInt3 nodeShiftToNeighbor(COctree const * octree, int depth)
{
    int const leafDepth = octree->getLeafCellDepth();
    int const step = depth < 0 || depth > leafDepth ? 0 : 1 << (leafDepth - depth);
    return CInt3(step, step, step);
}

COctreeNeighborNodeIterator::COctreeNeighborNodeIterator(COctree const * octree, int cell, int depth)
    : COctreeNodeIteratorBase(octree, firstCellNode(*octree, cell, depth),
                              firstCellNode(*octree, cell, depth) + nodeShiftToNeighbor(octree, depth), depth)
{}

COctreeNeighborNodeIterator::~COctreeNeighborNodeIterator() = default;

CSamplePointsIteratorInBox::CSamplePointsIteratorInBox(IInputSamples const & samples, COctree const & octree,
                                                       CParallelepiped const & box, int maxSamplesPerCell)
    : m_samples(&samples), m_octree(&octree), m_coords{0.0, 0.0, 0.0}, m_sample(nullptr), m_cellEnd(nullptr),
      m_maxSamplesPerCell(maxSamplesPerCell)
{
    CInt3 lo = latticeFloor(octree, box.getMin(), nothingAbove);
    CInt3 hi = latticeFloor(octree, box.getMax(), nothingBelow);
    INodesPositioningPolicy const & policy = octree.getPositioningPolicy();
    for (int axis = 0; axis < 3; ++axis) {
        lo.coordMod(axis) = std::max(lo.coord(axis), policy.getMinCellCoord());
        hi.coordMod(axis) = std::min(hi.coord(axis), policy.getCellsPerAxis() - 1);
    }
    m_cursor = CLatticeBoxCursor(&octree.getCellIndex(), lo, hi);
    enterCell();
}

CSamplePointsIteratorInBox::~CSamplePointsIteratorInBox() = default;

void CSamplePointsIteratorInBox::next()
{
    if (isFinished())
        return;
    ++m_sample;
    if (m_sample == m_cellEnd) {
        m_cursor.next();
        enterCell();
    } else {
        fetchCoords();
    }
}

// Every leaf cell holds a sample, so a cell in range always yields one.
void CSamplePointsIteratorInBox::enterCell()
{
    if (isFinished())
        return;
    m_sample = m_octree->getSamplesBegin(m_cursor.position());
    m_cellEnd = m_octree->getSamplesEnd(m_cursor.position());
    if (m_maxSamplesPerCell > 0 && m_cellEnd - m_sample > m_maxSamplesPerCell)
        m_cellEnd = m_sample + m_maxSamplesPerCell;
    fetchCoords();
}

void CSamplePointsIteratorInBox::fetchCoords()
{
    float const * coords = m_samples->getSampleCoords3(*m_sample);
    m_coords[0] = coords[0];
    m_coords[1] = coords[1];
    m_coords[2] = coords[2];
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Tree/NodesPositioning.h>

namespace VolTr
{

INodesPositioningPolicy::~INodesPositioningPolicy() = default;

namespace
{

// What both policies share: the octree's depth and the first depth that carries nodes.
class tf_SNodesPositioningBase : public INodesPositioningPolicy
{
public:
    tf_SNodesPositioningBase(int depth, int nodeDepthBegin)
        : m_depth(depth), m_size(1 << depth), m_nodeDepthBegin(nodeDepthBegin)
    {}

    double getBoxMargin() const override { return 0.25 / m_size; }
    int getMinCellCoord() const override { return 0; }
    int getCellsPerAxis() const override { return m_size; }
    int getNodeDepthBegin() const override { return m_nodeDepthBegin; }
    int getNodesPerCell() const override { return 8; }

protected:
    int m_depth;
    int m_size;
    int m_nodeDepthBegin;
};

// Nodes of depth d at multiples of the cell edge of that depth.
class tf_SNodesCornerPositioning final : public tf_SNodesPositioningBase
{
public:
    using tf_SNodesPositioningBase::tf_SNodesPositioningBase;

    int getMinimalDepth() const override { return 1; }
    int getMinNodeCoord(int) const override { return 0; }
    int getMaxNodeCoord(int) const override { return m_size; }
    int getNodeDepthEnd() const override { return m_depth + 1; }
    int getScaleFactor() const override { return 1; }

    void makeCellNode(CTreeNode * node, int depth, CInt3 const * cell, int corner) const override
    {
        int const shift = m_depth - depth;
        node->depthRefMod() = depth;
        node->shiftRefMod() = CInt3(((cell->x() >> shift) + (corner & 1)) << shift,
                                    ((cell->y() >> shift) + (corner >> 1 & 1)) << shift,
                                    ((cell->z() >> shift) + (corner >> 2 & 1)) << shift);
    }
};

// Nodes of depth d at the centres of the cells of that depth, half a cell beyond the cube included. The leaf
// depth itself has no nodes: half its cell is no lattice step.
class tf_SNodesCenterPositioning final : public tf_SNodesPositioningBase
{
public:
    using tf_SNodesPositioningBase::tf_SNodesPositioningBase;

    int getMinimalDepth() const override { return 2; }
    int getMinNodeCoord(int depth) const override { return -(1 << (m_depth - depth - 1)); }
    int getMaxNodeCoord(int depth) const override { return (1 << (m_depth - depth - 1)) + m_size; }
    int getNodeDepthEnd() const override { return m_depth; }
    int getScaleFactor() const override { return 2; }

    void makeCellNode(CTreeNode * node, int depth, CInt3 const * cell, int corner) const override
    {
        int const shift = m_depth - depth;
        int const half = 1 << (shift - 1);
        // The arithmetic shift rounds down, so cells nearer to the border than half a cell get the nodes
        // beyond it.
        node->depthRefMod() = depth;
        node->shiftRefMod() =
            CInt3((((cell->x() - half) >> shift) + (corner & 1)) * (1 << shift) + half,
                  (((cell->y() - half) >> shift) + (corner >> 1 & 1)) * (1 << shift) + half,
                  (((cell->z() - half) >> shift) + (corner >> 2 & 1)) * (1 << shift) + half);
    }
};

} // namespace

std::unique_ptr<INodesPositioningPolicy> makeNodesPositioningPolicy(bool useCenter, int depth,
                                                                    int nodeDepthBegin)
{
    if (useCenter)
        return std::make_unique<tf_SNodesCenterPositioning>(depth, nodeDepthBegin);
    return std::make_unique<tf_SNodesCornerPositioning>(depth, nodeDepthBegin);
}

} // namespace VolTr

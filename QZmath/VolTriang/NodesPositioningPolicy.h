// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Lattice.h>

namespace VolTr
{

/// Decides where the nodes of an octree lie: on the corners of its cells or on their centres. Coordinates are
/// in units of the finest lattice step at every depth. Immutable, safe to read from many threads.
class QZMATH_API INodesPositioningPolicy
{
public:
    virtual ~INodesPositioningPolicy();

    /// The least octree depth that the policy works with.
    virtual int getMinimalDepth() const = 0;
    /// Least and greatest coordinate that a node of a depth below `getNodeDepthEnd()` can have.
    virtual int getMinNodeCoord(int depth) const = 0;
    virtual int getMaxNodeCoord(int depth) const = 0;
    /// Relative enlargement of the bounding box of the samples to the cube of the octree.
    virtual double getBoxMargin() const = 0;
    /// Least cell coordinate, and one past the greatest.
    virtual int getMinCellCoord() const = 0;
    virtual int getCellsPerAxis() const = 0;
    /// Depths that carry nodes: from begin up to, but not including, end.
    virtual int getNodeDepthBegin() const = 0;
    virtual int getNodeDepthEnd() const = 0;
    /// How many nodes surround a cell at each depth.
    virtual int getNodesPerCell() const = 0;
    /// One of the nodes of `depth` around a leaf cell; bits 0, 1, 2 of `corner` step along x, y, z.
    virtual void makeCellNode(CTreeNode * node, int depth, CInt3 const * cell, int corner) const = 0;
    /// Finest lattice steps to the spacing of the deepest nodes.
    virtual int getScaleFactor() const = 0;

protected:
    INodesPositioningPolicy() = default;
    INodesPositioningPolicy(INodesPositioningPolicy const &) = default;
    INodesPositioningPolicy & operator=(INodesPositioningPolicy const &) = default;
};

} // namespace VolTr

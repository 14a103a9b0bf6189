// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/Lattice.h>
#include <QZmath/VolTriang/LatticeIndex.h>
#include <QZmath/VolTriang/NodesPositioningPolicy.h>
#include <QZmath/VolTriang/Parallelepiped.h>

#include <memory>
#include <vector>

class CProgressCounter;

namespace VolTr
{

struct TreeCube;

/// Sorts samples into the cells of a lattice of `1 << depth` steps per axis and derives the nodes on which
/// the functions of the basis stand: at every depth of a range, the eight nodes around each occupied cell.
/// The refinement thus follows the samples.
///
/// Coordinates of cells and nodes are integers in units of the finest lattice step, whatever their depth.
/// Cells and nodes are numbered in the order in which the samples first touch them; node numbers are the
/// unknowns of the linear system. Building sorts the samples, on all threads of
/// `CVescaThreadingTasksHelper::getNumOfPhisicalThread()`, which then ask for coordinates at the same time;
/// it takes 8 bytes a sample beside the 8 that stay, and 60 a cell. Immutable afterwards, and safe to read
/// from many threads; the samples must outlive it.
class QZMATH_API COctree
{
public:
    static constexpr bool DEFAULT_CENTER_USAGE = false;
    /// Deepest tree whose lattice coordinates fit.
    static constexpr int MAX_DEPTH = 29;

    /// \param samples   the cloud
    /// \param depth     of the leaf cells, from 2 with `useCenter`, from 1 without, to `MAX_DEPTH`
    /// \param progress  may be null; moved over its whole range, may throw the user's interruption
    /// \param useCenter nodes stand at cell centres (the deepest at `depth - 1`), else at cell corners
    /// \param detalizationLevel depths above the deepest node depth that carry nodes too; all from 0 when it
    ///                  is negative or there are not so many
    /// \throws std::exception "Incorrect tree depth detected in VolTr::COctree constructor", before any
    ///         sample is read, or a text that names the first sample with a coordinate that is not finite
    COctree(IInputSamples const * samples, int depth, CProgressCounter * progress, bool useCenter,
            int detalizationLevel);
    /// Over a given cube instead of the one around the samples, which are finite and inside; there may be
    /// none. For clouds of which other processes hold the rest.
    COctree(IInputSamples const * samples, TreeCube const & cube, int depth, CProgressCounter * progress,
            bool useCenter, int detalizationLevel);
    virtual ~COctree();
    COctree(COctree const &) = delete;
    COctree & operator=(COctree const &) = delete;

    int getLeafCellDepth() const { return m_depth; }
    /// Depths that carry nodes: from begin up to, but not including, end.
    int getNodeDepthBegin() const { return m_nodeDepthBegin; }
    int getNodeDepthEnd() const { return m_nodeDepthEnd; }
    /// Does only one depth carry nodes?
    bool isUniform() const { return m_nodeDepthEnd - m_nodeDepthBegin < 2; }
    static int getScaleFactor() { return 2; }

    int getNodesNumber() const { return static_cast<int>(m_nodes.size()); }
    int getCellsNumberOnDeepestLevel() const { return static_cast<int>(m_cells.size()); }

    /// Index of the cell of a sample, by the sample's index; `std::out_of_range` for a bad one.
    int getCellByCoordinates(int sample) const { return m_sampleCells.at(static_cast<std::size_t>(sample)); }
    /// Lattice coordinates of a cell; `std::out_of_range` for a bad index.
    CInt3 getCellOffset(int cell) const { return m_cells.at(static_cast<std::size_t>(cell)); }
    /// Box of a leaf cell in model coordinates; `std::out_of_range` for a bad index.
    CParallelepiped getCellBox(int cell) const;
    /// Edge of a cell of a depth, in model units.
    double getCellSize(int depth) const;

    /// Properties of a node by its index (unchecked).
    int getNodeDepth(int node) const { return m_nodes[static_cast<std::size_t>(node)].depth(); }
    CTreeNode const & getNode(int node) const { return m_nodes[static_cast<std::size_t>(node)]; }
    void getNodeOffset(int node, int * out3) const
    {
        CInt3 const & shift = m_nodes[static_cast<std::size_t>(node)].shift();
        out3[0] = shift.x();
        out3[1] = shift.y();
        out3[2] = shift.z();
    }
    /// Place of a node in model coordinates.
    void getNodePosition(int node, double * out3) const
    {
        cellCoordsToReal(out3, m_nodes[static_cast<std::size_t>(node)].shift());
    }
    /// Model coordinates of any lattice point: `coords * unit + boxMin`.
    void cellCoordsToReal(double * out3, CInt3 const & coords) const
    {
        out3[0] = coords.x() * m_unit + m_boxMin[0];
        out3[1] = coords.y() * m_unit + m_boxMin[1];
        out3[2] = coords.z() * m_unit + m_boxMin[2];
    }

    /// The finest lattice step in model units.
    double getUnit() const { return m_unit; }
    /// Model coordinates of the lattice origin, the least corner of the cube.
    double const * getBoxMin() const { return m_boxMin; }
    double const * getBoxMax() const { return m_boxMax; }

    void getBoxCenter(double * out3) const;
    /// The cube of the octree.
    CParallelepiped getCellsBoundaryBox() const;
    /// The box that all possible nodes lie in. With nodes at centres it reaches half a coarsest cell beyond
    /// the cube.
    CParallelepiped getNodesBoundaryBox() const;
    /// The box spanned by the eight nodes of a depth around a cell; `std::out_of_range` for a bad cell.
    CParallelepiped getBoxOnNbrNodes(int cell, int depth) const;
    /// Does the lattice cell of a point hold a sample? False outside the cube.
    bool isInLeafCell(double const * point) const;

    /// One of the eight nodes around a leaf cell, see `INodesPositioningPolicy::makeCellNode`.
    void makeCellNode(CTreeNode * node, int depth, CInt3 const & cell, int corner) const
    {
        m_policy->makeCellNode(node, depth, &cell, corner);
    }
    INodesPositioningPolicy const & getPositioningPolicy() const { return *m_policy; }

    /// Sorted nodes of a depth (payload: node index); empty at depths without nodes.
    CLatticeIndex const & getNodeIndex(int depth) const;
    /// Sorted leaf cells (payload: cell index).
    CLatticeIndex const & getCellIndex() const { return m_cellIndex; }
    /// Indices of the samples in the cell at a position of `getCellIndex()`, ascending: from begin up to end.
    int const * getSamplesBegin(int cellPosition) const
    {
        return m_cellSamples.data() + m_cellSamplesBegin[static_cast<std::size_t>(cellPosition)];
    }
    int const * getSamplesEnd(int cellPosition) const
    {
        return m_cellSamples.data() + m_cellSamplesBegin[static_cast<std::size_t>(cellPosition) + 1];
    }

    /// Gives the memory of the nodes and of their indices back, and that of the cells by samples, which is
    /// more than half of all. What asks for a node, and `getCellByCoordinates`, finds none afterwards.
    void releaseNodes();

    /// Lattice coordinate of `value` on an axis, rounded down, 0 when the cube has no extent there. Saturates
    /// far outside the lattice; NaN gives `ifNaN`.
    int realToLattice(double value, int axis, int ifNaN) const;

private:
    void buildOctree(CProgressCounter * progress);
    void takeCube(TreeCube const & cube);

    class Builder;

    double m_boxMin[3];
    double m_boxMax[3];
    int m_depth;
    int m_nodeDepthBegin;
    int m_nodeDepthEnd;
    double m_unit;
    IInputSamples const * m_samples;
    std::unique_ptr<INodesPositioningPolicy> m_policy;
    std::unique_ptr<TreeCube const> m_cube;
    std::vector<int> m_sampleCells;
    std::vector<CInt3> m_cells;
    CLatticeIndex m_cellIndex;
    std::vector<int> m_cellSamples;
    std::vector<int> m_cellSamplesBegin;
    std::vector<CTreeNode> m_nodes;
    std::vector<CLatticeIndex> m_nodeIndex;
};

} // namespace VolTr

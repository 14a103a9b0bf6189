// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/LatticeIndex.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Parallelepiped.h>

namespace VolTr
{

/// Visits the nodes of one depth whose lattice coordinates lie in a closed range, in the order of x, y, z.
/// Copyable, allocates nothing; the octree must outlive it. A range outside the nodes, and a depth without
/// nodes, yield nothing.
class QZMATH_API COctreeNodeIteratorBase
{
public:
    virtual ~COctreeNodeIteratorBase();
    COctreeNodeIteratorBase(COctreeNodeIteratorBase const &) = default;
    COctreeNodeIteratorBase & operator=(COctreeNodeIteratorBase const &) = default;

    bool isFinished() const { return m_cursor.isFinished(); }
    /// Goes on; does nothing when finished.
    void next()
    {
        if (!m_cursor.isFinished())
            m_cursor.next();
    }
    /// Index of the node, -1 when finished.
    int currentNodeIndex() const { return m_cursor.isFinished() ? -1 : m_cursor.payload(); }
    /// Lattice coordinates of the node. Must not be called when finished.
    CInt3 currentNodeShift() const { return m_cursor.place(); }

protected:
    COctreeNodeIteratorBase(COctree const * octree, CInt3 const & lo, CInt3 const & hi, int depth);

private:
    CLatticeBoxCursor m_cursor;
};

/// The nodes of a depth in a box of model coordinates, widened to whole lattice steps.
class QZMATH_API COctreeInBoxNodeIterator : public COctreeNodeIteratorBase
{
public:
    COctreeInBoxNodeIterator(COctree const * octree, CParallelepiped const & box, int depth);
    ~COctreeInBoxNodeIterator() override;
    COctreeInBoxNodeIterator(COctreeInBoxNodeIterator const &) = default;
    COctreeInBoxNodeIterator & operator=(COctreeInBoxNodeIterator const &) = default;
};

/// Step between neighbouring nodes of a depth: all three components `1 << (leaf depth - depth)`.
QZMATH_API CInt3 nodeShiftToNeighbor(COctree const * octree, int depth);

/// The up to eight nodes of a depth around a cell; `std::out_of_range` for a bad cell index.
class QZMATH_API COctreeNeighborNodeIterator : public COctreeNodeIteratorBase
{
public:
    COctreeNeighborNodeIterator(COctree const * octree, int cell, int depth);
    ~COctreeNeighborNodeIterator() override;
    COctreeNeighborNodeIterator(COctreeNeighborNodeIterator const &) = default;
    COctreeNeighborNodeIterator & operator=(COctreeNeighborNodeIterator const &) = default;
};

/// Visits the samples of the leaf cells that a box touches, cell by cell in the order of x, y, z, in a cell
/// by index. The samples themselves may lie outside the box: the caller tests them. Copyable, allocates
/// nothing; samples and octree must outlive it.
class QZMATH_API CSamplePointsIteratorInBox
{
public:
    /// \param maxSamplesPerCell above 0: no more than that many samples of one cell
    CSamplePointsIteratorInBox(IInputSamples const & samples, COctree const & octree,
                               CParallelepiped const & box, int maxSamplesPerCell);
    virtual ~CSamplePointsIteratorInBox();
    CSamplePointsIteratorInBox(CSamplePointsIteratorInBox const &) = default;
    CSamplePointsIteratorInBox & operator=(CSamplePointsIteratorInBox const &) = default;

    bool isFinished() const { return m_cursor.isFinished(); }
    /// Goes on; does nothing when finished.
    void next();
    /// Coordinates of the sample.
    double const * operator*() const { return m_coords; }
    /// Index of the sample, -1 when finished.
    int currentSampleIndex() const { return isFinished() ? -1 : *m_sample; }
    /// Lattice coordinates of the sample's cell. Must not be called when finished.
    CInt3 currCellIntCoord() const { return m_cursor.place(); }

private:
    void enterCell();
    void fetchCoords();

    IInputSamples const * m_samples;
    COctree const * m_octree;
    double m_coords[3];
    CLatticeBoxCursor m_cursor;
    int const * m_sample;
    int const * m_cellEnd;
    int m_maxSamplesPerCell;
};

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Export.h>
#include <QZmath/Distributed/Ranks/Partition.h>
#include <QZmath/VolTriang/Stages/CubeFrame.h>

#include <array>
#include <functional>
#include <vector>

namespace QZmath::Distributed
{

/// Calls visit(first, last) for ranges of ranks that together have all the units of a box, and maybe some
/// ranks between them that have none. Takes steps by the borders between ranks that cross the box, not by its
/// units.
QZMATH_DISTRIBUTED_API void forRanksIn(Partition const & partition, std::array<int, 3> const & low,
                                       std::array<int, 3> const & high,
                                       std::function<void(int, int)> const & visit);

/// The ranks that have units of boxes, for boxes in a row that mostly have the same. Serves one thread.
class RanksNear
{
public:
    explicit RanksNear(Partition const & partition) : m_partition(partition) {}
    /// Each once, ascending, and maybe some without units; valid until the next call.
    std::vector<int> const & of(std::array<int, 3> const & low, std::array<int, 3> const & high);

private:
    Partition const & m_partition;
    std::array<int, 3> m_low{-1, -1, -1};
    std::array<int, 3> m_high{-1, -1, -1};
    std::vector<int> m_ranks;
};

/// Which rank has which cube of the polygoniser: that of the unit in which the cube's least corner lies. The
/// same on all ranks. Remembers where it was asked last, so an object serves one thread.
class CubeOwners
{
public:
    /// \param boxMin   least corner of the octree's cube
    /// \param unitEdge of the partition's units, in model units
    CubeOwners(Partition const & partition, VolTr::CubeFrame const & frame, double const * boxMin,
               double unitEdge);

    int ownerOf(VolTr::CubeIndex const & cube) const;
    /// Are the cube and all those that touch it in one unit?
    bool isInsideUnit(VolTr::CubeIndex const & cube) const;
    /// Has a rank cubes of a closed box? May be true where it has none.
    bool mayHave(int rank, VolTr::CubeIndex const & low, VolTr::CubeIndex const & high) const;

    Partition const & partition() const { return m_partition; }
    /// The unit at a place; outside of the octree's cube the nearest.
    std::array<int, 3> unitAt(double const * place) const;

private:
    int unitOf(int index, std::size_t axis) const;
    int nearestUnit(double place, std::size_t axis) const;

    Partition const & m_partition;
    VolTr::CubeFrame const m_frame;
    std::array<double, 3> m_boxMin;
    double const m_perUnit;
    mutable std::array<int, 3> m_lastUnit{-1, -1, -1};
    mutable int m_lastOwner = 0;
};

} // namespace QZmath::Distributed

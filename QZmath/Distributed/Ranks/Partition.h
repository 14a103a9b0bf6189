// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Export.h>

#include <array>
#include <cstdint>
#include <vector>

namespace QZmath::Distributed
{

/// Which rank owns which part of space.
///
/// The octree's cube is cut into units, the cells of one depth, in the order of a Morton curve; each rank
/// owns a range of the curve, its territory. What lies outside the cube belongs to the owner of the nearest
/// unit. A cell or a brick of a depth belongs to the owner of the unit that it lies in; depths whose cells
/// are larger than a unit have no owners.
///
/// The same on all ranks.
class QZMATH_DISTRIBUTED_API Partition
{
public:
    /// Deepest units whose Morton keys fit.
    static constexpr int greatestDepth = 20;

    /// \param firstKeys of the ranks but the first one, ascending; equal ones leave ranks without territory
    Partition(int unitDepth, std::vector<std::uint64_t> firstKeys);

    int unitDepth() const { return m_unitDepth; }
    int ranks() const { return static_cast<int>(m_firstKeys.size()) + 1; }
    std::vector<std::uint64_t> const & firstKeys() const { return m_firstKeys; }

    /// Place of a unit on the curve; coordinates outside the cube are those of the nearest unit.
    std::uint64_t keyOf(std::array<int, 3> const & unit) const;
    /// The unit at a place of the curve.
    static std::array<int, 3> unitOf(std::uint64_t key);
    int ownerOfKey(std::uint64_t key) const;
    int ownerOfUnit(std::array<int, 3> const & unit) const { return ownerOfKey(keyOf(unit)); }
    /// The owner of a cell of a depth that is at least that of the units.
    int ownerOfCell(int depth, std::array<int, 3> const & cell) const
    {
        int const shift = depth - m_unitDepth;
        return ownerOfUnit({cell[0] >> shift, cell[1] >> shift, cell[2] >> shift});
    }

    /// Splits a curve of weighted keys among ranks, so that the weights differ little.
    /// \param keys    ascending, distinct
    /// \param weights of the keys, at least 0
    static std::vector<std::uint64_t> split(std::vector<std::uint64_t> const & keys,
                                            std::vector<double> const & weights, int ranks);

private:
    int m_unitDepth;
    std::vector<std::uint64_t> m_firstKeys;
};

} // namespace QZmath::Distributed

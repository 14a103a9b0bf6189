// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/OctreeFuncEvalHelper.h>

#include <algorithm>

namespace VolTr
{

COctreeFuncEvalHelper::COctreeFuncEvalHelper(int regionsNumber, double regionHalfSize)
    : m_regionHalfSize(regionHalfSize), m_regions(static_cast<std::size_t>(std::max(regionsNumber, 0)))
{}

COctreeFuncEvalHelper::~COctreeFuncEvalHelper() = default;
COctreeFuncEvalHelper::COctreeFuncEvalHelper(COctreeFuncEvalHelper const &) = default;
COctreeFuncEvalHelper & COctreeFuncEvalHelper::operator=(COctreeFuncEvalHelper const &) = default;

int COctreeFuncEvalHelper::getCashedRegionindex(double const * const point)
{
    for (std::size_t index = 0; index < m_regions.size(); ++index) {
        Region & region = m_regions[index];
        if (region.hits < 0)
            continue;
        double const * min = region.box.getMin();
        double const * max = region.box.getMax();
        if (point[0] >= min[0] && point[0] <= max[0] && point[1] >= min[1] && point[1] <= max[1] &&
            point[2] >= min[2] && point[2] <= max[2]) {
            // The counter stays where it is at the end of its range.
            if (region.hits < (1 << 30))
                ++region.hits;
            return static_cast<int>(index);
        }
    }
    return -1;
}

int COctreeFuncEvalHelper::recordNewRegion(double const * const point)
{
    if (m_regions.empty())
        return -1;
    // An unused region has the counter -1, below any in use.
    auto const slot = std::min_element(m_regions.begin(), m_regions.end(),
                                       [](Region const & a, Region const & b) { return a.hits < b.hits; });
    for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
        slot->box.getMinMod()[axis] = point[axis] - m_regionHalfSize;
        slot->box.getMaxMod()[axis] = point[axis] + m_regionHalfSize;
    }
    slot->hits = 0;
    slot->indexes.clear();
    slot->coefficients.clear();
    slot->plan.basis = nullptr;
    return static_cast<int>(slot - m_regions.begin());
}

void COctreeFuncEvalHelper::enlargeRegion(CParallelepiped * box) const
{
    for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
        box->getMinMod()[axis] -= m_regionHalfSize;
        box->getMaxMod()[axis] += m_regionHalfSize;
    }
}

void COctreeFuncEvalHelper::recordIndexInfo(int region, int basisIndex, double coefficient)
{
    if (region < 0)
        return;
    m_regions[static_cast<std::size_t>(region)].indexes.push_back(basisIndex);
    m_regions[static_cast<std::size_t>(region)].coefficients.push_back(coefficient);
}

} // namespace VolTr

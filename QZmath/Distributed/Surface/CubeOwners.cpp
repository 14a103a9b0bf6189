// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/CubeOwners.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace QZmath::Distributed
{

namespace
{

// A cell of the partition's hierarchy: 2^height units along an axis.
class RankFinder
{
public:
    RankFinder(Partition const & partition, std::array<int, 3> const & low, std::array<int, 3> const & high,
               std::function<void(int, int)> const & visit)
        : m_partition(partition), m_low(low), m_high(high), m_visit(visit)
    {}

    void descend(std::uint64_t firstKey, int height) const
    {
        std::array<int, 3> const least = Partition::unitOf(firstKey);
        bool isCovered = true;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            int const greatest = least[axis] + (1 << height) - 1;
            if (least[axis] > m_high[axis] || greatest < m_low[axis])
                return;
            isCovered = isCovered && least[axis] >= m_low[axis] && greatest <= m_high[axis];
        }
        std::uint64_t const keys = std::uint64_t{1} << 3 * height;
        int const first = m_partition.ownerOfKey(firstKey);
        int const last = m_partition.ownerOfKey(firstKey + keys - 1);
        if (isCovered || first == last) {
            m_visit(first, last);
            return;
        }
        for (std::uint64_t child = 0; child < 8; ++child)
            descend(firstKey + child * (keys / 8), height - 1);
    }

private:
    Partition const & m_partition;
    std::array<int, 3> const m_low;
    std::array<int, 3> const m_high;
    std::function<void(int, int)> const & m_visit;
};

} // namespace

void forRanksIn(Partition const & partition, std::array<int, 3> const & low, std::array<int, 3> const & high,
                std::function<void(int, int)> const & visit)
{
    RankFinder(partition, low, high, visit).descend(0, partition.unitDepth());
}

std::vector<int> const & RanksNear::of(std::array<int, 3> const & low, std::array<int, 3> const & high)
{
    if (low == m_low && high == m_high)
        return m_ranks;
    m_low = low;
    m_high = high;
    m_ranks.clear();
    forRanksIn(m_partition, low, high, [&](int first, int last) {
        for (int rank = first; rank <= last; ++rank)
            m_ranks.push_back(rank);
    });
    std::sort(m_ranks.begin(), m_ranks.end());
    m_ranks.erase(std::unique(m_ranks.begin(), m_ranks.end()), m_ranks.end());
    return m_ranks;
}

CubeOwners::CubeOwners(Partition const & partition, VolTr::CubeFrame const & frame, double const * boxMin,
                       double unitEdge)
    : m_partition(partition), m_frame(frame), m_boxMin{boxMin[0], boxMin[1], boxMin[2]},
      m_perUnit(1.0 / unitEdge)
{}

int CubeOwners::nearestUnit(double place, std::size_t axis) const
{
    double const unit = std::floor((place - m_boxMin[axis]) * m_perUnit);
    return static_cast<int>(std::clamp(unit, 0.0, static_cast<double>((1 << m_partition.unitDepth()) - 1)));
}

std::array<int, 3> CubeOwners::unitAt(double const * place) const
{
    return {nearestUnit(place[0], 0), nearestUnit(place[1], 1), nearestUnit(place[2], 2)};
}

// Indices grow against the axes, so the least corner is the one with the next index.
int CubeOwners::unitOf(int index, std::size_t axis) const
{
    return nearestUnit(m_frame.start[axis] - (index + 0.5) * m_frame.edge, axis);
}

int CubeOwners::ownerOf(VolTr::CubeIndex const & cube) const
{
    std::array<int, 3> const unit = {unitOf(cube[0], 0), unitOf(cube[1], 1), unitOf(cube[2], 2)};
    if (unit != m_lastUnit) {
        m_lastUnit = unit;
        m_lastOwner = m_partition.ownerOfUnit(unit);
    }
    return m_lastOwner;
}

bool CubeOwners::isInsideUnit(VolTr::CubeIndex const & cube) const
{
    bool isInside = true;
    for (std::size_t axis = 0; axis < 3; ++axis)
        isInside = isInside && unitOf(cube[axis] - 1, axis) == unitOf(cube[axis] + 1, axis);
    return isInside;
}

bool CubeOwners::mayHave(int rank, VolTr::CubeIndex const & low, VolTr::CubeIndex const & high) const
{
    std::array<int, 3> least;
    std::array<int, 3> greatest;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        least[axis] = unitOf(high[axis], axis);
        greatest[axis] = unitOf(low[axis], axis);
    }
    bool isFound = false;
    forRanksIn(m_partition, least, greatest,
               [&](int first, int last) { isFound = isFound || (first <= rank && rank <= last); });
    return isFound;
}

} // namespace QZmath::Distributed

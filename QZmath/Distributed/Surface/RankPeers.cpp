// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/RankPeers.h>

#include <algorithm>
#include <limits>

namespace QZmath::Distributed
{

RankPeers::RankPeers(Steps & steps, RankCloud const & cloud, CubeOwners const & owners, double leafCell)
    : m_steps(steps), m_cloud(cloud), m_owners(owners),
      m_reach(steps.ranks().size() > 1 ? cloud.margins.surface * leafCell
                                       : std::numeric_limits<double>::infinity()) // one has all
{
    std::int64_t const own =
        std::count_if(cloud.isOwn.begin(), cloud.isOwn.end(), [](std::uint8_t mark) { return mark != 0; });
    m_samples = steps.ranks().sum(own);
    m_before = steps.ranks().sumBefore(own);
}

void RankPeers::sum(double * values, std::size_t count)
{
    m_steps.meet();
    m_steps.ranks().sum(values, count);
}

std::vector<char> RankPeers::gather(std::vector<char> const & own)
{
    m_steps.meet();
    return m_steps.ranks().gatherToAll(own);
}

bool RankPeers::isNear(double const * place, double distance) const
{
    double low[3];
    double high[3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        low[axis] = place[axis] - distance;
        high[axis] = place[axis] + distance;
    }
    int const self = m_steps.ranks().rank();
    bool isFound = false;
    forRanksIn(m_owners.partition(), m_owners.unitAt(low), m_owners.unitAt(high),
               [&](int first, int last) { isFound = isFound || (first <= self && self <= last); });
    return isFound;
}

bool RankPeers::isForOthers(Box const & box) const
{
    int const self = m_steps.ranks().rank();
    bool isFound = false;
    forRanksIn(m_owners.partition(), m_owners.unitAt(box.low.data()), m_owners.unitAt(box.high.data()),
               [&](int first, int last) { isFound = isFound || first != self || last != self; });
    return isFound;
}

std::vector<char> RankPeers::deal(std::vector<char> records, std::size_t size, std::vector<Box> const & boxes,
                                  bool isForItself)
{
    std::vector<std::vector<char>> toRanks(static_cast<std::size_t>(m_steps.ranks().size()));
    RanksNear near(m_owners.partition());
    for (std::size_t n = 0; n < boxes.size(); ++n) {
        auto const record = records.begin() + static_cast<std::ptrdiff_t>(n * size);
        for (int const rank :
             near.of(m_owners.unitAt(boxes[n].low.data()), m_owners.unitAt(boxes[n].high.data()))) {
            if (rank == m_steps.ranks().rank() && !isForItself)
                continue;
            std::vector<char> & target = toRanks[static_cast<std::size_t>(rank)];
            target.insert(target.end(), record, record + static_cast<std::ptrdiff_t>(size));
        }
    }
    records = std::vector<char>();
    m_steps.meet();
    return m_steps.ranks().exchange(toRanks);
}

} // namespace QZmath::Distributed

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/RankPeers.h>

#include <algorithm>
#include <limits>

namespace QZmath::Distributed
{

RankPeers::RankPeers(Steps & steps, RankCloud const & cloud, CubeOwners const & owners, double reach)
    : m_steps(steps), m_cloud(cloud), m_owners(owners),
      m_reach(steps.ranks().size() > 1 ? reach : std::numeric_limits<double>::infinity()) // one has all
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

std::vector<char> RankPeers::deal(std::vector<char> const & records, std::size_t size,
                                  std::vector<Box> const & boxes)
{
    std::vector<std::vector<char>> toRanks(static_cast<std::size_t>(m_steps.ranks().size()));
    RanksNear near(m_owners.partition());
    for (std::size_t n = 0; n < boxes.size(); ++n) {
        auto const record = records.begin() + static_cast<std::ptrdiff_t>(n * size);
        for (int const rank :
             near.of(m_owners.unitAt(boxes[n].low.data()), m_owners.unitAt(boxes[n].high.data()))) {
            std::vector<char> & target = toRanks[static_cast<std::size_t>(rank)];
            target.insert(target.end(), record, record + static_cast<std::ptrdiff_t>(size));
        }
    }
    m_steps.meet();
    return m_steps.ranks().exchange(toRanks);
}

} // namespace QZmath::Distributed

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/SharedVertices.h>

#include <algorithm>
#include <utility>

namespace QZmath::Distributed
{

SharedVertices::SharedVertices(Communicator const & ranks, std::vector<BorderVertex> border,
                               std::size_t vertices)
    : m_ranks(&ranks)
{
    std::size_t const size = static_cast<std::size_t>(ranks.size());
    std::vector<std::vector<BorderVertex::Key>> toRanks(size);
    ranks.together([&] {
        m_isForeign.assign(vertices, 0);
        std::sort(border.begin(), border.end(),
                  [](BorderVertex const & a, BorderVertex const & b) { return a.key < b.key; });
        for (BorderVertex const & own : border) {
            for (std::int32_t const other : own.others) {
                if (other != BorderVertex::none)
                    toRanks[static_cast<std::size_t>(other)].push_back(own.key);
            }
        }
    });
    // Everybody asks all who may have the vertex, so everybody learns of all who have it.
    std::vector<std::size_t> counts;
    std::vector<BorderVertex::Key> const asked = ranks.exchange(toRanks, &counts);
    ranks.together([&] {
        std::vector<std::array<bool, 3>> isShared(border.size(), {false, false, false});
        std::size_t next = 0;
        for (std::size_t rank = 0; rank < size; ++rank) {
            std::size_t at = 0; // both lists ascend
            for (std::size_t n = 0; n < counts[rank]; ++n, ++next) {
                while (at < border.size() && border[at].key < asked[next])
                    ++at;
                if (at == border.size() || border[at].key != asked[next])
                    continue;
                auto const & others = border[at].others;
                auto const place = std::find(others.begin(), others.end(), static_cast<std::int32_t>(rank));
                if (place != others.end())
                    isShared[at][static_cast<std::size_t>(place - others.begin())] = true;
            }
        }
        m_given.resize(size);
        m_taken.resize(size);
        for (std::size_t at = 0; at < border.size(); ++at) {
            BorderVertex & own = border[at];
            std::int32_t owner = ranks.rank();
            for (std::size_t n = 0; n < own.others.size(); ++n) {
                if (!isShared[at][n])
                    own.others[n] = BorderVertex::none;
                else
                    owner = std::min(owner, own.others[n]);
            }
            std::sort(own.others.rbegin(), own.others.rend());
            if (own.others[0] == BorderVertex::none)
                continue;
            m_isForeign[static_cast<std::size_t>(own.vertex)] = owner != ranks.rank();
            if (owner != ranks.rank()) {
                m_taken[static_cast<std::size_t>(owner)].push_back(own.vertex);
            } else {
                for (std::int32_t const other : own.others) {
                    if (other != BorderVertex::none)
                        m_given[static_cast<std::size_t>(other)].push_back(own.vertex);
                }
            }
            m_border.push_back(own);
        }
    });
}

} // namespace QZmath::Distributed

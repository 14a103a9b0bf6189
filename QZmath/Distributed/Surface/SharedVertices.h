// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath::Distributed
{

/// A vertex of this rank's part that others may have as well.
struct BorderVertex
{
    using Key = std::array<std::int64_t, 2>;
    static constexpr int none = -1;

    Key key; ///< the same on all ranks that have the vertex
    std::int32_t vertex;
    std::array<std::int32_t, 3> others{none, none, none}; ///< ranks that may have it; of those, all know it
};

/// Which vertices of the parts of a mesh are the same, and whose they are: each belongs to the lowest rank
/// that has it. All members but `isOwn` and `border` are collective.
class SharedVertices
{
public:
    SharedVertices() = default;
    /// \param border   one entry a vertex, in any order
    /// \param vertices of this rank's part
    SharedVertices(Communicator const & ranks, std::vector<BorderVertex> border, std::size_t vertices);

    bool isOwn(std::size_t vertex) const { return m_isForeign[vertex] == 0; }
    /// The vertices that at least one other rank has, by key, and those ranks.
    std::vector<BorderVertex> const & border() const { return m_border; }

    /// Gives all ranks the owner's values.
    template <class Value>
    void spread(std::vector<Value> & values, std::size_t width = 1) const
    {
        if (m_ranks == nullptr)
            return;
        std::vector<Value> const arriving = exchange(values, width, m_given);
        std::size_t next = 0;
        for (std::vector<std::int32_t> const & vertices : m_taken) {
            for (std::int32_t const vertex : vertices) {
                for (std::size_t n = 0; n < width; ++n)
                    values[static_cast<std::size_t>(vertex) * width + n] = arriving[next++];
            }
        }
    }

    /// Adds a mark to the vertices that another rank has marked.
    void unite(std::vector<char> & marks) const
    {
        if (m_ranks == nullptr)
            return;
        std::vector<char> const arriving = exchange(marks, 1, m_taken);
        std::size_t next = 0;
        for (std::vector<std::int32_t> const & vertices : m_given) {
            for (std::int32_t const vertex : vertices) {
                char & mark = marks[static_cast<std::size_t>(vertex)];
                mark = mark != 0 || arriving[next] != 0;
                ++next;
            }
        }
        spread(marks);
    }

private:
    using Lists = std::vector<std::vector<std::int32_t>>; // vertices by the other rank, by key

    template <class Value>
    std::vector<Value> exchange(std::vector<Value> const & values, std::size_t width,
                                Lists const & lists) const
    {
        std::vector<std::vector<Value>> toRanks(lists.size());
        for (std::size_t rank = 0; rank < lists.size(); ++rank) {
            toRanks[rank].reserve(lists[rank].size() * width);
            for (std::int32_t const vertex : lists[rank]) {
                auto const from =
                    values.begin() + static_cast<std::ptrdiff_t>(vertex) * static_cast<std::ptrdiff_t>(width);
                toRanks[rank].insert(toRanks[rank].end(), from, from + static_cast<std::ptrdiff_t>(width));
            }
        }
        return m_ranks->exchange(toRanks);
    }

    Communicator const * m_ranks = nullptr;
    std::vector<BorderVertex> m_border;
    std::vector<char> m_isForeign;
    Lists m_given; // own ones that the other has
    Lists m_taken; // those that the other owns
};

} // namespace QZmath::Distributed

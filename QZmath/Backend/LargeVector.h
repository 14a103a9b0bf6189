// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Parallel.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace QzBackend
{

/// Asks the system for large pages in memory that nobody has touched yet, when it is much: they come several
/// times as fast, are given back in no time, and leave scattered reading fewer misses.
QZMATH_SISTER_API void adviseLargePages(void * memory, std::size_t bytes);

/// Has the system give the pages of memory that nobody has touched yet, by all threads of the team. Writes
/// zero to some bytes.
QZMATH_SISTER_API void touchPages(LoopTeam & team, void * memory, std::size_t bytes);

/// `values.reserve(count)` for a vector that grows slowly.
template <class Value>
void reserveLarge(std::vector<Value> & values, std::size_t count)
{
    if (count <= values.capacity())
        return;
    values.reserve(count);
    adviseLargePages(values.data() + values.size(), (count - values.size()) * sizeof(Value));
}

/// `values.assign(count, value)`, open to interruption, and where the memory is new, with its pages from all
/// threads: one thread gets 500 MB a second from the system, but fills 10 GB a second that are there. The
/// elements before are gone when the memory is new.
template <class Value>
void assignLarge(LoopTeam & team, std::vector<Value> & values, std::size_t count,
                 Value const & value = Value())
{
    std::size_t const perTurn = std::max<std::size_t>((std::size_t{4} << 20) / sizeof(Value), 1);
    values.clear();
    if (values.capacity() < count) {
        values = std::vector<Value>();
        reserveLarge(values, count);
        touchPages(team, values.data(), count * sizeof(Value));
    }
    while (values.size() < count) {
        team.serve();
        values.resize(values.size() + std::min(perTurn, count - values.size()), value);
    }
}

} // namespace QzBackend

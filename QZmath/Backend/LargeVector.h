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

/// `values.assign(count, value)`, open to interruption, and where the memory is new, with its pages from all
/// threads: the system takes many times as long to give a page as a thread takes to fill it. The elements
/// before are gone when the memory is new.
template <class Value>
void assignLarge(LoopTeam & team, std::vector<Value> & values, std::size_t count,
                 Value const & value = Value())
{
    std::size_t const perTurn = std::max<std::size_t>((std::size_t{4} << 20) / sizeof(Value), 1);
    values.clear();
    if (values.capacity() < count) {
        values = std::vector<Value>();
        values.reserve(count);
        adviseLargePages(values.data(), count * sizeof(Value));
        touchPages(team, values.data(), count * sizeof(Value));
    }
    while (values.size() < count) {
        team.serve();
        values.resize(values.size() + std::min(perTurn, count - values.size()), value);
    }
}

} // namespace QzBackend

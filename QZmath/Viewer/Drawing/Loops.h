// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <atomic>

namespace QZmath::Viewing
{

/// Calls body(index) for 0 <= index < count, each once, on all threads and in any order.
template <class Body>
void forEach(int count, Body const & body)
{
    std::atomic<int> next{0};
    VsUt::callTogether(std::clamp(count, 1, CVescaThreadingTasksHelper::getNumOfPhisicalThread()), [&](bool) {
        for (int index = next++; index < count; index = next++)
            body(index);
    });
}

/// The same over pieces of a large range: body(begin, end).
template <class Body>
void forEachPiece(std::size_t count, std::size_t piece, Body const & body)
{
    forEach(static_cast<int>((count + piece - 1) / piece), [&](int index) {
        std::size_t const begin = static_cast<std::size_t>(index) * piece;
        body(begin, std::min(count, begin + piece));
    });
}

} // namespace QZmath::Viewing

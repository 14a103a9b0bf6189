// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Parallel.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace QzBackend
{

/// Calls body(begin, end) for pieces of 0 .. count - 1, which are the same for any number of threads. `until`
/// is that of `LoopTeam::forEach`.
template <class Body>
void forRanges(LoopTeam & team, std::size_t count, std::size_t perPiece, Body const & body, double until = 0)
{
    team.forEach(
        static_cast<int>((count + perPiece - 1) / perPiece),
        [&](int piece) {
            std::size_t const begin = static_cast<std::size_t>(piece) * perPiece;
            body(begin, std::min(count, begin + perPiece));
        },
        until);
}

/// Ranges of many like items, cut into pieces that take a millisecond or so. Where pieces begin depends on
/// the range only, so what is summed piece by piece has the same bits for any number of threads.
constexpr int itemsPerPiece = 1 << 15;

inline int piecesOf(int count) { return count / itemsPerPiece + (count % itemsPerPiece != 0 ? 1 : 0); }

/// Calls body(begin, end) for the pieces of 0 to count - 1, in `int`.
template <class Body>
void forPieces(int count, LoopTeam & team, Body const & body, double until = 0)
{
    forRanges(
        team, static_cast<std::size_t>(count), itemsPerPiece,
        [&](std::size_t begin, std::size_t end) { body(static_cast<int>(begin), static_cast<int>(end)); },
        until);
}

/// The same as a job of its own, on the threads of the tasks helper. `progress` may be null.
template <class Body>
void forPieces(int count, CProgressCounter * progress, Body const & body)
{
    int const threads = std::clamp(piecesOf(count), 1, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    LoopTeam::run(threads, progress, [&](LoopTeam & team) { forPieces(count, team, body); });
}

/// What find(begin, end) gives for each piece, in their order.
template <class Find>
auto findInPieces(int count, CProgressCounter * progress, Find const & find)
{
    std::vector<decltype(find(0, 0))> parts(static_cast<std::size_t>(piecesOf(count)));
    forPieces(count, progress, [&](int begin, int end) {
        parts[static_cast<std::size_t>(begin / itemsPerPiece)] = find(begin, end);
    });
    return parts;
}

} // namespace QzBackend

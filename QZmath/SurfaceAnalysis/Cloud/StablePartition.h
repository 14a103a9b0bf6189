// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/ParallelPieces.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace REmath::Detail
{

/// Orders the items 0 to count - 1 by their class, in each by themselves. The return value is where the
/// classes begin, and the end.
/// \param classOf classOf(item), 0 to classes - 1; on any thread, twice an item
/// \param put     put(item, place), on any thread
template <class ClassOf, class Put>
std::vector<int> partitionStably(int count, int classes, ClassOf const & classOf, Put const & put,
                                 QzBackend::LoopTeam & team)
{
    using namespace QzBackend;
    auto const width = static_cast<std::size_t>(classes);
    std::vector<int> places(width * static_cast<std::size_t>(piecesOf(count)), 0); // next, by piece and class
    auto const placesOf = [&](int begin) {
        return places.data() + width * static_cast<std::size_t>(begin / itemsPerPiece);
    };
    forPieces(count, team, [&](int begin, int end) {
        int * const sizes = placesOf(begin);
        for (int item = begin; item < end; ++item)
            ++sizes[classOf(item)];
    });
    std::vector<int> begins;
    int place = 0;
    for (std::size_t ofClass = 0; ofClass < width; ++ofClass) {
        begins.push_back(place);
        for (std::size_t at = ofClass; at < places.size(); at += width)
            place += std::exchange(places[at], place);
    }
    begins.push_back(place);
    forPieces(count, team, [&](int begin, int end) {
        int * const next = placesOf(begin);
        for (int item = begin; item < end; ++item)
            put(item, next[classOf(item)]++);
    });
    return begins;
}

} // namespace REmath::Detail

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/ParallelPieces.h>
#include <QZmath/Backend/RawArray.h>

#include <cstddef>
#include <vector>

namespace QZmath::Stages
{

using QzBackend::forRanges;
using QzBackend::RawArray;

/// The sum of term(index), taken piece by piece and then over the pieces in order: the same bits for any
/// number of threads.
template <class Term>
double sumOver(QzBackend::LoopTeam & team, std::size_t count, Term const & term)
{
    std::size_t const perPiece = 4096;
    std::vector<double> sums((count + perPiece - 1) / perPiece, 0.0);
    forRanges(team, count, perPiece, [&](std::size_t begin, std::size_t end) {
        double sum = 0;
        for (std::size_t index = begin; index < end; ++index)
            sum += term(index);
        sums[begin / perPiece] = sum;
    });
    double total = 0;
    for (double const sum : sums)
        total += sum;
    return total;
}

/// The indices up to `count` of which isWanted(index) is true, ascending. Called once for each.
template <class Index, class IsWanted>
std::vector<Index> indicesWhere(QzBackend::LoopTeam & team, std::size_t count, IsWanted const & isWanted,
                                double until = 0)
{
    std::size_t const perPiece = 4096;
    std::vector<std::vector<Index>> found((count + perPiece - 1) / perPiece);
    forRanges(
        team, count, perPiece,
        [&](std::size_t begin, std::size_t end) {
            for (std::size_t index = begin; index < end; ++index) {
                if (isWanted(index))
                    found[begin / perPiece].push_back(static_cast<Index>(index));
            }
        },
        until);
    std::size_t total = 0;
    for (std::vector<Index> const & some : found)
        total += some.size();
    std::vector<Index> all;
    all.reserve(total);
    for (std::vector<Index> const & some : found)
        all.insert(all.end(), some.begin(), some.end());
    return all;
}

} // namespace QZmath::Stages

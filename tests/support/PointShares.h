// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Formats/PointShare.h>
#include <QZmath/Files/JoinedClouds.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace qz_test
{

/// Reads a file in ranges as several processes would, and settles what they found of each other.
/// \param bounds of the ranges, ascending, from 0
inline QZmath::PointCloud readInShares(std::string const & path, std::vector<std::uint64_t> const & bounds,
                                       QZmath::ReadOptions const & options = {})
{
    using QZmath::PointShare;
    std::vector<PointShare> shares;
    std::vector<QZmath::PointCloud> clouds;
    float greatest = 0;
    unsigned marks = 0;
    std::int64_t points = 0, promised = 0;
    for (std::size_t i = 0; i + 1 < bounds.size(); ++i) {
        PointShare share;
        share.begin = bounds[i];
        share.end = bounds[i + 1];
        clouds.push_back(QZmath::readPointShare(path, options, share, nullptr));
        shares.push_back(share);
        greatest = std::max(greatest, share.foundColor);
        marks |= share.foundMarks;
        points += static_cast<std::int64_t>(clouds.back().size());
        promised =
            share.promise == PointShare::Promise::vertices ? share.promised : promised + share.promised;
    }
    QZmath::JoinedClouds joined;
    std::int64_t before = 0;
    for (std::size_t i = 0; i < shares.size(); ++i) {
        if (QZmath::isDecidedByOthers(shares[i], greatest, marks)) {
            shares[i].isSettled = true;
            shares[i].greatestColor = greatest;
            shares[i].columnMarks = marks;
            clouds[i] = QZmath::readPointShare(path, options, shares[i], nullptr);
        }
        auto const size = static_cast<std::int64_t>(clouds[i].size());
        QZmath::settleShare(path, shares[i], clouds[i], before, points, promised);
        before += size;
        if (clouds[i].size() > 0)
            joined.add(std::move(clouds[i]), "");
    }
    return joined.take();
}

} // namespace qz_test

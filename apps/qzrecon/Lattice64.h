// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace qz_recon
{

/// A cell of a cubic lattice packed into 64 bits, 21 for each axis, so that the order of the keys is that of
/// x, y, z and a step along an axis is the addition of a constant. Coordinates from -1 to 2^21 - 2.
using CellKey = std::uint64_t;

CellKey const st_stepOnAxis[3] = {CellKey(1) << 42, CellKey(1) << 21, CellKey(1)};
std::int64_t const st_greatestCell = (std::int64_t(1) << 21) - 3;

inline CellKey cellKey(std::int64_t x, std::int64_t y, std::int64_t z)
{
    auto const shifted = [](std::int64_t coord) { return static_cast<CellKey>(coord + 1); };
    return shifted(x) << 42 | shifted(y) << 21 | shifted(z);
}

inline std::int64_t cellCoord(CellKey key, int axis)
{
    return static_cast<std::int64_t>(key >> (42 - 21 * axis) & ((CellKey(1) << 21) - 1)) - 1;
}

inline void sortUnique(std::vector<CellKey> & keys)
{
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
}

inline bool containsCell(std::vector<CellKey> const & sortedKeys, CellKey key)
{
    return std::binary_search(sortedKeys.begin(), sortedKeys.end(), key);
}

} // namespace qz_recon

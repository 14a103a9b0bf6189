// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/SparsePattern.h>

namespace QzBackend
{

bool isSoundPattern(SparsePattern const & pattern, int nonZeros, bool upperOnly)
{
    int const base = pattern.indexBase;
    if (pattern.size < 0 || nonZeros < 0 || (base != 0 && base != 1))
        return false;
    if (pattern.size == 0)
        return nonZeros == 0;
    if (!pattern.rowIndex || (nonZeros > 0 && !pattern.columns))
        return false;
    if (pattern.rowIndex[0] != base || std::int64_t(pattern.rowIndex[pattern.size]) - base != nonZeros)
        return false;
    for (int row = 0; row < pattern.size; ++row) {
        std::int64_t const begin = std::int64_t(pattern.rowIndex[row]) - base;
        std::int64_t const end = std::int64_t(pattern.rowIndex[row + 1]) - base;
        if (begin > end || end > nonZeros)
            return false;
        std::int64_t previous = upperOnly ? row - 1 : -1;
        for (std::int64_t position = begin; position < end; ++position) {
            std::int64_t const column = std::int64_t(pattern.columns[position]) - base;
            if (column <= previous)
                return false;
            previous = column;
        }
        if (previous >= pattern.size)
            return false;
    }
    return true;
}

} // namespace QzBackend

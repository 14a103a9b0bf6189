// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace QzBackend
{

/// The places of the elements of a square matrix in compressed rows, as its owner stores them: nothing is
/// copied.
struct SparsePattern
{
    int size = 0;
    int const * rowIndex = nullptr; ///< size + 1 entries, from `indexBase`
    int const * columns = nullptr;  ///< from `indexBase`, ascending within a row
    int indexBase = 0;

    int rowBegin(int row) const { return rowIndex[row] - indexBase; }
    int rowEnd(int row) const { return rowIndex[row + 1] - indexBase; }
    int column(int position) const { return columns[position] - indexBase; }
    int elements() const { return size > 0 ? rowEnd(size - 1) : 0; }

    /// Calls `visit(row, column, position)` for the elements of `row` on and above the diagonal.
    template <class Visitor>
    void visitUpper(int row, Visitor visit) const
    {
        for (int position = rowBegin(row), end = rowEnd(row); position < end; ++position)
            if (int const other = column(position); other >= row)
                visit(row, other, position);
    }
};

/// Are the arrays those of a matrix with `nonZeros` elements: a row index that starts at the base, never
/// falls and ends behind the last element, columns in range that ascend strictly within each row, and with
/// `upperOnly` none left of the diagonal? The arrays must have the lengths that `size` and `nonZeros` imply.
bool isSoundPattern(SparsePattern const & pattern, int nonZeros, bool upperOnly);

} // namespace QzBackend

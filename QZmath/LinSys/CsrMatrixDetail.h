// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/LinSys/CsrMatrix.h>

#include <algorithm>

namespace REmath
{
namespace Detail
{

/// Number of rows for an algorithm: a matrix that was never given a size has none.
template <class T>
int csrRowCount(ICsrMatrix<T> const & matrix)
{
    return std::max(0, matrix.getMatrixSize());
}

/// Can the rows `first` to `last`-1, which lie within the matrix, be read without leaving the arrays?
/// Unfilled entries of the row index fail this. O(rows), no element is touched.
template <class T>
bool areRowsReadable(ICsrMatrix<T> const & matrix, int first, int last)
{
    int const * const rowBegin = matrix.getCsrPointerB();
    int const * const rowEnd = matrix.getCsrPointerE();
    std::int64_t const base = matrix.getIndexBase();
    std::int64_t const end = base + matrix.getNonZeroValuesNumber();
    if (base != CSR_INDEX_BASE_0 && base != CSR_INDEX_BASE_1)
        return false;
    if (first < last && (rowBegin == nullptr || rowEnd == nullptr))
        return false;
    bool readable = true;
    for (int row = first; row < last; ++row)
        readable &= base <= rowBegin[row] && rowBegin[row] <= rowEnd[row] && rowEnd[row] <= end;
    return readable;
}

/// Can the whole matrix be read? True for one without rows.
template <class T>
bool isRowIndexComplete(ICsrMatrix<T> const & matrix)
{
    return areRowsReadable(matrix, 0, csrRowCount(matrix));
}

} // namespace Detail
} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/SparseVector.h>

#include <cstddef>
#include <vector>

/// What a row of `CVPLSstorage` can be. A row adapter has no data; it names the type of a row and tells how
/// to fill one from an array, multiply it with a vector and read an element. Each exists for `float` and
/// `double`. A default-constructed row stands for zeros.
///
/// - `assignRowByArray(row, size, array)`: makes the row hold the `size` elements of `array`. O(size), no
///   allocation but that of the row.
/// - `scalarProduct(row, size, vector)`: the product with a vector of `size` elements; what the row has
///   beyond them does not count.
/// - `getElement(row, column)`: one element of the row.
namespace REmath
{

/// Rows that hold every element: for small dense systems.
template <class T>
class QZMATH_API CStdVectorAsVPLSstorageRow
{
public:
    using RowType = std::vector<T>;

    static void assignRowByArray(RowType * row, int size, T const * array);
    static T scalarProduct(RowType const & row, int size, T const * vector);
    /// 0 outside the row.
    static T getElement(RowType const & row, int column);
};

/// Rows that hold the span from the first to the last non-zero element, zeros in between included: for banded
/// systems. A product runs over the span alone.
///
/// `getElement` counts columns from the beginning of the span on the wrong side, see there: systems with such
/// rows are for the cores that work by products, which of the ready ones is `CLinSysSolverCoreBicgstab`.
template <class T>
class QZMATH_API CShiftedVectorAsVPLstorageRow
{
public:
    struct SparceCoeffRow
    {
        int firstPosition = 0;
        std::vector<T> values;
    };
    using RowType = SparceCoeffRow;

    /// An array of zeros gives an empty row.
    static void assignRowByArray(RowType * row, int size, T const * array);
    static T scalarProduct(RowType const & row, int size, T const * vector);
    /// The element of the span at index `firstPosition + column`, which is the one at column
    /// 2 * `firstPosition` + `column` of the row; 0 when there is none. It is the element at `column` only if
    /// the span begins at 0.
    static T getElement(RowType const & row, int column);
};

/// Rows that hold the non-zero elements.
template <class T>
class QZMATH_API CSparseVectorAsVPLSstorageRow
{
public:
    using RowType = CSparseVectorTmpl<T>;

    static void assignRowByArray(RowType * row, int size, T const * array);
    static T scalarProduct(RowType const & row, int size, T const * vector);
    static T getElement(RowType const & row, int column);
};

extern template class CStdVectorAsVPLSstorageRow<float>;
extern template class CStdVectorAsVPLSstorageRow<double>;
extern template class CShiftedVectorAsVPLstorageRow<float>;
extern template class CShiftedVectorAsVPLstorageRow<double>;
extern template class CSparseVectorAsVPLSstorageRow<float>;
extern template class CSparseVectorAsVPLSstorageRow<double>;

} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/VPLSstorageRows.h>

#include <QZmath/Backend/Blas.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <cstdint>

namespace REmath
{

using VsUt::asIndex;

namespace
{

template <class T>
T elementAt(std::vector<T> const & values, std::int64_t index)
{
    return index >= 0 && index < static_cast<std::int64_t>(values.size()) ? values[asIndex(index)] : T(0);
}

// The product of a span of a row that begins at `first` with the part of the vector that lies along it.
template <class T>
T spanProduct(std::vector<T> const & span, int first, int size, T const * vector)
{
    std::int64_t const length = std::min(static_cast<std::int64_t>(span.size()), std::int64_t{size} - first);
    return length > 0 && first >= 0 ? QzBackend::dot(asIndex(length), span.data(), vector + first) : T(0);
}

} // namespace

template <class T>
void CStdVectorAsVPLSstorageRow<T>::assignRowByArray(RowType * row, int size, T const * array)
{
    row->assign(array, array + std::max(0, size));
}

template <class T>
T CStdVectorAsVPLSstorageRow<T>::scalarProduct(RowType const & row, int size, T const * vector)
{
    return spanProduct(row, 0, size, vector);
}

template <class T>
T CStdVectorAsVPLSstorageRow<T>::getElement(RowType const & row, int column)
{
    return elementAt(row, column);
}

template <class T>
void CShiftedVectorAsVPLstorageRow<T>::assignRowByArray(RowType * row, int size, T const * array)
{
    int first = 0;
    int end = std::max(0, size);
    while (first < end && array[first] == T(0))
        ++first;
    while (end > first && array[end - 1] == T(0))
        --end;
    row->firstPosition = first < end ? first : 0;
    row->values.assign(array + first, array + end);
}

template <class T>
T CShiftedVectorAsVPLstorageRow<T>::scalarProduct(RowType const & row, int size, T const * vector)
{
    return spanProduct(row.values, row.firstPosition, size, vector);
}

template <class T>
T CShiftedVectorAsVPLstorageRow<T>::getElement(RowType const & row, int column)
{
    return elementAt(row.values, std::int64_t{row.firstPosition} + column);
}

template <class T>
void CSparseVectorAsVPLSstorageRow<T>::assignRowByArray(RowType * row, int size, T const * array)
{
    row->AssignByVector(size, array);
}

template <class T>
T CSparseVectorAsVPLSstorageRow<T>::scalarProduct(RowType const & row, int size, T const * vector)
{
    T sum = 0;
    for (int k = 0; k < row.GetNOfNonZeroElements(); ++k) {
        T value;
        int position;
        row.GetNonZeroElementAndPos(k, value, position);
        if (position >= 0 && position < size)
            sum += value * vector[position];
    }
    return sum;
}

template <class T>
T CSparseVectorAsVPLSstorageRow<T>::getElement(RowType const & row, int column)
{
    return row.GetElement(column);
}

template class CStdVectorAsVPLSstorageRow<float>;
template class CStdVectorAsVPLSstorageRow<double>;
template class CShiftedVectorAsVPLstorageRow<float>;
template class CShiftedVectorAsVPLstorageRow<double>;
template class CSparseVectorAsVPLSstorageRow<float>;
template class CSparseVectorAsVPLSstorageRow<double>;

} // namespace REmath

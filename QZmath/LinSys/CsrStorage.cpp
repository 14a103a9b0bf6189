// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrStorage.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace REmath
{

template <class T>
CCSRSstorage<T>::CCSRSstorage(CCSRSstorage const & other)
    : CLinSysVariableManager<T>(other), CCSRSquareMatrix<T>(other), m_indexBase(other.m_indexBase),
      m_symmetric(other.m_symmetric), m_expectedElementsPerLine(other.m_expectedElementsPerLine),
      m_reservedElements(other.m_reservedElements)
{}

template <class T>
CCSRSstorage<T> & CCSRSstorage<T>::operator=(CCSRSstorage const & other)
{
    m_filler.reset();
    CLinSysVariableManager<T>::operator=(other);
    CCSRSquareMatrix<T>::operator=(other);
    m_indexBase = other.m_indexBase;
    m_symmetric = other.m_symmetric;
    m_expectedElementsPerLine = other.m_expectedElementsPerLine;
    m_reservedElements = other.m_reservedElements;
    return *this;
}

template <class T>
CCSRSstorage<T> * CCSRSstorage<T>::Copy() const
{
    return new CCSRSstorage(*this);
}

template <class T>
T CCSRSstorage<T>::normalizeSystemMatrix()
{
    int const count = this->getCsrValuesSize();
    if (count == 0)
        return T(0);
    T * const values = this->getCsrValuesMod();
    T const magnitude = std::abs(values[count - 1]);
    if (magnitude > T(0)) {
        T const factor = T(1) / magnitude;
        for (int k = 0; k < count; ++k)
            values[k] *= factor;
    }
    return magnitude;
}

template <class T>
void CCSRSstorage<T>::addEquationFreePartNoAliases(int row, int count, T const * values, int const * columns)
{
    initFiller();
    if (this->IsSpoiled())
        return;
    if (row >= this->GetFreeVariablesNumber() || count < 1 || values == nullptr || columns == nullptr) {
        this->Spoil();
        return;
    }
    if (!isIndexBaseKept() || !m_filler->pushRow(row, count, values, columns, m_symmetric))
        this->Spoil();
    if (row + 1 == this->GetFreeVariablesNumber())
        m_filler->setCompleted();
    this->imitateAddEquation(row);
}

template <class T>
void CCSRSstorage<T>::reserveMatrixMemory(std::int64_t count)
{
    m_reservedElements = std::max(m_reservedElements, count);
    if (this->GetFreeVariablesNumber() > 0) {
        initFiller();
        reserveAsAsked();
    }
}

// Where the stored elements of a row lie; false for a row that is not there or has not been begun.
template <class T>
bool CCSRSstorage<T>::getRowRange(int row, int & begin, int & end) const
{
    if (row < 0 || row >= this->getMatrixSize())
        return false;
    int const base = CCSRSquareMatrix<T>::getIndexBase();
    begin = this->getRowIndex()[row] - base;
    end = this->getRowIndex()[row + 1] - base;
    return begin >= 0 && begin <= end && end <= std::min(this->getCsrValuesSize(), this->getCsrColumnsSize());
}

template <class T>
T CCSRSstorage<T>::onScalarProductByMatrixRow(int row, int, T const * vector) const
{
    T sum = 0;
    int begin = 0;
    int end = 0;
    if (getRowRange(row, begin, end)) {
        int const base = CCSRSquareMatrix<T>::getIndexBase();
        T const * const values = this->getCsrValues();
        int const * const columns = this->getCsrColumns();
        for (int k = begin; k < end; ++k)
            sum += values[k] * vector[columns[k] - base];
    }
    if (m_symmetric) {
        int const columnsEnd = std::min(row, this->getMatrixSize());
        for (int column = 0; column < columnsEnd; ++column)
            if (vector[column] != T(0))
                sum += vector[column] * onGetFreeVertCoeff(column, row);
    }
    return sum;
}

template <class T>
T CCSRSstorage<T>::onGetFreeVertCoeff(int row, int column) const
{
    if (m_symmetric && column < row)
        std::swap(row, column);
    int begin = 0;
    int end = 0;
    if (!getRowRange(row, begin, end))
        return T(0);
    int const * const columns = this->getCsrColumns();
    std::int64_t const sought = std::int64_t{column} + CCSRSquareMatrix<T>::getIndexBase();
    int const * const found = std::lower_bound(columns + begin, columns + end, sought);
    return found != columns + end && *found == sought ? this->getCsrValues()[found - columns] : T(0);
}

template <class T>
bool CCSRSstorage<T>::onIsSymmetric() const
{
    return m_symmetric;
}

template <class T>
void CCSRSstorage<T>::onSetSymmetric(bool symmetric)
{
    m_symmetric = symmetric;
}

// Rows that were made by a reservation, without an equation, are made anew for all vertices by the first
// one.
template <class T>
void CCSRSstorage<T>::onDefineFreeVertex(int vertex)
{
    if (this->GetEquationsNumber() == 0)
        m_filler.reset();
    CLinSysVariableManager<T>::onDefineFreeVertex(vertex);
}

template <class T>
void CCSRSstorage<T>::onAddEquationFreePart(CVertexLinearCombination<T> const & equation, int row)
{
    initFiller();
    if (this->IsSpoiled())
        return;
    if (row >= this->GetFreeVariablesNumber()) {
        this->Spoil();
        return;
    }
    bool hasFreeTerm = false;
    CLinearCombIterator<T> const end = equation.end();
    for (CLinearCombIterator<T> term = equation.begin(); term != end; ++term) {
        int const column = this->GetFreeVariablesIndex(term->GetVertexIdx());
        if (column < 0)
            continue;
        hasFreeTerm = true;
        if (m_symmetric && column < row)
            continue;
        if (!isIndexBaseKept() || !m_filler->pushByRawNextNonZeroElement(
                                      row + m_indexBase, column + m_indexBase, term->GetCoeff())) {
            this->Spoil();
            break;
        }
    }
    if (!hasFreeTerm)
        this->Spoil();
    if (row + 1 == this->GetFreeVariablesNumber())
        m_filler->setCompleted();
}

template <class T>
bool CCSRSstorage<T>::areFreeVariablesDefined() const
{
    return m_filler != nullptr;
}

// The matrix has the base that it was made with, which a base set later, or one that is none, differs from.
template <class T>
bool CCSRSstorage<T>::isIndexBaseKept() const
{
    return m_indexBase == CCSRSquareMatrix<T>::getIndexBase();
}

template <class T>
void CCSRSstorage<T>::initFiller()
{
    if (m_filler != nullptr)
        return;
    int const freeCount = this->GetFreeVariablesNumber();
    m_filler = std::make_unique<CCSRSquareMatrixFiller<T>>(this, freeCount, -1, m_indexBase, m_symmetric);
    if (m_expectedElementsPerLine > 0) {
        std::int64_t const expected = std::int64_t{m_expectedElementsPerLine} * freeCount;
        m_filler->reserveMemory(std::min(expected, largestElementsNumber()));
    }
    reserveAsAsked();
}

template <class T>
void CCSRSstorage<T>::reserveAsAsked()
{
    CCSRSquareMatrix<T>::reserveMemory(std::min(m_reservedElements, largestElementsNumber()));
}

// No estimate may take more memory than the full matrix.
template <class T>
std::int64_t CCSRSstorage<T>::largestElementsNumber() const
{
    std::int64_t const rows = std::max(0, this->getMatrixSize());
    return this->isUpperTriangleOnlyStored() ? rows * (rows + 1) / 2 : rows * rows;
}

template class CCSRSstorage<float>;
template class CCSRSstorage<double>;

} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/VPLSstorage.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <cstddef>

namespace REmath
{

using VsUt::asIndex;

template <class T, template <class> class Row>
CVPLSstorage<T, Row> * CVPLSstorage<T, Row>::Copy() const
{
    return new CVPLSstorage(*this);
}

template <class T, template <class> class Row>
void CVPLSstorage<T, Row>::AllocateMatrix()
{
    if (this->IsSpoiled() || IsMatrixAllocated())
        return;
    std::size_t const freeCount = asIndex(this->GetFreeVariablesNumber());
    m_scratchRow.assign(freeCount, T(0));
    m_rows.resize(freeCount);
}

template <class T, template <class> class Row>
T CVPLSstorage<T, Row>::onScalarProductByMatrixRow(int row, int size, T const * vector) const
{
    return hasRow(row) ? Row<T>::scalarProduct(m_rows[asIndex(row)], size, vector) : T(0);
}

template <class T, template <class> class Row>
T CVPLSstorage<T, Row>::onGetFreeVertCoeff(int row, int column) const
{
    return hasRow(row) ? Row<T>::getElement(m_rows[asIndex(row)], column) : T(0);
}

template <class T, template <class> class Row>
bool CVPLSstorage<T, Row>::onIsSymmetric() const
{
    return m_symmetric;
}

template <class T, template <class> class Row>
void CVPLSstorage<T, Row>::onDefineFixedVertex(int vertex)
{
    if (isClosedByCaller()) {
        this->Spoil();
        return;
    }
    CLinSysVariableManager<T>::onDefineFixedVertex(vertex);
}

template <class T, template <class> class Row>
void CVPLSstorage<T, Row>::onDefineFreeVertex(int vertex)
{
    if (isClosedByCaller()) {
        this->Spoil();
        return;
    }
    CLinSysVariableManager<T>::onDefineFreeVertex(vertex);
}

template <class T, template <class> class Row>
void CVPLSstorage<T, Row>::onSetSymmetric(bool symmetric)
{
    m_symmetric = symmetric;
}

template <class T, template <class> class Row>
void CVPLSstorage<T, Row>::onAddEquationFreePart(CVertexLinearCombination<T> const & equation, int row)
{
    AllocateMatrix();
    if (this->IsSpoiled())
        return;
    // A free vertex that came after the rows were made has no place in them.
    if (!hasRow(row) || m_rows.size() != asIndex(this->GetFreeVariablesNumber())) {
        this->Spoil();
        return;
    }
    std::fill(m_scratchRow.begin(), m_scratchRow.end(), T(0));
    bool hasFreeTerm = false;
    CLinearCombIterator<T> const end = equation.end();
    for (CLinearCombIterator<T> term = equation.begin(); term != end; ++term) {
        int const column = this->GetFreeVariablesIndex(term->GetVertexIdx());
        if (column >= 0) {
            m_scratchRow[asIndex(column)] = term->GetCoeff();
            hasFreeTerm = true;
        }
    }
    if (hasFreeTerm)
        Row<T>::assignRowByArray(&m_rows[asIndex(row)], static_cast<int>(m_rows.size()), m_scratchRow.data());
    else
        this->Spoil();
}

template <class T, template <class> class Row>
bool CVPLSstorage<T, Row>::areFreeVariablesDefined() const
{
    return IsMatrixAllocated();
}

// The rows were made by a call, not by an equation. After an equation the base class decides about further
// vertices: it takes them as long as there are no fixed coefficients.
template <class T, template <class> class Row>
bool CVPLSstorage<T, Row>::isClosedByCaller() const
{
    return IsMatrixAllocated() && this->GetEquationsNumber() == 0;
}

template class CVPLSstorage<float, CStdVectorAsVPLSstorageRow>;
template class CVPLSstorage<double, CStdVectorAsVPLSstorageRow>;
template class CVPLSstorage<float, CShiftedVectorAsVPLstorageRow>;
template class CVPLSstorage<double, CShiftedVectorAsVPLstorageRow>;
template class CVPLSstorage<float, CSparseVectorAsVPLSstorageRow>;
template class CVPLSstorage<double, CSparseVectorAsVPLSstorageRow>;

} // namespace REmath

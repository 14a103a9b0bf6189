// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/LinSysVariableManager.h>

#include <cstdint>
#include <memory>

namespace REmath
{

/// A system storage that is a compressed-row matrix at the same time, so that a solver takes the free matrix
/// without a copy. Exists for `float` and `double`.
///
/// Equations must bring their free terms in ascending order of free indices. As terms come in ascending order
/// of vertices, free vertices have to be defined in ascending order; anything else spoils the system. When
/// the system is declared symmetric, terms below the diagonal are left out.
///
/// Storage for the free matrix is made with the first equation, for the free vertices defined by then. A copy
/// has the matrix of its original but takes no equation after it: the first equation added to a copy clears
/// its matrix.
template <class T>
class QZMATH_API CCSRSstorage : public CLinSysVariableManager<T>, public CCSRSquareMatrix<T>
{
public:
    /// An empty system: index base 1, not symmetric.
    CCSRSstorage() = default;
    CCSRSstorage(CCSRSstorage const & other);
    CCSRSstorage & operator=(CCSRSstorage const & other);
    CCSRSstorage * Copy() const override;

    /// How many elements per row memory is reserved for with the first equation; nothing when below 1.
    void setExpectedElementsPerLine(int expectedElements) { m_expectedElementsPerLine = expectedElements; }
    int getExpectedElementsPerLine() const { return m_expectedElementsPerLine; }

    /// The index base that the matrix is made with, 0 or 1. A change after the first equation makes the next
    /// one fail. The base of a matrix that exists is what `ICsrMatrix::getIndexBase` gives.
    int getIndexBase() const { return m_indexBase; }
    void setIndexBase(int indexBase) { m_indexBase = indexBase; }

    /// Scales the stored values by the inverse of the magnitude of the last one, and gives that magnitude, 0
    /// for an empty matrix. The last element, not the largest, sets the scale; no scaling when it is 0 or not
    /// a number.
    T normalizeSystemMatrix();

    /// Adds an equation by its free terms: `count` coefficients and their free indices, which ascend
    /// strictly. It becomes row `row`, which must be the number of equations so far. Fixed coefficients come
    /// through `SetFixedVertCoeff`. Elements below the diagonal are left out when the system is symmetric. An
    /// index out of order or out of range spoils the system; the elements in front of it stay stored. A few
    /// nanoseconds per element when memory was reserved.
    void addEquationFreePartNoAliases(int row, int count, T const * values, int const * columns);

    /// Makes the storage for the free matrix and room for `count` elements in it, never less than was asked
    /// for before. Takes effect at once for the free vertices that are defined; for those that are not, with
    /// the first equation. Throws `std::bad_alloc` when memory is short.
    void reserveMatrixMemory(std::int64_t count);

private:
    T onScalarProductByMatrixRow(int row, int size, T const * vector) const override;
    T onGetFreeVertCoeff(int row, int column) const override;
    bool onIsSymmetric() const override;
    void onSetSymmetric(bool symmetric) override;
    void onDefineFreeVertex(int vertex) override;
    void onAddEquationFreePart(CVertexLinearCombination<T> const & equation, int row) override;
    bool areFreeVariablesDefined() const override;

    void initFiller();
    void reserveAsAsked();
    bool isIndexBaseKept() const;
    std::int64_t largestElementsNumber() const;
    bool getRowRange(int row, int & begin, int & end) const;

    int m_indexBase = 1;
    std::unique_ptr<CCSRSquareMatrixFiller<T>> m_filler;
    bool m_symmetric = false;
    int m_expectedElementsPerLine = 0;
    std::int64_t m_reservedElements = 0;
};

extern template class CCSRSstorage<float>;
extern template class CCSRSstorage<double>;

} // namespace REmath

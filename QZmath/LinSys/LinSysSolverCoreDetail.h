// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Blas.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/CsrMatrixDetail.h>
#include <QZsys/IndexDetail.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace REmath
{
namespace Detail
{

/// The matrix that the system itself is, as a storage of compressed rows is one; null for any other system.
template <class T>
ICsrMatrix<T> const * asCsr(ILinearSystemReadOnly<T> const & system)
{
    return dynamic_cast<ICsrMatrix<T> const *>(&system);
}

/// The matrix that the system is. For a system that is none, `copy` becomes its matrix with that index base,
/// which takes n^2 look-ups and may throw, see `LinearSystem2CsrMatrix`.
template <class T>
ICsrMatrix<T> const & asCsrOrCopy(ILinearSystemReadOnly<T> const & system, int indexBaseOfCopy,
                                  std::optional<CCSRSquareMatrix<T>> & copy)
{
    if (ICsrMatrix<T> const * const matrix = asCsr(system))
        return *matrix;
    return copy.emplace(LinearSystem2CsrMatrix<T>(system, indexBaseOfCopy, false));
}

/// Is every element of the matrix within the matrix, so that products can be formed? One pass over the
/// columns.
template <class T>
bool isMatrixUsable(ICsrMatrix<T> const & matrix)
{
    if (!isRowIndexComplete(matrix))
        return false;
    std::int64_t const base = matrix.getIndexBase();
    int const size = csrRowCount(matrix);
    int const * const columns = matrix.getCsrColumns();
    bool usable = true;
    for (int row = 0; row < size; ++row)
        for (std::int64_t position = matrix.getCsrPointerB()[row] - base;
             position < matrix.getCsrPointerE()[row] - base; ++position)
            usable &= columns[position] >= base && columns[position] < base + size;
    return usable;
}

/// How many products the next right part will take, judged by the iterations of this one.
inline int expectedAfter(int iterations)
{
    return static_cast<int>(
        std::min(iterations * 1.5 + 1.0, static_cast<double>(std::numeric_limits<int>::max())));
}

/// Reports the products of an iterative solution: how many there were among how many expected.
class IterationProgress
{
public:
    IterationProgress(CProgressCounter * progress, int expected) : m_progress(progress), m_expected(expected)
    {}

    void countProduct()
    {
        if (m_calls < std::numeric_limits<int>::max())
            ++m_calls;
        if (m_progress)
            m_progress->SetPosFloat(static_cast<double>(m_calls) / m_expected);
    }

private:
    CProgressCounter * m_progress;
    int m_expected;
    int m_calls = 0;
};

/// |A x - b| / |b|, or |A x - b| if b is zero. One product.
template <class T>
T relativeResidual(ICsrMatrix<T> const & matrix, T const * solution, T const * rightPart)
{
    std::size_t const size = VsUt::asIndex(csrRowCount(matrix));
    std::vector<T> residual(size);
    MatrixMultVector<T>(csrRowCount(matrix), residual.data(), matrix, solution);
    QzBackend::axpy(size, T(-1), rightPart, residual.data());
    double const errorSquare = QzBackend::dot(size, residual.data(), residual.data());
    double const square = QzBackend::dot(size, rightPart, rightPart);
    return static_cast<T>(square > 0 ? std::sqrt(errorSquare) / std::sqrt(square) : std::sqrt(errorSquare));
}

} // namespace Detail
} // namespace REmath

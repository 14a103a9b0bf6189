// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

#include <QZmath/LinSys/Bicgstab.h>
#include <QZmath/LinSys/LinSysFailureDetail.h>
#include <QZmath/LinSys/LinSysSolverCoreDetail.h>
#include <QZsys/Progress.h>

#include <optional>
#include <vector>

namespace REmath
{
namespace
{

template <class T>
struct ProductContext
{
    ICsrMatrix<T> const & matrix;
    int size;
    Detail::IterationProgress progress;
};

template <class T>
void multiplyMatrix(void * context, T const * in, T * out)
{
    auto & product = *static_cast<ProductContext<T> *>(context);
    MatrixMultVector<T>(product.size, out, product.matrix, in);
    product.progress.countProduct();
}

} // namespace

template <class T>
CLinSysSolverSparseMKL<T>::CLinSysSolverSparseMKL(T eps, int maxIterations)
    : m_eps(eps), m_maxIterations(maxIterations)
{}

template <class T>
int CLinSysSolverSparseMKL<T>::firstExpectedIterations() const
{
    return m_maxIterations >= 1 ? m_maxIterations : 1000;
}

template <class T>
bool CLinSysSolverSparseMKL<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                              IVertexPosInformer<T> const ** informers,
                                              IEqSysResultReciever<T> ** recievers,
                                              CProgressCounter * progress)
{
    this->m_report = {};
    int const size = system.GetEquationsNumber();
    std::optional<CCSRSquareMatrix<T>> copy;
    // A system without equations may have a matrix that was not begun.
    ICsrMatrix<T> const & matrix =
        size == 0 ? copy.emplace() : Detail::asCsrOrCopy(system, CSR_INDEX_BASE_0, copy);
    if (Detail::csrRowCount(matrix) != size || !Detail::isMatrixUsable(matrix)) {
        this->setFailure(Detail::whyUnusable(system, matrix));
        return false;
    }

    int expectedIterations = firstExpectedIterations();
    std::vector<T> rightPart(static_cast<std::size_t>(size)), solution(static_cast<std::size_t>(size));
    for (int part = 0; part < nRightParts; ++part) {
        CPrgCntSubPhase const phase(progress, static_cast<double>(part) / nRightParts, 1.0 / nRightParts, 1,
                                    true);
        system.SetSingleRightPart(rightPart.data(), *informers[part]);
        solution = rightPart;
        int const iterations = internalSolveForExplicitMatrix(solution.data(), matrix, rightPart.data(),
                                                              progress, expectedIterations);
        expectedIterations = Detail::expectedAfter(iterations);
        this->m_report.iterationsUsed += iterations;
        if (m_maxIterations > 0 && iterations == m_maxIterations)
            this->m_report.noteStopped(Detail::relativeResidual(matrix, solution.data(), rightPart.data()),
                                       m_eps);
        // A residual that is not a number ends the iteration too.
        if (iterations < 0 || this->m_report.isLimitReached ||
            !Detail::areFinite(solution.data(), solution.size()))
            this->setFailure(LinSysFailure::notConverged);
        system.SetSingleSolution(solution.data(), *recievers[part]);
    }
    return true;
}

template <class T>
int CLinSysSolverSparseMKL<T>::solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix,
                                                      T const * rightPart, CProgressCounter * progress)
{
    int iterations = -1;
    this->noteFailure([&] {
        if (!Detail::isMatrixUsable(matrix)) {
            this->setFailure(Detail::isRowIndexComplete(matrix) ? LinSysFailure::malformed
                                                                : LinSysFailure::incomplete);
            return false;
        }
        iterations =
            internalSolveForExplicitMatrix(solution, matrix, rightPart, progress, firstExpectedIterations());
        if (iterations < 0)
            this->setFailure(LinSysFailure::notConverged);
        return iterations >= 0;
    });
    return iterations;
}

template <class T>
int CLinSysSolverSparseMKL<T>::internalSolveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix,
                                                              T const * rightPart,
                                                              CProgressCounter * progress,
                                                              int expectedIterations)
{
    int const size = Detail::csrRowCount(matrix);
    ProductContext<T> context{matrix, size, {progress, expectedIterations}};
    return bicgstab(size, &multiplyMatrix<T>, &context, rightPart, solution, m_eps, m_maxIterations);
}

template class CLinSysSolverSparseMKL<float>;
template class CLinSysSolverSparseMKL<double>;
template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverSparseMKL<float>>;
template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverSparseMKL<double>>;

} // namespace REmath

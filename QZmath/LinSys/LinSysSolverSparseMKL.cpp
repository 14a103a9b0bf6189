// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

#include <QZmath/LinSys/Bicgstab.h>
#include <QZmath/LinSys/CsrMatrixDetail.h>
#include <QZmath/LinSys/IterativeSolveDetail.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace REmath
{

namespace
{

template <class T>
struct MatrixProducts
{
    ICsrMatrix<T> const & matrix;
    int size;
    Detail::ProductProgress progress;

    static void multiply(void * context, T const * in, T * out)
    {
        MatrixProducts & self = *static_cast<MatrixProducts *>(context);
        MatrixMultVector(self.size, out, self.matrix, in);
        self.progress.afterProduct();
    }
};

} // namespace

template <>
float const CLinSysSolverSparseMKL<float>::st_DefaultBicgStabEps = 1e-6f;
template <>
double const CLinSysSolverSparseMKL<double>::st_DefaultBicgStabEps = static_cast<double>(1e-6f);

template <class T>
CLinSysSolverSparseMKL<T>::CLinSysSolverSparseMKL(T eps, int maxIterations)
    : m_eps(eps), m_maxIterations(maxIterations), m_iterationsUsed(0), m_limitReached(false),
      m_relativeResidual(0)
{}

template <class T>
CLinSysSolverSparseMKL<T>::~CLinSysSolverSparseMKL() = default;

template <class T>
int CLinSysSolverSparseMKL<T>::firstExpectedIterations() const
{
    return m_maxIterations >= 1 ? m_maxIterations : Detail::expectedIterations;
}

template <class T>
bool CLinSysSolverSparseMKL<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                              IVertexPosInformer<T> const ** informers,
                                              IEqSysResultReciever<T> ** recievers,
                                              CProgressCounter * progress)
{
    m_iterationsUsed = 0;
    m_limitReached = false;
    m_relativeResidual = T(0);
    std::optional<CCSRSquareMatrix<T>> converted;
    auto const * matrix = dynamic_cast<ICsrMatrix<T> const *>(&system);
    if (matrix == nullptr)
        matrix = &converted.emplace(LinearSystem2CsrMatrix(system, 0, false));
    int const equations = system.GetEquationsNumber();
    if (equations == 0)
        return true;
    if (Detail::csrRowCount(*matrix) != equations || !Detail::isRowIndexComplete(*matrix))
        return false;

    int expected = firstExpectedIterations();
    for (int part = 0; part < nRightParts; ++part) {
        CPrgCntSubPhase phase(progress, static_cast<double>(part) / nRightParts, 1.0 / nRightParts, 1, true);
        std::vector<T> rightPart(static_cast<std::size_t>(equations), T(0));
        system.SetSingleRightPart(rightPart.data(), *informers[part]);
        std::vector<T> solution = rightPart;
        int const iterations =
            internalSolveForExplicitMatrix(solution.data(), *matrix, rightPart.data(), progress, expected);
        expected = Detail::expectedAfter(iterations);
        m_iterationsUsed += iterations;
        system.SetSingleSolution(solution.data(), *recievers[part]);
    }
    return true;
}

template <class T>
int CLinSysSolverSparseMKL<T>::solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix,
                                                      T const * rightPart, CProgressCounter * progress)
{
    m_limitReached = false;
    m_relativeResidual = T(0);
    if (!Detail::isRowIndexComplete(matrix))
        return -1;
    return internalSolveForExplicitMatrix(solution, matrix, rightPart, progress, firstExpectedIterations());
}

template <class T>
int CLinSysSolverSparseMKL<T>::internalSolveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix,
                                                              T const * rightPart,
                                                              CProgressCounter * progress,
                                                              int expectedIterations)
{
    int const size = Detail::csrRowCount(matrix);
    MatrixProducts<T> products{matrix, size,
                               Detail::ProductProgress(progress, std::max(1, expectedIterations))};
    int const iterations =
        bicgstab(size, &MatrixProducts<T>::multiply, &products, rightPart, solution, m_eps, m_maxIterations);
    if (m_maxIterations > 0 && iterations >= m_maxIterations) {
        // The iteration ends alike with and without convergence; the residual tells which it was.
        std::vector<T> product(static_cast<std::size_t>(size));
        MatrixMultVector(size, product.data(), matrix, static_cast<T const *>(solution));
        T const residual = Detail::relativeResidual(product, rightPart);
        if (!(residual <= m_eps)) {
            m_limitReached = true;
            m_relativeResidual = std::max(m_relativeResidual, residual);
        }
    }
    return iterations;
}

template class CLinSysSolverSparseMKL<float>;
template class CLinSysSolverSparseMKL<double>;

} // namespace REmath

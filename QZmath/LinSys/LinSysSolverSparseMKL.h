// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

/// Iterative core over a compressed-row matrix, see `bicgstab`. A system that is an `ICsrMatrix` itself is
/// used in place, any other is converted. Right parts are solved one after the other, each starting from the
/// right part itself.
///
/// The answer is true, and a solution is delivered, whether or not the iteration converged or broke down; a
/// client that has to know asks `isIterationLimitReached` or checks the residual. False only for a matrix
/// with unfilled rows.
template <class T>
class QZMATH_API CLinSysSolverSparseMKL : public ILinSysSolverCore<T>
{
public:
    /// 1e-6 in single precision, for both types.
    static const T st_DefaultBicgStabEps;

    /// \param eps           relative tolerance of the residual
    /// \param maxIterations for each right part; no limit when 0 or less
    CLinSysSolverSparseMKL(T eps, int maxIterations);
    ~CLinSysSolverSparseMKL() override;

    T getBicgstabEps() const { return m_eps; }
    void setBicgstabEps(T eps) { m_eps = eps; }
    int getMaxIterationsAllowed() const { return m_maxIterations; }
    void setMaxIterationsAllowed(int maxIterations) { m_maxIterations = maxIterations; }

    /// Iterations of the last `solveSystem` over all right parts; a breakdown counts as -1.
    int getIterationsUsed() const { return m_iterationsUsed; }
    /// Did a right part of the last solve run into the limit of iterations with a residual above the
    /// tolerance?
    bool isIterationLimitReached() const { return m_limitReached; }
    /// The greatest |A x - b| / |b| among those right parts, 0 if there was none.
    T getRelativeResidual() const { return m_relativeResidual; }

    /// Solves for one right part of the matrix size; `solution` holds the initial guess. The number of
    /// iterations, or -1 on breakdown and for a matrix with unfilled rows.
    int solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, T const * rightPart,
                               CProgressCounter * progress);

private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;
    int internalSolveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, T const * rightPart,
                                       CProgressCounter * progress, int expectedIterations);
    int firstExpectedIterations() const;

    T m_eps;
    int m_maxIterations;
    int m_iterationsUsed;
    bool m_limitReached;
    T m_relativeResidual;
};

template <class T>
struct LinSysCoreDefaults<CLinSysSolverSparseMKL<T>>
{
    static CLinSysSolverSparseMKL<T> make()
    {
        return CLinSysSolverSparseMKL<T>(CLinSysSolverSparseMKL<T>::st_DefaultBicgStabEps, -1);
    }
};

template <>
float const CLinSysSolverSparseMKL<float>::st_DefaultBicgStabEps;
template <>
double const CLinSysSolverSparseMKL<double>::st_DefaultBicgStabEps;

extern template class CLinSysSolverSparseMKL<float>;
extern template class CLinSysSolverSparseMKL<double>;

} // namespace REmath

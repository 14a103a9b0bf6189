// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/IterationReport.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

/// `bicgstab` on a compressed-row matrix, started from the right part. Exists for `float` and `double`.
///
/// A system that is an `ICsrMatrix<T>` is used as it stands, any other is copied by n^2 look-ups. Right parts
/// are solved and delivered one after the other.
///
/// The result says nothing about convergence: a right part on which `bicgstab` broke down or reached the
/// limit of iterations is delivered as well as it was approximated, and the solve gives true. It gives false,
/// and delivers nothing, only when the matrix is incomplete or has not as many rows as there are equations.
/// Whether the system is correctly defined is not asked. In the report of a solve a right part that broke
/// down counts as -1 iterations, and `lastFailure` tells of it and of the limit.
template <class T>
class QZMATH_API CLinSysSolverSparseMKL : public ILinSysSolverCore<T>, public IterationReporter<T>
{
private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;

public:
    /// 1e-6 rounded to `float`, also for `double`.
    static constexpr T st_DefaultBicgStabEps = T(1e-6f);

    /// `eps` is the relative residual to reach, `maxIterations` the limit for each right part, none below 1.
    CLinSysSolverSparseMKL(T eps, int maxIterations);

    T getBicgstabEps() const { return m_eps; }
    void setBicgstabEps(T eps) { m_eps = eps; }
    int getMaxIterationsAllowed() const { return m_maxIterations; }
    void setMaxIterationsAllowed(int maxIterations) { m_maxIterations = maxIterations; }

    /// Solves for one right part; `solution` holds the initial guess and receives the result. Both have as
    /// many elements as the matrix has rows. Gives what `bicgstab` gives; -1 also for an incomplete matrix,
    /// and `solution` stays as it is then. Leaves the report as it is.
    int solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, T const * rightPart,
                               CProgressCounter * progress);

private:
    int internalSolveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, T const * rightPart,
                                       CProgressCounter * progress, int expectedIterations);
    int firstExpectedIterations() const;

    T m_eps;
    int m_maxIterations;
};

/// Makes the core of a composed solver with the default residual and without a limit of iterations.
template <class T>
struct LinSysCoreDefaults<CLinSysSolverSparseMKL<T>>
{
    static CLinSysSolverSparseMKL<T> make()
    {
        return CLinSysSolverSparseMKL<T>(CLinSysSolverSparseMKL<T>::st_DefaultBicgStabEps, -1);
    }
};

extern template class CLinSysSolverSparseMKL<float>;
extern template class CLinSysSolverSparseMKL<double>;
extern template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverSparseMKL<float>>;
extern template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverSparseMKL<double>>;

} // namespace REmath

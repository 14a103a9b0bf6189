// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/CsrStorage.h>
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
/// Whether the system is correctly defined is not asked.
template <class T>
class QZMATH_API CLinSysSolverSparseMKL : public ILinSysSolverCore<T>
{
private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;

public:
    /// The same value for both types: that of the `float`.
    static constexpr T st_DefaultBicgStabEps = T(1e-6f);

    /// `eps` is the relative residual to reach, `maxIterations` the limit for each right part, none below 1.
    CLinSysSolverSparseMKL(T eps, int maxIterations);
    CLinSysSolverSparseMKL(CLinSysSolverSparseMKL const & other);
    CLinSysSolverSparseMKL & operator=(CLinSysSolverSparseMKL const & other);
    ~CLinSysSolverSparseMKL() override;

    T getBicgstabEps() const { return m_eps; }
    void setBicgstabEps(T eps) { m_eps = eps; }
    int getMaxIterationsAllowed() const { return m_maxIterations; }
    void setMaxIterationsAllowed(int maxIterations) { m_maxIterations = maxIterations; }

    /// The sum over the right parts of the last solve. A right part that broke down counts as -1.
    int getIterationsUsed() const { return m_iterationsUsed; }

    /// Did a right part of the last solve reach the limit of iterations without the residual asked for?
    bool isIterationLimitReached() const { return m_iterationLimitReached; }
    /// In that case the largest norm of a residual in terms of the norm of its right part, by a product of
    /// its own; otherwise 0.
    T getRelativeResidual() const { return m_relativeResidual; }

    /// Solves for one right part; `solution` holds the initial guess and receives the result. Both have as
    /// many elements as the matrix has rows. Gives what `bicgstab` gives; -1 also for an incomplete matrix,
    /// and `solution` stays as it is then. Does not change what the queries above give.
    int solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, T const * rightPart,
                               CProgressCounter * progress);

private:
    int internalSolveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, T const * rightPart,
                                       CProgressCounter * progress, int expectedIterations);
    int firstExpectedIterations() const;

    T m_eps;
    int m_maxIterations;
    int m_iterationsUsed = 0;
    bool m_iterationLimitReached = false;
    T m_relativeResidual = 0;
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

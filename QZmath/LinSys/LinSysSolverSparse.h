// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/IterationReport.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

/// Ready solvers over compressed rows, for `float` and `double`. Free vertices are to be defined in ascending
/// order.
namespace REmath
{

/// Direct solver. All right parts share one factorisation; `CLinSysSolverSparseDss` says when a solve fails.
template <class T>
class QZMATH_API CSparseStoreSparseLinSysSolver
    : public CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverSparseDss<T>>
{
public:
    /// `expectedElementsPerLine` sizes the matrix with the first equation; nothing is reserved when below 1.
    explicit CSparseStoreSparseLinSysSolver(int expectedElementsPerLine = 0);
    CSparseStoreSparseLinSysSolver * Copy() const override;

    /// Makes room for so many elements of the matrix in all; does nothing when below 1. At any time: what is
    /// asked for before all vertices are defined is made with the first equation.
    void reserveMemory(int count);

    /// See `CLinSysSolverSparseDss::setSemidefiniteLift`; 0 by default.
    void setSemidefiniteLift(T relative) { m_semidefiniteLift = relative; }
    T getSemidefiniteLift() const { return m_semidefiniteLift; }

    /// See `CLinSysSolverSparseDss::setConditionEstimated` and `getConditionEstimate`.
    void setConditionEstimated(bool estimated) { m_isConditionEstimated = estimated; }
    bool isConditionEstimated() const { return m_isConditionEstimated; }
    double getConditionEstimate() const { return m_conditionEstimate; }

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;

    T m_semidefiniteLift = 0;
    bool m_isConditionEstimated = false;
    double m_conditionEstimate = 0;
};

/// Iterative solver by `bicgstab`, started from the right parts. A solve gives true also when a right part
/// did not converge; `CLinSysSolverSparseMKL` says more, and the report tells. After a solve that failed it
/// has -1 iterations.
template <class T>
class QZMATH_API CSparseStoreBicgstabLinSysSolver
    : public CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverSparseMKL<T>>,
      public IterationReporter<T>
{
public:
    /// `expectedElementsPerLine` sizes the matrix like that of the direct solver; `eps` is the relative
    /// residual to reach, `maxIterations` the limit for each right part, none below 1.
    CSparseStoreBicgstabLinSysSolver(int expectedElementsPerLine, T eps, int maxIterations);
    CSparseStoreBicgstabLinSysSolver * Copy() const override;

    T getBicgStabEps() const { return m_eps; }
    void setBicgStabEps(T eps) { m_eps = eps; }
    int getMaxIterations() const { return m_maxIterations; }
    void setMaxIterations(int maxIterations) { m_maxIterations = maxIterations; }

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;

    T m_eps;
    int m_maxIterations;
};

extern template class CSparseStoreSparseLinSysSolver<float>;
extern template class CSparseStoreSparseLinSysSolver<double>;
extern template class CSparseStoreBicgstabLinSysSolver<float>;
extern template class CSparseStoreBicgstabLinSysSolver<double>;

} // namespace REmath

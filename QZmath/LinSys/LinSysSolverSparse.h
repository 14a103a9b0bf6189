// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

namespace REmath
{

/// Direct solver over compressed rows: one factorisation for all right parts of a solve. Free vertices have
/// to be defined in ascending order of their identifiers, see `CCSRSstorage`.
template <class T>
class QZMATH_API CSparseStoreSparseLinSysSolver
    : public CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverSparseDss<T>>
{
public:
    /// \param expectedElementsPerLine memory reserved per equation; 0 or less reserves none
    explicit CSparseStoreSparseLinSysSolver(int expectedElementsPerLine = 0);
    ~CSparseStoreSparseLinSysSolver() override;
    CSparseStoreSparseLinSysSolver * Copy() const override;

    /// Reserves memory for a number of matrix elements; 0 or less does nothing.
    void reserveMemory(int count);

    /// For matrices that are declared positive definite but only semidefinite: above 0, a failed
    /// factorisation is tried once more with this share of the largest diagonal element added to the
    /// diagonal, and its solution is accepted if the relative residual of the unchanged system is below 1e-9.
    /// 0, the default, fails instead.
    void setSemidefiniteLift(T relative) { m_semidefiniteLift = relative; }
    T getSemidefiniteLift() const { return m_semidefiniteLift; }

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;

    T m_semidefiniteLift;
};

/// Iterative solver over compressed rows, see `CLinSysSolverSparseMKL`.
template <class T>
class QZMATH_API CSparseStoreBicgstabLinSysSolver
    : public CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverSparseMKL<T>>
{
public:
    /// \param expectedElementsPerLine memory reserved per equation; 0 or less reserves none
    /// \param eps                     relative tolerance of the residual
    /// \param maxIterations           for each right part; no limit when 0 or less
    CSparseStoreBicgstabLinSysSolver(int expectedElementsPerLine, T eps, int maxIterations);
    ~CSparseStoreBicgstabLinSysSolver() override;
    CSparseStoreBicgstabLinSysSolver * Copy() const override;

    T getBicgStabEps() const { return m_eps; }
    void setBicgStabEps(T eps) { m_eps = eps; }
    int getMaxIterations() const { return m_maxIterations; }
    void setMaxIterations(int maxIterations) { m_maxIterations = maxIterations; }

    /// Iterations of the last solve over all right parts, -1 when it failed.
    int getIterationsUsed() const { return m_iterationsUsed; }
    /// Did the last solve run into the limit with a residual above the tolerance?
    bool isIterationLimitReached() const { return m_limitReached; }
    /// The greatest |A x - b| / |b| of its right parts that did, 0 if there was none.
    T getRelativeResidual() const { return m_relativeResidual; }

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;

    T m_eps;
    int m_maxIterations;
    int m_iterationsUsed;
    bool m_limitReached;
    T m_relativeResidual;
};

extern template class CSparseStoreSparseLinSysSolver<float>;
extern template class CSparseStoreSparseLinSysSolver<double>;
extern template class CSparseStoreBicgstabLinSysSolver<float>;
extern template class CSparseStoreBicgstabLinSysSolver<double>;

} // namespace REmath

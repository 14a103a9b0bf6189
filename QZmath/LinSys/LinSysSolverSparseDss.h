// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

/// Sparse direct solver: one factorisation, in double precision for both types, serves all right parts.
/// Exists for `float` and `double`.
///
/// A system that is an `ICsrMatrix<T>` is used as it stands, any other is copied by n^2 look-ups. A matrix
/// declared positive definite is factored by Cholesky, any other by LU with pivoting. A full matrix declared
/// positive definite that is not symmetric is solved as it stands.
///
/// Fails, and delivers nothing, when the system is not correctly defined, the matrix is singular to working
/// precision, not definite as declared or incomplete, and when elements or a solution are not finite. Throws
/// `std::bad_alloc` when memory is short. A system without vertices succeeds.
///
/// A system gives the same bits each time that it is solved. Objects on different threads work at the same
/// time; a Cholesky factorisation takes all threads that the library may use. With a progress counter it can
/// be interrupted every few hundredths of a second, an LU factorisation between groups of columns.
template <class T>
class QZMATH_API CLinSysSolverSparseDss : public ILinSysSolverCore<T>
{
private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;

public:
    /// Index base of the copy of a system that is no compressed-row matrix.
    static constexpr int st_iDssIndexBase = 1;

    /// What to do when the factorisation of a matrix declared positive definite fails: above 0, it is tried
    /// once more with this share of the largest diagonal element added to the diagonal, and the solutions
    /// count if their residuals in the given system are below 1e-9 of the right parts. So a semidefinite
    /// system that has solutions gets one of them. 0, the default, makes it fail.
    void setSemidefiniteLift(T relative) { m_semidefiniteLift = relative; }
    T getSemidefiniteLift() const { return m_semidefiniteLift; }

    /// Shall solves estimate the condition of the matrix? That costs about five more solves for a right part
    /// each time. Off by default.
    void setConditionEstimated(bool estimated) { m_isConditionEstimated = estimated; }
    bool isConditionEstimated() const { return m_isConditionEstimated; }

    /// Of the last solve that gave true, if it was to estimate it: the condition of the matrix in the 1-norm
    /// after scaling, to a diagonal of ones where it is definite, else of rows and columns. An estimate from
    /// below, seldom by more than a factor of 3; solutions keep about 16 less its decimal logarithm of their
    /// digits. Otherwise 0.
    double getConditionEstimate() const { return m_conditionEstimate; }

    /// Solves for one right part. `solution` and `rightPart` have as many elements as the matrix has rows;
    /// `solution` is written on success only.
    bool solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, bool positiveDefinite,
                                T const * rightPart, CProgressCounter * progress);

private:
    bool solveForExplicitMatrixInternal(int nRightParts, T * solutions, ICsrMatrix<T> const & matrix,
                                        bool positiveDefinite, T const * rightParts,
                                        CProgressCounter * progress);

    T m_semidefiniteLift = 0;
    bool m_isConditionEstimated = false;
    double m_conditionEstimate = 0;
};

extern template class CLinSysSolverSparseDss<float>;
extern template class CLinSysSolverSparseDss<double>;
extern template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverSparseDss<float>>;
extern template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverSparseDss<double>>;

} // namespace REmath

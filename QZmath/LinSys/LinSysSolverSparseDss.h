// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

/// Direct core: one sparse factorisation, Cholesky for systems declared positive definite and LU otherwise,
/// solves all right parts together. Works in double precision for both types.
///
/// A system that is an `ICsrMatrix` of index base 1 is used in place, any other is converted. False, and
/// nothing delivered, when the system is not correctly defined, the matrix is singular, not positive definite
/// as declared, or holds a value that is not finite, and when memory is short. The same input gives the same
/// bits, whatever the number of threads.
template <class T>
class QZMATH_API CLinSysSolverSparseDss : public ILinSysSolverCore<T>
{
public:
    /// Index base of matrices that are used in place.
    static int const st_iDssIndexBase = 1;

    CLinSysSolverSparseDss();
    ~CLinSysSolverSparseDss() override;

    /// Above 0, a matrix that was declared positive definite and cannot be factored is factored once more
    /// with this share of its largest diagonal element added to the diagonal; the solution is accepted if the
    /// relative residual of the unchanged matrix is below 1e-9. 0, the default, fails instead.
    void setSemidefiniteLift(T relative) { m_semidefiniteLift = relative; }
    T getSemidefiniteLift() const { return m_semidefiniteLift; }

    /// Solves for one right part of the matrix size, without a semidefinite lift unless set. `solution` is
    /// written on success only. The matrix may have either index base.
    bool solveForExplicitMatrix(T * solution, ICsrMatrix<T> const & matrix, bool positiveDefinite,
                                T const * rightPart, CProgressCounter * progress);

private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;
    bool solveForExplicitMatrixInternal(int nRightParts, T * solutions, ICsrMatrix<T> const & matrix,
                                        bool positiveDefinite, T const * rightParts,
                                        CProgressCounter * progress);

    T m_semidefiniteLift;
};

extern template class CLinSysSolverSparseDss<float>;
extern template class CLinSysSolverSparseDss<double>;

} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

/// Direct dense core for small systems: copies the free matrix element by element into a dense one, factors
/// it with partial pivoting once and solves all right parts with the factors. Takes any system, also an
/// indefinite or an unsymmetric one. Exists for `float` and `double`.
///
/// For n equations it takes n^2 numbers of memory and about n^3 / 3 multiplications; `std::bad_alloc` passes
/// when there is not that much memory or n^2 exceeds 2^31 - 1. False, with nothing delivered, for a system
/// that is not correctly defined and for a singular matrix. A system without equations is solved. The result
/// does not depend on the number of threads.
template <class T>
class QZMATH_API CLinSysSolverCoreMkl : public ILinSysSolverCore<T>
{
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;
};

extern template class CLinSysSolverCoreMkl<float>;
extern template class CLinSysSolverCoreMkl<double>;
extern template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverCoreMkl<float>>;
extern template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverCoreMkl<double>>;

} // namespace REmath

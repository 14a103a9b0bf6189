// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

/// `bicgstab` on any system, without a matrix: products are formed row by row through the system's own
/// interface. Relative residual 1e-6, no limit of iterations but the one of `bicgstab` without any, the
/// initial guess is 0. Exists for `float` and `double`.
///
/// Right parts are solved and delivered one after the other. Fails on a system that is not correctly defined,
/// and on the first right part that `bicgstab` breaks down on; a right part of zeros is one of these. A
/// system without equations succeeds and asks no informer.
template <class T>
class QZMATH_API CLinSysSolverCoreBicgstab : public ILinSysSolverCore<T>
{
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;
};

extern template class CLinSysSolverCoreBicgstab<float>;
extern template class CLinSysSolverCoreBicgstab<double>;
extern template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverCoreBicgstab<float>>;
extern template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverCoreBicgstab<double>>;

} // namespace REmath

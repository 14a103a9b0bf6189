// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

/// Iterative core that needs nothing of a system but the products of its rows with a vector. Relative
/// tolerance 1e-6, no limit of iterations, starts at 0; right parts are solved one after the other. False for
/// a system that is not correctly defined and when the iteration breaks down, which it also does for a right
/// part of 0.
template <class T>
class QZMATH_API CLinSysSolverCoreBicgstab : public ILinSysSolverCore<T>
{
public:
    CLinSysSolverCoreBicgstab();
    ~CLinSysSolverCoreBicgstab() override;

private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;
};

extern template class CLinSysSolverCoreBicgstab<float>;
extern template class CLinSysSolverCoreBicgstab<double>;

} // namespace REmath

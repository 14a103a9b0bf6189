// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCore.h>

#include <QZmath/LinSys/LinSysFailureDetail.h>

namespace REmath
{

template <class T>
bool ILinSysSolverCore<T>::solveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                       IVertexPosInformer<T> const ** informers,
                                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress)
{
    return this->noteFailure(
        [&] { return onSolveSystem(system, nRightParts, informers, recievers, progress); });
}

template class ILinSysSolverCore<float>;
template class ILinSysSolverCore<double>;

} // namespace REmath

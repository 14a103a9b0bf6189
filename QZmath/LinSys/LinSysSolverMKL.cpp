// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverMKL.h>

namespace REmath
{

template <class T>
CLinSysSolverMKL<T> * CLinSysSolverMKL<T>::Copy() const
{
    return new CLinSysSolverMKL(*this);
}

template class CLinSysSolverCompose<float, CVPLSstorage<float, CStdVectorAsVPLSstorageRow>,
                                    CLinSysSolverCoreMkl<float>>;
template class CLinSysSolverCompose<double, CVPLSstorage<double, CStdVectorAsVPLSstorageRow>,
                                    CLinSysSolverCoreMkl<double>>;
template class CLinSysSolverMKL<float>;
template class CLinSysSolverMKL<double>;

} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

template <class T>
ILinSysSolverCore<T>::ILinSysSolverCore() = default;
template <class T>
ILinSysSolverCore<T>::ILinSysSolverCore(ILinSysSolverCore const &) = default;
template <class T>
ILinSysSolverCore<T> & ILinSysSolverCore<T>::operator=(ILinSysSolverCore const &) = default;
template <class T>
ILinSysSolverCore<T>::~ILinSysSolverCore() = default;

template class ILinSysSolverCore<float>;
template class ILinSysSolverCore<double>;

} // namespace REmath

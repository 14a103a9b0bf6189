// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/SparseLinSysSolver.h>

namespace REmath
{

template <class T>
CSparseLinSysSolver<T>::CSparseLinSysSolver() = default;

template <class T>
CSparseLinSysSolver<T>::CSparseLinSysSolver(CSparseLinSysSolver const &) = default;

template <class T>
CSparseLinSysSolver<T> & CSparseLinSysSolver<T>::operator=(CSparseLinSysSolver const &) = default;

template <class T>
CSparseLinSysSolver<T>::~CSparseLinSysSolver() = default;

template <class T>
CSparseLinSysSolver<T> * CSparseLinSysSolver<T>::Copy() const
{
    return new CSparseLinSysSolver(*this);
}

template class CSparseLinSysSolver<float>;
template class CSparseLinSysSolver<double>;

} // namespace REmath

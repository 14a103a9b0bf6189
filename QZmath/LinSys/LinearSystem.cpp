// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinearSystem.h>

#include <QZmath/LinSys/LinSysFailureDetail.h>

namespace REmath
{

template <class T>
bool ILinearSystemReadOnly<T>::isSymmetric() const
{
    return onIsSymmetric();
}

template <class T>
bool ILinearSystemReadOnly<T>::isPositiveDefinite() const
{
    return onIsPositiveDefinite();
}

template <class T>
void IVertexPosLinearSystem<T>::DefineFreeVertex(int vertex)
{
    OnDefineFreeVertex(vertex);
}

template <class T>
void IVertexPosLinearSystem<T>::DefineFixedVertex(int vertex)
{
    OnDefineFixedVertex(vertex);
}

template <class T>
bool IVertexPosLinearSystem<T>::SolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                                            IEqSysResultReciever<T> ** recievers, CProgressCounter * progress)
{
    return this->noteFailure([&] { return OnSolveSystem(nRightParts, informers, recievers, progress); });
}

template class IVertexPosInformer<float>;
template class IVertexPosInformer<double>;
template class IEqSysResultReciever<float>;
template class IEqSysResultReciever<double>;
template class ILinearSystemReadOnly<float>;
template class ILinearSystemReadOnly<double>;
template class ILinearSystemStorage<float>;
template class ILinearSystemStorage<double>;
template class IVertexPosLinearSystem<float>;
template class IVertexPosLinearSystem<double>;

} // namespace REmath

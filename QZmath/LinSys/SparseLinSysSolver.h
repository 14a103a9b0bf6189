// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/VPLSstorage.h>

namespace REmath
{

/// Direct solver over sparse rows, for `float` and `double`: one factorisation serves all right parts of a
/// solve, as in `CSparseStoreSparseLinSysSolver`, but free vertices may be defined in any order, and
/// equations are added in full also when the system is declared symmetric.
///
/// A solve copies the rows into a compressed matrix, in time and memory of their non-zero elements.
template <class T>
class QZMATH_API CSparseLinSysSolver
    : public CLinSysSolverCompose<T, CVPLSstorage<T, CSparseVectorAsVPLSstorageRow>,
                                  CLinSysSolverSparseDss<T>>
{
public:
    CSparseLinSysSolver * Copy() const override;

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;
};

extern template class CLinSysSolverCompose<float, CVPLSstorage<float, CSparseVectorAsVPLSstorageRow>,
                                           CLinSysSolverSparseDss<float>>;
extern template class CLinSysSolverCompose<double, CVPLSstorage<double, CSparseVectorAsVPLSstorageRow>,
                                           CLinSysSolverSparseDss<double>>;
extern template class CSparseLinSysSolver<float>;
extern template class CSparseLinSysSolver<double>;

} // namespace REmath

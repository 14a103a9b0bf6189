// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCoreMkl.h>
#include <QZmath/LinSys/VPLSstorage.h>

namespace REmath
{

/// Dense direct solver, for `float` and `double`: one factorisation serves all right parts of a solve, and
/// the matrix needs to be neither symmetric nor definite. Free vertices may be defined in any order, and
/// equations are added in full also when the system is declared symmetric.
///
/// Keeps n^2 numbers for n free vertices and copies them for each solve, which takes O(n^3): fit for some
/// hundreds of vertices.
template <class T>
class QZMATH_API CLinSysSolverMKL
    : public CLinSysSolverCompose<T, CVPLSstorage<T, CStdVectorAsVPLSstorageRow>, CLinSysSolverCoreMkl<T>>
{
public:
    CLinSysSolverMKL * Copy() const override;
};

extern template class CLinSysSolverCompose<float, CVPLSstorage<float, CStdVectorAsVPLSstorageRow>,
                                           CLinSysSolverCoreMkl<float>>;
extern template class CLinSysSolverCompose<double, CVPLSstorage<double, CStdVectorAsVPLSstorageRow>,
                                           CLinSysSolverCoreMkl<double>>;
extern template class CLinSysSolverMKL<float>;
extern template class CLinSysSolverMKL<double>;

} // namespace REmath

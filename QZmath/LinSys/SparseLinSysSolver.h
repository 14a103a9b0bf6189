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
/// A solve reads the matrix element by element, which takes O(n^2 log k) for n free vertices and k terms per
/// equation: fit for some thousands of vertices.
template <class T>
class QZMATH_API CSparseLinSysSolver
    : public CLinSysSolverCompose<T, CVPLSstorage<T, CSparseVectorAsVPLSstorageRow>,
                                  CLinSysSolverSparseDss<T>>
{
public:
    CSparseLinSysSolver();
    CSparseLinSysSolver(CSparseLinSysSolver const & other);
    CSparseLinSysSolver & operator=(CSparseLinSysSolver const & other);
    ~CSparseLinSysSolver() override;
    CSparseLinSysSolver * Copy() const override;
};

extern template class CSparseLinSysSolver<float>;
extern template class CSparseLinSysSolver<double>;

} // namespace REmath

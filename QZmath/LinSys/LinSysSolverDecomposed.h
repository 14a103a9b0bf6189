// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/IterationReport.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

#include <vector>

namespace REmath
{

/// Solver for large systems whose unknowns can be cut into nearly independent stretches. Exists for `float`
/// and `double`.
///
/// The diagonal blocks between neighbouring boundaries are solved directly. Neighbouring blocks are then
/// merged two by two up a binary tree, each merged block by `bicgstab` from the solutions of its halves; the
/// root is the whole system. Blocks of one level run at the same time, as many as there are cores to use.
/// Right parts are solved and delivered one after the other. The bits of a solution do not depend on the
/// number of threads.
///
/// Needs a system that is an `ICsrMatrix<T>`; of any other no block is solved, and a solution of zeros is
/// delivered.
///
/// Fails when `bicgstab` breaks down on a merged block; the right parts in front of that one have been
/// delivered. An exactly solved start is such a breakdown. Fails also when the boundaries descend or lie
/// outside the unknowns, and when the matrix is incomplete. A direct block that cannot be solved is left at
/// zero, and nobody is told; only when it is the whole system, `lastFailure` names the reason, though the
/// solve gives true.
///
/// The report counts the iterations of all merged blocks. Its limit is that of the whole system: limits
/// reached inside the tree do not count.
template <class T>
class QZMATH_API CLinSysSolverDecomposed : public ILinSysSolverCore<T>, public IterationReporter<T>
{
private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;

public:
    /// `boundaries` are indices into the unknowns, ascending; a repeated one makes an empty block. 0 in front
    /// and the number of unknowns at the end are added by a solve where they are missing, and stay. Without
    /// boundaries the whole system is solved directly. `eps` is the relative residual of the merged blocks,
    /// `maxIterations` the limit for each of them, none below 1.
    CLinSysSolverDecomposed(std::vector<int> const & boundaries, double eps, int maxIterations);

private:
    std::vector<int> m_boundaries;
    double m_eps;
    int m_maxIterations;
};

/// Makes the core of a composed solver without boundaries: a direct solver of the whole system.
template <class T>
struct LinSysCoreDefaults<CLinSysSolverDecomposed<T>>
{
    static CLinSysSolverDecomposed<T> make() { return CLinSysSolverDecomposed<T>({}, -1.0, -1); }
};

/// Ready solver over compressed rows by `CLinSysSolverDecomposed`, whose report it hands on.
template <class T>
class QZMATH_API CLinSysSolverSpaceDecomposer
    : public CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverDecomposed<T>>,
      public IterationReporter<T>
{
public:
    CLinSysSolverSpaceDecomposer(std::vector<int> const & boundaries, double eps, int maxIterations);
    CLinSysSolverSpaceDecomposer * Copy() const override;

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;

    std::vector<int> m_boundaries;
    double m_eps;
    int m_maxIterations;
};

extern template class CLinSysSolverDecomposed<float>;
extern template class CLinSysSolverDecomposed<double>;
extern template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverDecomposed<float>>;
extern template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverDecomposed<double>>;
extern template class CLinSysSolverSpaceDecomposer<float>;
extern template class CLinSysSolverSpaceDecomposer<double>;

} // namespace REmath

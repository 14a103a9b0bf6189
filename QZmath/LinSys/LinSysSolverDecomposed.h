// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

#include <vector>

namespace REmath
{

/// Core that cuts the unknowns into blocks of consecutive indices, solves the blocks with the direct solver,
/// and merges neighbours pairwise up a binary tree: each merged block is solved iteratively from the
/// solutions of its halves, and the root of the tree is the whole system. Pays where blocks are nearly
/// independent of one another.
///
/// The blocks of a tree level run in parallel, one per physical thread; the result does not depend on their
/// number. The system has to be an `ICsrMatrix<T>`: any other gets zeros as its solution. A block that the
/// direct solver cannot solve starts from 0 instead.
///
/// False when a merged block breaks down (right parts before it have been delivered then), when the
/// boundaries leave the range of the unknowns or descend, and for a matrix with unfilled rows.
template <class T>
class QZMATH_API CLinSysSolverDecomposed : public ILinSysSolverCore<T>
{
public:
    /// \param boundaries    ascending indices at which the unknowns are cut; 0 and the size are added where
    /// missing.
    ///                      Without any the whole system goes to the direct solver.
    /// \param eps           relative tolerance of the merged blocks
    /// \param maxIterations of each merged block; no limit when 0 or less
    CLinSysSolverDecomposed(std::vector<int> const & boundaries, double eps, int maxIterations);
    ~CLinSysSolverDecomposed() override;

    /// Iterations of all merged blocks over all right parts of the last solve.
    int getIterationsUsed() const { return m_iterationsUsed; }
    /// Did the whole system run into the limit with a residual above the tolerance, for any right part?
    bool isIterationLimitReached() const { return m_limitReached; }
    /// The greatest |A x - b| / |b| among those right parts, 0 if there was none.
    T getRelativeResidual() const { return m_relativeResidual; }

private:
    bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                       IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                       CProgressCounter * progress) override;

    std::vector<int> m_boundaries;
    double m_eps;
    int m_maxIterations;
    int m_iterationsUsed;
    bool m_limitReached;
    T m_relativeResidual;
};

template <class T>
struct LinSysCoreDefaults<CLinSysSolverDecomposed<T>>
{
    static CLinSysSolverDecomposed<T> make()
    {
        return CLinSysSolverDecomposed<T>(std::vector<int>(), -1.0, -1);
    }
};

/// Complete solver over compressed rows with the decomposing core.
template <class T>
class QZMATH_API CLinSysSolverSpaceDecomposer
    : public CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverDecomposed<T>>
{
public:
    /// Parameters as those of `CLinSysSolverDecomposed`.
    CLinSysSolverSpaceDecomposer(std::vector<int> const & boundaries, double eps, int maxIterations);
    ~CLinSysSolverSpaceDecomposer() override;
    CLinSysSolverSpaceDecomposer * Copy() const override;

    /// What `CLinSysSolverDecomposed` says of the last solve.
    int getIterationsUsed() const { return m_iterationsUsed; }
    bool isIterationLimitReached() const { return m_limitReached; }
    T getRelativeResidual() const { return m_relativeResidual; }

private:
    bool OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                       IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;

    std::vector<int> m_boundaries;
    double m_eps;
    int m_maxIterations;
    int m_iterationsUsed;
    bool m_limitReached;
    T m_relativeResidual;
};

extern template class CLinSysSolverDecomposed<float>;
extern template class CLinSysSolverDecomposed<double>;
extern template class CLinSysSolverSpaceDecomposer<float>;
extern template class CLinSysSolverSpaceDecomposer<double>;

} // namespace REmath

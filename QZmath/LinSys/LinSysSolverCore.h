// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinearSystem.h>

class CProgressCounter;

namespace REmath
{

/// Solves any system of equations over vertices, whatever storage holds it: the half of a solver that
/// `CLinSysSolverCompose` joins with a storage. A core belongs to one thread at a time.
template <class T>
class QZMATH_API ILinSysSolverCore
{
private:
    virtual bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                               IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                               CProgressCounter * progress) = 0;

public:
    virtual ~ILinSysSolverCore();

    /// Solves for `nRightParts` sets of fixed positions. `informers` and `recievers` are parallel arrays of
    /// that length; `progress` may be null, and what it throws passes. False when the core could not solve
    /// the system.
    bool solveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                     IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                     CProgressCounter * progress)
    {
        return onSolveSystem(system, nRightParts, informers, recievers, progress);
    }

protected:
    ILinSysSolverCore() = default;
    ILinSysSolverCore(ILinSysSolverCore const &) = default;
    ILinSysSolverCore & operator=(ILinSysSolverCore const &) = default;
};

/// How `CLinSysSolverCompose` makes a core for one solve. Cores that take parameters specialise it.
template <class Core>
struct LinSysCoreDefaults
{
    static Core make() { return Core(); }
};

extern template class ILinSysSolverCore<float>;
extern template class ILinSysSolverCore<double>;

} // namespace REmath

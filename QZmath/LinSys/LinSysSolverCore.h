// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/LinSys/LinSysFailure.h>
#include <QZmath/LinSys/LinearSystem.h>

class CProgressCounter;

namespace REmath
{

/// A method that solves a linear system, whatever stores it. Exists for `float` and `double`. A core is used
/// by one thread at a time; it changes nothing in the system.
template <class T>
class QZMATH_API ILinSysSolverCore : public LinSysFailureReporter
{
private:
    virtual bool onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                               IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                               CProgressCounter * progress) = 0;

public:
    virtual ~ILinSysSolverCore() = default;

    /// Solves for `nRightParts` sets of fixed positions; `informers` and `recievers` are parallel arrays of
    /// that many pointers. `progress` may be null; what it throws passes through. Gives true on success;
    /// `lastFailure` tells why not.
    bool solveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                     IVertexPosInformer<T> const ** informers, IEqSysResultReciever<T> ** recievers,
                     CProgressCounter * progress);

protected:
    ILinSysSolverCore() = default;
    ILinSysSolverCore(ILinSysSolverCore const &) = default;
    ILinSysSolverCore & operator=(ILinSysSolverCore const &) = default;
};

/// How a composed solver makes the core for a solve. Specialised by the cores that have no default
/// constructor.
template <class Core>
struct LinSysCoreDefaults
{
    static Core make() { return Core(); }
};

extern template class ILinSysSolverCore<float>;
extern template class ILinSysSolverCore<double>;

} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/Export.h>
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/IterationReport.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/LinSysSolverCore.h>

#include <mpi.h>

#include <cstdint>
#include <vector>

class CProgressCounter;

namespace QZmath::Distributed
{

/// Conjugate gradients on several ranks, preconditioned by an algebraic multigrid of smoothed aggregates: for
/// symmetric positive definite systems that are too large for a factor, the more so the more they are like
/// the operator of an elliptic equation, where the number of iterations hardly grows with the system. In
/// double precision for both types, `float` and `double`.
///
/// Collective: every rank makes a core, states the same system and solves it, with informers that answer the
/// same; the solution is delivered on all of them. A rank works on a range of the rows, and needs for it,
/// beside the caller's storage, about 12 bytes an element of its rows for the matrix, as much again for the
/// hierarchy, and a vector of all unknowns. A system that is an `ICsrMatrix<T>` is read where it stands, any
/// other is copied by n^2 look-ups on each rank.
///
/// A right part counts as solved when the norm of its residual is at most `eps` times its own; one of zeros
/// gets zeros. A solve gives false, on all ranks for the same reason, and delivers nothing
/// - of a system that is not correctly defined, a matrix with elements outside of it, out of order or not
///   finite, and of a right part that is not finite;
/// - as `singular` of a matrix that is not symmetric, has a diagonal element that is not positive, or shows
///   in the course of the iteration not to be definite. What is merely semidefinite may be solved;
/// - as `noMemory` when a rank has 2^31 elements of its rows or more.
///
/// It gives false, as `notConverged`, too when a right part reaches the limit of iterations; that is then
/// delivered as well as it was approximated, and the report says how well. So are the others.
///
/// Exceptions of an informer, a receiver or a progress counter pass through on the rank where they were
/// thrown. Meanwhile the others throw `CUserIntrException` for an interruption, `std::bad_alloc` for
/// a shortage of memory, and a `RankError` else. Each rank may have a counter or none; interruptions are
/// heeded at every iteration, but not while the hierarchy is set up.
///
/// The same system gives the same bits each time on as many ranks; for other numbers of them it differs by
/// what `eps` allows.
template <class T>
class QZMATH_DISTRIBUTED_API MultigridCore : public REmath::ILinSysSolverCore<T>,
                                             public REmath::IterationReporter<T>
{
public:
    /// The relative residual of a composed solver.
    static constexpr T defaultEps = T(1e-6f);
    /// What a limit of iterations below 1 stands for. A system that needs as many does not suit the method.
    static constexpr int defaultMaxIterations = 1000;

    /// Collective over `comm`; the first core of a process over all ranks of the process' world, unless the
    /// caller has initialised PETSc.
    explicit MultigridCore(MPI_Comm comm, T eps = defaultEps, int maxIterations = defaultMaxIterations);
    ~MultigridCore() override;

    T getEps() const { return m_eps; }
    void setEps(T eps) { m_eps = eps; }
    int getMaxIterationsAllowed() const { return m_maxIterations; }
    void setMaxIterationsAllowed(int maxIterations) { m_maxIterations = maxIterations; }

private:
    bool onSolveSystem(REmath::ILinearSystemReadOnly<T> const & system, int nRightParts,
                       REmath::IVertexPosInformer<T> const ** informers,
                       REmath::IEqSysResultReciever<T> ** recievers, CProgressCounter * progress) override;

    Communicator m_ranks;
    T m_eps;
    int m_maxIterations;
};

extern template class MultigridCore<float>;
extern template class MultigridCore<double>;

} // namespace QZmath::Distributed

namespace REmath
{

#ifndef QZ_DOCUMENTATION // whose tools take the specialisation for a second class of that name
/// Makes the core of a composed solver over all ranks of the process' world.
template <class T>
struct LinSysCoreDefaults<QZmath::Distributed::MultigridCore<T>>
{
    static QZmath::Distributed::MultigridCore<T> make()
    {
        return QZmath::Distributed::MultigridCore<T>(MPI_COMM_WORLD);
    }
};
#endif

} // namespace REmath

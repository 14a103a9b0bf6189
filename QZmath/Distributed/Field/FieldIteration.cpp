// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Field/FieldIteration.h>

#include <QZmath/Distributed/Field/RankLattice.h>
#include <QZmath/Distributed/Ranks/Petsc.h>

#include <QZmath/Backend/Parallel.h>

#include <QZsys/Exceptions.h>

#include <petscksp.h>

#include <algorithm>
#include <exception>
#include <string>
#include <type_traits>

namespace QZmath::Distributed
{

using VolTr::BrickSystem;

namespace
{

// An object of PETSc, freed at the end.
template <class Object, PetscErrorCode (*destroy)(Object *)>
struct Handle
{
    Object object = nullptr;

    Handle() = default;
    ~Handle() { destroy(&object); }
    Handle(Handle const &) = delete;
    Handle & operator=(Handle const &) = delete;
};
using Vector = Handle<Vec, VecDestroy>;
using Matrix = Handle<Mat, MatDestroy>;
using Solver = Handle<KSP, KSPDestroy>;

// What PETSc calls back.
class Iteration
{
public:
    Iteration(Communicator const & ranks, RankLattice const & lattice, BrickSystem & system,
              QzBackend::LoopTeam & team, std::function<bool(double)> const & goOn)
        : m_ranks(ranks), m_lattice(lattice), m_system(system), m_team(team), m_goOn(goOn)
    {}

    IterationResult solve(BrickSystem::Vector & right, double tolerance, int maxIterations);

private:
    void toPetsc(BrickSystem::Vector const & numbers, Vec vector) const
    {
        PetscScalar * to = nullptr;
        checkPetsc(VecGetArrayWrite(vector, &to));
        PetscScalar * next = to;
        for (RankLattice::Range const & range : m_lattice.ownNodes())
            next = std::copy(numbers.begin() + range.begin, numbers.begin() + range.end, next);
        checkPetsc(VecRestoreArrayWrite(vector, &to));
    }
    void fromPetsc(Vec vector, BrickSystem::Vector & numbers) const
    {
        PetscScalar const * from = nullptr;
        checkPetsc(VecGetArrayRead(vector, &from));
        PetscScalar const * next = from;
        for (RankLattice::Range const & range : m_lattice.ownNodes()) {
            for (std::size_t index = range.begin; index < range.end; ++index)
                numbers[index] = static_cast<float>(*next++);
        }
        checkPetsc(VecRestoreArrayRead(vector, &from));
        m_lattice.spreadReplicated(numbers);
    }

    static PetscErrorCode multiply(Mat matrix, Vec from, Vec to)
    {
        Iteration * self = nullptr;
        PetscCall(MatShellGetContext(matrix, &self));
        return self->guarded([&] {
            self->fromPetsc(from, self->m_direction);
            self->m_system.transformedProduct(self->m_direction, self->m_image, self->m_team);
            self->toPetsc(self->m_image, to);
        });
    }

    static PetscErrorCode test(KSP, PetscInt step, PetscReal norm, KSPConvergedReason * reason,
                               void * context)
    {
        Iteration & self = *static_cast<Iteration *>(context);
        return self.guarded([&] {
            *reason = KSP_CONVERGED_ITERATING;
            if (step == 0)
                self.m_startNorm = norm;
            self.m_result.iterations = static_cast<int>(step);
            self.m_result.relativeResidual = self.m_startNorm > 0.0 ? norm / self.m_startNorm : 0.0;
            bool const goesOn = self.m_goOn(self.m_result.relativeResidual);
            if (self.m_ranks.least(std::int64_t{goesOn ? 1 : 0}) == 0) {
                self.m_isInterrupted = true;
                *reason = KSP_DIVERGED_ITS;
            } else if (self.m_result.relativeResidual <= self.m_tolerance) {
                *reason = KSP_CONVERGED_RTOL;
            } else if (!(norm <= PETSC_MAX_REAL)) {
                *reason = KSP_DIVERGED_NANORINF;
            }
        });
    }

    // Nothing may be thrown through PETSc.
    template <class Work>
    PetscErrorCode guarded(Work const & work)
    {
        try {
            work();
            return 0;
        } catch (...) {
            m_failure = std::current_exception();
            return PETSC_ERR_LIB;
        }
    }

    Communicator const & m_ranks;
    RankLattice const & m_lattice;
    BrickSystem & m_system;
    QzBackend::LoopTeam & m_team;
    std::function<bool(double)> const & m_goOn;
    BrickSystem::Vector m_direction, m_image;
    double m_tolerance = 0.0;
    double m_startNorm = 0.0;
    IterationResult m_result;
    bool m_isInterrupted = false;
    std::exception_ptr m_failure;
};

IterationResult Iteration::solve(BrickSystem::Vector & right, double tolerance, int maxIterations)
{
    std::int64_t const all = m_ranks.sum(m_lattice.ownNodesNumber());
    if (all > PETSC_MAX_INT)
        throw RankError(RankError::Kind::options, 0,
                        std::to_string(all) +
                            " unknowns are more than this PETSc can number: one with indices "
                            "of 64 bits is needed, or larger cells");
    m_tolerance = tolerance;
    Vector b, x;
    Matrix matrix;
    Solver solver;
    PetscInt const own = static_cast<PetscInt>(m_lattice.ownNodesNumber());
    MPI_Comm const comm = m_ranks.get();
    m_ranks.together([&] {
        m_direction = m_system.emptyVector(m_team);
        m_image = m_system.emptyVector(m_team);
    });
    checkPetsc(VecCreateMPI(comm, own, PETSC_DETERMINE, &b.object));
    checkPetsc(VecDuplicate(b.object, &x.object));
    checkPetsc(MatCreateShell(comm, own, own, PETSC_DETERMINE, PETSC_DETERMINE, this, &matrix.object));
    checkPetsc(MatShellSetOperation(matrix.object, MATOP_MULT, reinterpret_cast<void (*)()>(&multiply)));
    checkPetsc(MatSetOption(matrix.object, MAT_SPD, PETSC_TRUE));
    checkPetsc(KSPCreate(comm, &solver.object));
    checkPetsc(KSPSetOperators(solver.object, matrix.object, matrix.object));
    checkPetsc(KSPSetType(solver.object, KSPCG));
    PC preconditioner = nullptr;
    checkPetsc(KSPGetPC(solver.object, &preconditioner));
    checkPetsc(PCSetType(preconditioner, PCNONE)); // the sweep is in the matrix
    checkPetsc(KSPSetNormType(solver.object, KSP_NORM_UNPRECONDITIONED));
    checkPetsc(KSPSetTolerances(solver.object, tolerance, PETSC_DEFAULT, PETSC_DEFAULT, maxIterations));
    checkPetsc(KSPSetConvergenceTest(solver.object, &test, this, nullptr));

    right = m_system.transformedRight(right, m_team);
    toPetsc(right, b.object);
    right = BrickSystem::Vector();
    PetscErrorCode const code = KSPSolve(solver.object, b.object, x.object);
    if (m_failure != nullptr)
        std::rethrow_exception(m_failure);
    checkPetsc(code);
    if (m_isInterrupted)
        throw CUserIntrException("interrupted");
    KSPConvergedReason reason = KSP_CONVERGED_ITERATING;
    checkPetsc(KSPGetConvergedReason(solver.object, &reason));
    m_result.hasConverged = reason > 0;
    if (m_result.hasConverged) {
        fromPetsc(x.object, m_direction);
        m_system.toSolution(m_direction, m_team);
        right = std::move(m_direction);
    }
    return m_result;
}

} // namespace

IterationResult solveField(Communicator const & ranks, RankLattice const & lattice, BrickSystem & system,
                           BrickSystem::Vector & right, double tolerance, int maxIterations,
                           QzBackend::LoopTeam & team, std::function<bool(double)> const & goOn)
{
    return Iteration(ranks, lattice, system, team, goOn).solve(right, tolerance, maxIterations);
}

} // namespace QZmath::Distributed

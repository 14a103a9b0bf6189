// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/MultigridCore.h>

#include <QZmath/Distributed/Ranks/Petsc.h>
#include <QZmath/LinSys/CsrMatrixDetail.h>
#include <QZmath/LinSys/LinSysFailureDetail.h>
#include <QZmath/LinSys/LinSysSolverCoreDetail.h>

#include <QZsys/Exceptions.h>
#include <QZsys/IndexDetail.h>
#include <QZsys/Progress.h>

#include <petscksp.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <utility>

namespace QZmath::Distributed
{

using REmath::ICsrMatrix;
using REmath::LinSysFailure;
using VsUt::asIndex;
namespace Detail = REmath::Detail;

namespace
{

// Runs work of this rank. When it threw anywhere, all ranks throw: those where it did, that.
template <class Work>
void agreeOn(Communicator const & ranks, Work const & work)
{
    std::exception_ptr own;
    try {
        work();
    } catch (...) {
        own = std::current_exception();
    }
    try {
        ranks.agree(own);
    } catch (RankError const & error) {
        if (own != nullptr)
            std::rethrow_exception(own);
        if (error.kind() == RankError::Kind::memory)
            throw std::bad_alloc();
        throw;
    } catch (...) {
        if (own != nullptr)
            std::rethrow_exception(own);
        throw;
    }
}

// The failure that all ranks name: of those that they found, the one of the coarsest kind.
LinSysFailure agreedFailure(Communicator const & ranks, LinSysFailure own)
{
    std::int64_t const code = own == LinSysFailure::none ? INT_MAX : static_cast<int>(own);
    std::int64_t const least = ranks.least(code);
    return least == INT_MAX ? LinSysFailure::none : static_cast<LinSysFailure>(least);
}

// A range of the rows of a symmetric matrix, in full, columns ascending.
struct RowRange
{
    PetscInt first = 0, last = 0;
    std::vector<PetscInt> begins, columns;
    std::vector<double> values;

    PetscInt count() const { return last - first; }
};

// What a rank's rows have, before they are stored.
template <class T>
class RowReader
{
public:
    RowReader(ICsrMatrix<T> const & matrix, int first, int last)
        : m_matrix(matrix), m_base(matrix.getIndexBase()), m_first(first), m_last(last)
    {}

    LinSysFailure read(RowRange & rows) const
    {
        if (!areColumnsUsable())
            return LinSysFailure::malformed;
        if (!countElements(rows))
            return LinSysFailure::noMemory;
        fill(rows);
        return faultOf(rows);
    }

private:
    std::int64_t begin(int row) const { return m_matrix.getCsrPointerB()[row] - m_base; }
    std::int64_t end(int row) const { return m_matrix.getCsrPointerE()[row] - m_base; }
    int column(std::int64_t position) const
    {
        return static_cast<int>(m_matrix.getCsrColumns()[position] - m_base);
    }
    bool isUpper() const { return m_matrix.isUpperTriangleOnlyStored(); }

    // Calls back with row, column and value of each element of the range, also of those that follow by
    // symmetry, which come in ascending order of their columns and before the row's own.
    template <class Take>
    void forEach(Take const & take) const
    {
        T const * const values = m_matrix.getCsrValues();
        for (int row = isUpper() ? 0 : m_first; row < m_last; ++row)
            for (std::int64_t position = begin(row); position < end(row); ++position) {
                int const at = column(position);
                if (isUpper() && at < row)
                    continue;
                if (row >= m_first)
                    take(row, at, values[position]);
                if (isUpper() && at != row && at >= m_first && at < m_last)
                    take(at, row, values[position]);
            }
    }

    bool areColumnsUsable() const
    {
        if (!isUpper() && !isCountable())
            return true; // refused for that
        if (!Detail::isMatrixUsable(m_matrix))
            return false;
        for (int row = isUpper() ? 0 : m_first; row < m_last; ++row)
            for (std::int64_t position = begin(row) + 1; position < end(row); ++position)
                if (column(position - 1) >= column(position))
                    return false;
        return true;
    }

    // Of rows that are stored in full, without a look at their elements.
    bool isCountable() const
    {
        std::int64_t total = 0;
        for (int row = m_first; row < m_last; ++row)
            total += end(row) - begin(row);
        return total <= std::numeric_limits<PetscInt>::max();
    }

    bool countElements(RowRange & rows) const
    {
        if (!isUpper() && !isCountable())
            return false;
        rows.first = m_first;
        rows.last = m_last;
        std::vector<std::int64_t> counts(asIndex(m_last - m_first));
        forEach([&](int row, int, T) { ++counts[asIndex(row - m_first)]; });
        rows.begins.assign(1, 0);
        std::int64_t total = 0;
        for (std::int64_t const count : counts) {
            total += count;
            if (total > std::numeric_limits<PetscInt>::max())
                return false;
            rows.begins.push_back(static_cast<PetscInt>(total));
        }
        return true;
    }

    void fill(RowRange & rows) const
    {
        rows.columns.resize(asIndex(rows.begins.back()));
        rows.values.resize(rows.columns.size());
        std::vector<PetscInt> next(rows.begins.begin(), rows.begins.end() - 1);
        forEach([&](int row, int at, T value) {
            std::size_t const place = asIndex(next[asIndex(row - m_first)]++);
            rows.columns[place] = at;
            rows.values[place] = static_cast<double>(value);
        });
    }

    LinSysFailure faultOf(RowRange const & rows) const
    {
        if (!Detail::areFinite(rows.values.data(), rows.values.size()))
            return LinSysFailure::notFinite;
        for (int row = m_first; row < m_last; ++row) {
            bool hasDiagonal = false;
            for (std::size_t place = asIndex(rows.begins[asIndex(row - m_first)]);
                 place < asIndex(rows.begins[asIndex(row - m_first) + 1]); ++place) {
                int const at = rows.columns[place];
                double const value = rows.values[place];
                hasDiagonal = hasDiagonal || (at == row && value > 0);
                if (!isUpper() && at != row && !isMirrored(row, at, value))
                    return LinSysFailure::singular;
            }
            if (!hasDiagonal)
                return LinSysFailure::singular;
        }
        return LinSysFailure::none;
    }

    // Is the element at the mirrored place the same but for rounding?
    bool isMirrored(int row, int at, double value) const
    {
        int const * const columns = m_matrix.getCsrColumns();
        int const * const rowEnd = columns + end(at);
        int const wanted = row + static_cast<int>(m_base);
        int const * const place = std::lower_bound(columns + begin(at), rowEnd, wanted);
        double const other = place != rowEnd && *place == wanted
                                 ? static_cast<double>(m_matrix.getCsrValues()[place - columns])
                                 : 0.0;
        double const tolerance = 64.0 * static_cast<double>(std::numeric_limits<T>::epsilon());
        return std::fabs(value - other) <= tolerance * (std::fabs(value) + std::fabs(other));
    }

    ICsrMatrix<T> const & m_matrix;
    std::int64_t m_base;
    int m_first, m_last;
};

// How far an iteration has come, judged by the digits that the residual has lost; asks for interruptions.
class Watch
{
public:
    Watch(Communicator const & ranks, CProgressCounter * progress)
        : m_ranks(ranks), m_progress(progress), m_isWatched(ranks.greatest(std::int64_t{progress != nullptr}))
    {}

    void begin(double eps, double rightNorm, int maxIterations)
    {
        m_target = eps * rightNorm;
        m_rightNorm = rightNorm;
        m_maxIterations = maxIterations;
        m_position = 0.0;
    }

    // Gives false when an exception is kept.
    bool report(double residual)
    {
        if (m_isWatched == 0)
            return true;
        try {
            agreeOn(m_ranks, [&] {
                if (m_progress == nullptr)
                    return;
                double const reached = std::log(m_rightNorm / residual) / std::log(m_rightNorm / m_target);
                if (reached > m_position) // not so for one that is not a number
                    m_position = std::min(reached, 1.0);
                m_progress->SetPosFloat(m_position);
            });
        } catch (...) {
            m_failure = std::current_exception();
        }
        return m_failure == nullptr;
    }

    static PetscErrorCode test(KSP, PetscInt iteration, PetscReal residual, KSPConvergedReason * reason,
                               void * context)
    {
        Watch & watch = *static_cast<Watch *>(context);
        if (!watch.report(residual))
            *reason = KSP_DIVERGED_BREAKDOWN;
        else if (!std::isfinite(residual))
            *reason = KSP_DIVERGED_NANORINF;
        else if (residual <= watch.m_target)
            *reason = KSP_CONVERGED_RTOL;
        else if (iteration >= watch.m_maxIterations)
            *reason = KSP_DIVERGED_ITS;
        else
            *reason = KSP_CONVERGED_ITERATING;
        return 0;
    }

    void rethrow() const
    {
        if (m_failure != nullptr)
            std::rethrow_exception(m_failure);
    }

private:
    Communicator const & m_ranks;
    CProgressCounter * m_progress;
    std::int64_t m_isWatched;
    double m_target = 0.0, m_rightNorm = 0.0, m_position = 0.0;
    int m_maxIterations = 0;
    std::exception_ptr m_failure;
};

// While it lives, PETSc forms the products of three matrices that coarse levels are without adding up the
// terms of several ranks as they happen to arrive. A choice of the user's comes first.
class OrderedProducts
{
public:
    explicit OrderedProducts(Communicator const & ranks)
    {
        PetscBool isChosen = PETSC_FALSE;
        checkPetsc(PetscOptionsHasName(nullptr, nullptr, option, &isChosen));
        if (isChosen == PETSC_TRUE || ranks.size() == 1) // matrices of one rank do not know that way
            return;
        checkPetsc(PetscOptionsSetValue(nullptr, option, "allatonce"));
        m_isSet = true;
    }
    ~OrderedProducts()
    {
        if (m_isSet)
            PetscOptionsClearValue(nullptr, option);
    }
    OrderedProducts(OrderedProducts const &) = delete;
    OrderedProducts & operator=(OrderedProducts const &) = delete;

private:
    static constexpr char const * option = "-matptap_via";
    bool m_isSet = false;
};

// The matrix, its hierarchy and the vectors, as PETSc holds them.
class Iteration
{
public:
    Iteration(Communicator const & ranks, int size, RowRange const & rows, Watch & watch)
    {
        try {
            create(ranks, size, rows, watch);
        } catch (...) {
            destroy();
            throw;
        }
    }
    ~Iteration() { destroy(); }
    Iteration(Iteration const &) = delete;
    Iteration & operator=(Iteration const &) = delete;

    struct Result
    {
        LinSysFailure failure = LinSysFailure::none;
        int iterations = 0;
        double relativeResidual = 0.0; // by a product of its own
    };

    // `numbers` holds the right part of this rank's rows and gets the solution there.
    Result solve(std::vector<double> & numbers, double eps, int maxIterations, Watch & watch)
    {
        PetscScalar * elements = nullptr;
        checkPetsc(VecGetArray(m_right, &elements));
        std::copy(numbers.begin(), numbers.end(), elements);
        checkPetsc(VecRestoreArray(m_right, &elements));
        double rightNorm = 0.0;
        checkPetsc(VecNorm(m_right, NORM_2, &rightNorm));
        Result result;
        if (rightNorm <= 0.0) {
            std::fill(numbers.begin(), numbers.end(), 0.0);
            return result;
        }
        if (!std::isfinite(rightNorm)) {
            result.failure = LinSysFailure::notConverged; // its square is too large
            return result;
        }

        watch.begin(eps, rightNorm, maxIterations);
        checkPetsc(KSPSolve(m_solver, m_right, m_solution));
        watch.rethrow();
        KSPConvergedReason reason = KSP_CONVERGED_ITERATING;
        checkPetsc(KSPGetConvergedReason(m_solver, &reason));
        PetscInt iterations = 0;
        checkPetsc(KSPGetIterationNumber(m_solver, &iterations));
        result.iterations = static_cast<int>(iterations);
        if (reason == KSP_DIVERGED_INDEFINITE_MAT || reason == KSP_DIVERGED_INDEFINITE_PC ||
            reason == KSP_DIVERGED_PC_FAILED)
            result.failure = LinSysFailure::singular;
        else if (reason < 0)
            result.failure = LinSysFailure::notConverged;
        if (reason == KSP_DIVERGED_ITS) {
            double residual = 0.0;
            checkPetsc(MatMult(m_matrix, m_solution, m_residual));
            checkPetsc(VecAXPY(m_residual, -1.0, m_right));
            checkPetsc(VecNorm(m_residual, NORM_2, &residual));
            result.relativeResidual = residual / rightNorm;
        }
        PetscScalar const * solved = nullptr;
        checkPetsc(VecGetArrayRead(m_solution, &solved));
        std::copy(solved, solved + numbers.size(), numbers.begin());
        checkPetsc(VecRestoreArrayRead(m_solution, &solved));
        return result;
    }

private:
    void create(Communicator const & ranks, int size, RowRange const & rows, Watch & watch)
    {
        checkPetsc(MatCreate(ranks.get(), &m_matrix));
        checkPetsc(MatSetSizes(m_matrix, rows.count(), rows.count(), size, size));
        checkPetsc(MatSetType(m_matrix, MATAIJ));
        // The call for the type that it is not does nothing.
        checkPetsc(MatSeqAIJSetPreallocationCSR(m_matrix, rows.begins.data(), rows.columns.data(),
                                                rows.values.data()));
        checkPetsc(MatMPIAIJSetPreallocationCSR(m_matrix, rows.begins.data(), rows.columns.data(),
                                                rows.values.data()));
        checkPetsc(MatSetOption(m_matrix, MAT_SPD, PETSC_TRUE));
        checkPetsc(MatCreateVecs(m_matrix, &m_solution, &m_right));
        checkPetsc(VecDuplicate(m_right, &m_residual));

        checkPetsc(KSPCreate(ranks.get(), &m_solver));
        checkPetsc(KSPSetOperators(m_solver, m_matrix, m_matrix));
        checkPetsc(KSPSetType(m_solver, KSPCG));
        checkPetsc(KSPSetNormType(m_solver, KSP_NORM_UNPRECONDITIONED));
        checkPetsc(KSPSetTolerances(m_solver, 0.0, 0.0, PETSC_DEFAULT, INT_MAX));
        checkPetsc(KSPSetConvergenceTest(m_solver, &Watch::test, &watch, nullptr));
        PC multigrid = nullptr;
        checkPetsc(KSPGetPC(m_solver, &multigrid));
        checkPetsc(PCSetType(multigrid, PCGAMG));
        // Neighbours of neighbours join the aggregates of the finest level, which halves the time to set up
        // and costs few iterations.
        checkPetsc(PCGAMGSetAggressiveLevels(multigrid, 1));
        OrderedProducts const products(ranks);
        checkPetsc(KSPSetUp(m_solver));
    }

    void destroy()
    {
        KSPDestroy(&m_solver);
        VecDestroy(&m_residual);
        VecDestroy(&m_right);
        VecDestroy(&m_solution);
        MatDestroy(&m_matrix);
    }

    Mat m_matrix = nullptr;
    Vec m_right = nullptr, m_solution = nullptr, m_residual = nullptr;
    KSP m_solver = nullptr;
};

} // namespace

template <class T>
MultigridCore<T>::MultigridCore(MPI_Comm comm, T eps, int maxIterations)
    : m_ranks(comm), m_eps(eps), m_maxIterations(maxIterations)
{
    ensurePetsc();
}

template <class T>
MultigridCore<T>::~MultigridCore() = default;

template <class T>
bool MultigridCore<T>::onSolveSystem(REmath::ILinearSystemReadOnly<T> const & system, int nRightParts,
                                     REmath::IVertexPosInformer<T> const ** informers,
                                     REmath::IEqSysResultReciever<T> ** recievers,
                                     CProgressCounter * progress)
{
    this->m_report = {};
    auto const isFailure = [&](LinSysFailure own) {
        LinSysFailure const failure = agreedFailure(m_ranks, own);
        this->setFailure(failure);
        return failure != LinSysFailure::none;
    };

    // Everything of the caller's is called inside `agreeOn`: no rank waits for one where it threw.
    std::optional<CPrgCntSubPhase> phase;
    std::optional<REmath::CCSRSquareMatrix<T>> copy;
    RowRange rows;
    LinSysFailure fault = LinSysFailure::none;
    int size = 0;
    agreeOn(m_ranks, [&] {
        phase.emplace(progress, 0, 10, 0, true);
        if (!system.IsCorrectlyDefinedSystem()) {
            fault = Detail::whyUndefined(system);
            return;
        }
        size = system.GetEquationsNumber();
    });
    if (isFailure(fault))
        return false;
    if (m_ranks.least(std::int64_t{size}) != m_ranks.greatest(std::int64_t{size}) ||
        m_ranks.least(std::int64_t{nRightParts}) != m_ranks.greatest(std::int64_t{nRightParts}))
        return !isFailure(LinSysFailure::malformed); // the ranks do not hold the same system
    if (size == 0 || nRightParts <= 0)
        return true;
    auto const firstRowOf = [&](std::int64_t rank) { return static_cast<int>(rank * size / m_ranks.size()); };
    agreeOn(m_ranks, [&] {
        ICsrMatrix<T> const & matrix = Detail::asCsrOrCopy(system, REmath::CSR_INDEX_BASE_0, copy);
        if (Detail::csrRowCount(matrix) != size || !Detail::isRowIndexComplete(matrix)) {
            fault = LinSysFailure::incomplete;
            return;
        }
        fault = RowReader<T>(matrix, firstRowOf(m_ranks.rank()), firstRowOf(m_ranks.rank() + 1)).read(rows);
        copy.reset();
    });
    if (isFailure(fault))
        return false;
    agreeOn(m_ranks, [&] { phase.emplace(progress, 10, 30, 0, true); });

    Watch watch(m_ranks, progress);
    Iteration iteration(m_ranks, size, rows, watch);
    rows = {};
    agreeOn(m_ranks, [&] { phase.emplace(progress, 30, 70, 0, true); });

    std::optional<CPrgCntSubPhase> partPhase;
    std::vector<T> whole(asIndex(size));
    for (int part = 0; part < nRightParts; ++part) {
        std::vector<double> own;
        agreeOn(m_ranks, [&] {
            partPhase.emplace(progress, static_cast<double>(part) / nRightParts, 1.0 / nRightParts, 1, true);
            system.SetSingleRightPart(whole.data(), *informers[part]);
            own.assign(whole.begin() + firstRowOf(m_ranks.rank()),
                       whole.begin() + firstRowOf(m_ranks.rank() + 1));
            fault =
                Detail::areFinite(own.data(), own.size()) ? LinSysFailure::none : LinSysFailure::notFinite;
        });
        if (isFailure(fault))
            return false;
        typename Iteration::Result const result =
            iteration.solve(own, static_cast<double>(m_eps),
                            m_maxIterations >= 1 ? m_maxIterations : defaultMaxIterations, watch);
        this->m_report.iterationsUsed += result.iterations;
        bool const isStopped = result.failure == LinSysFailure::notConverged && result.relativeResidual > 0;
        if (isStopped)
            this->m_report.noteStopped(static_cast<T>(result.relativeResidual), m_eps);
        if (!isStopped && isFailure(result.failure))
            return false;
        std::vector<double> const solution = m_ranks.gatherToAll(own);
        agreeOn(m_ranks, [&] {
            std::transform(solution.begin(), solution.end(), whole.begin(),
                           [](double element) { return static_cast<T>(element); });
            system.SetSingleSolution(whole.data(), *recievers[part]);
        });
        partPhase.reset();
    }
    if (this->m_report.isLimitReached)
        this->setFailure(LinSysFailure::notConverged);
    return !this->m_report.isLimitReached;
}

template class MultigridCore<float>;
template class MultigridCore<double>;

} // namespace QZmath::Distributed

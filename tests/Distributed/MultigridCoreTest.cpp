// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/MultigridCore.h>
#include <QZmath/LinSys/BulkSystem.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <support/SolverProperties.h>

namespace
{

using namespace testSupport;
using QZmath::Distributed::MultigridCore;
using QZmath::Distributed::RankError;

template <class T>
struct Multigrid
{
    using Scalar = T;
    static Candidates<T> everySolver(int)
    {
        Candidates<T> result;
        addOverStorages<MultigridCore>(result, "multigrid", Method::multigrid);
        return result;
    }
};

using Solvers = testing::Types<Multigrid<float>, Multigrid<double>>;

int rank()
{
    int own = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &own);
    return own;
}

int lastRank()
{
    int count = 0;
    MPI_Comm_size(MPI_COMM_WORLD, &count);
    return count - 1;
}

// States the rows in full, of which a symmetric system keeps one half.
template <class T>
void stateGrid(CBulkSystem<T> & system, CompressedMatrix const & upper)
{
    std::vector<std::vector<std::pair<int, T>>> rows(static_cast<std::size_t>(upper.size));
    for (int row = 0; row < upper.size; ++row)
        for (int position = upper.rowIndex[std::size_t(row)]; position < upper.rowIndex[std::size_t(row) + 1];
             ++position) {
            int const column = upper.columns[std::size_t(position)];
            T const value = T(upper.values[std::size_t(position)]);
            rows[std::size_t(row)].push_back({column, value});
            if (column != row)
                rows[std::size_t(column)].push_back({row, value});
        }
    std::vector<int> vertices, columns;
    std::vector<T> values;
    std::vector<std::int64_t> begins{0};
    for (int row = 0; row < upper.size; ++row) {
        vertices.push_back(row);
        for (auto const & [column, value] : rows[std::size_t(row)]) {
            columns.push_back(column);
            values.push_back(value);
        }
        begins.push_back(static_cast<std::int64_t>(columns.size()));
    }
    ASSERT_TRUE(system.defineFree(upper.size, vertices.data()));
    ASSERT_EQ(system.addEquations(upper.size, begins.data(), columns.data(), values.data()), BulkFault::none);
}

CompressedMatrix diagonalMatrix(std::vector<double> const & values)
{
    CompressedMatrix result;
    result.size = int(values.size());
    result.upperOnly = true;
    result.values = values;
    for (int row = 0; row <= result.size; ++row) {
        result.rowIndex.push_back(row);
        if (row < result.size)
            result.columns.push_back(row);
    }
    return result;
}

// A definite system of one fixed vertex through the interface of vertices.
CLinSysSolverCompose<double, Csr<double>, MultigridCore<double>> chainOf(int size)
{
    CLinSysSolverCompose<double, Csr<double>, MultigridCore<double>> chain;
    DenseMatrix matrix(size);
    for (int row = 0; row < size; ++row) {
        matrix(row, row) = 2.1;
        if (row > 0)
            matrix(row, row - 1) = matrix(row - 1, row) = -1;
    }
    chain.setSymmetric(true);
    stateSystem<double>(chain, matrix, std::vector<double>(std::size_t(size), 1.0));
    return chain;
}

} // namespace

namespace testSupport
{
INSTANTIATE_TYPED_TEST_SUITE_P(Multigrid, SolverProperties, Solvers, );
}

// Coarse levels come into play, and with them the number of iterations hardly grows with the grid.
TEST(MultigridCore, SolvesGridsInAFewIterationsOnAnyNumberOfRanks)
{
    std::mt19937 random(7);
    int leastIterations = 0;
    for (int side : {1, 2, 8, 24}) {
        CompressedMatrix const grid = gridOperator(side, 1, 1e-3, 0);
        std::vector<double> const wanted = randomVector(3 * grid.size, random);
        for (bool isHalf : {true, false}) {
            SCOPED_TRACE("side " + std::to_string(side) + (isHalf ? ", half" : ", full"));
            CBulkSystem<double> system(isHalf, isHalf);
            ASSERT_NO_FATAL_FAILURE(stateGrid(system, grid));
            std::vector<double> right(wanted.size()), solution(wanted.size());
            for (std::size_t part = 0; part < 3; ++part) {
                std::vector<double> column;
                for (std::size_t row = 0; row < std::size_t(grid.size); ++row)
                    column.push_back(wanted[3 * row + part]);
                column = grid.product(column);
                for (std::size_t row = 0; row < column.size(); ++row)
                    right[3 * row + part] = column[row];
            }
            MultigridCore<double> core(MPI_COMM_WORLD, 1e-10);
            ASSERT_TRUE(system.solve(core, 3, nullptr, right.data(), solution.data(), nullptr));
            EXPECT_LT(relativeDistance(solution, wanted), 1e-6);
            EXPECT_FALSE(core.isIterationLimitReached());
            if (side == 8)
                leastIterations = core.getIterationsUsed();
            if (side == 24) {
                EXPECT_LT(core.getIterationsUsed(), 2 * leastIterations);
            }

            // Of what is left at a limit, the report tells, and it is delivered.
            int const needed = core.getIterationsUsed();
            core.setMaxIterationsAllowed(2);
            if (side == 24) {
                EXPECT_FALSE(system.solve(core, 3, nullptr, right.data(), solution.data(), nullptr));
                EXPECT_EQ(core.lastFailure(), LinSysFailure::notConverged);
                EXPECT_TRUE(core.isIterationLimitReached());
                EXPECT_EQ(core.getIterationsUsed(), 6);
                EXPECT_LT(core.getIterationsUsed(), needed);
                EXPECT_GT(core.getRelativeResidual(), 1e-10);
                EXPECT_LT(core.getRelativeResidual(), 0.5);
                EXPECT_LT(relativeDistance(solution, wanted), 1.0);
            }
        }
    }
}

TEST(MultigridCore, SolvesWhatHasNoLevelsAndWhatIsScaledWildly)
{
    MultigridCore<double> core(MPI_COMM_WORLD, 1e-9);
    std::mt19937 random(8);
    for (int size : {1, 2, 5, 1000}) {
        std::vector<double> values, wanted = randomVector(size, random);
        for (int row = 0; row < size; ++row)
            values.push_back(std::ldexp(1.0, row % 20));
        CompressedMatrix const matrix = diagonalMatrix(values);
        CBulkSystem<double> system(true, true);
        ASSERT_NO_FATAL_FAILURE(stateGrid(system, matrix));
        std::vector<double> const right = matrix.product(wanted);
        std::vector<double> solution(right.size());
        EXPECT_TRUE(system.solve(core, 1, nullptr, right.data(), solution.data(), nullptr)) << size;
        EXPECT_LT(relativeDistance(matrix.product(solution), right), 1e-8) << size;
    }
    for (double scale : {1e-150, 1e150}) {
        CompressedMatrix grid = gridOperator(12, 1, 0.1, 0);
        for (double & value : grid.values)
            value *= scale;
        CBulkSystem<double> system(true, true);
        ASSERT_NO_FATAL_FAILURE(stateGrid(system, grid));
        std::vector<double> const wanted = randomVector(grid.size, random);
        std::vector<double> const right = grid.product(wanted);
        std::vector<double> solution(right.size());
        ASSERT_TRUE(system.solve(core, 1, nullptr, right.data(), solution.data(), nullptr));
        EXPECT_LT(relativeDistance(solution, wanted), 1e-6);
    }
}

TEST(MultigridCore, NamesWhatIsNotDefiniteNotFiniteOrTooLarge)
{
    MultigridCore<double> core(MPI_COMM_WORLD);
    CompressedMatrix grid = gridOperator(9, 1, 0.1, 0);
    std::vector<double> right(std::size_t(grid.size), 1.0), solution(right.size(), 77.0);
    auto const failureOf = [&](CompressedMatrix const & matrix) {
        CBulkSystem<double> system(true, true);
        stateGrid(system, matrix);
        EXPECT_FALSE(system.solve(core, 1, nullptr, right.data(), solution.data(), nullptr));
        EXPECT_EQ(solution, std::vector<double>(solution.size(), 77.0));
        return core.lastFailure();
    };
    // Diagonals that are positive, but too small: eigenvalues of both signs, and then negative ones only in
    // a part of the grid.
    CompressedMatrix indefinite = grid;
    for (int row = 0; row < grid.size; ++row)
        indefinite.values[std::size_t(grid.rowIndex[std::size_t(row)])] *= 0.5;
    EXPECT_EQ(failureOf(indefinite), LinSysFailure::singular);
    indefinite = grid;
    for (int row = grid.size / 2; row < grid.size / 2 + 20; ++row)
        indefinite.values[std::size_t(grid.rowIndex[std::size_t(row)])] *= 0.05;
    EXPECT_EQ(failureOf(indefinite), LinSysFailure::singular);
    CompressedMatrix negative = grid;
    negative.values[std::size_t(grid.rowIndex[std::size_t(grid.size - 1)])] *= -1;
    EXPECT_EQ(failureOf(negative), LinSysFailure::singular);
    right.back() = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(failureOf(grid), LinSysFailure::notFinite);
    // Squares beyond the largest number.
    right.assign(right.size(), 1e200);
    EXPECT_EQ(failureOf(grid), LinSysFailure::notConverged);

    // The rows of this one share their elements; together they are more than a rank can count.
    struct AllRowsTheSame : ILinearSystemReadOnly<double>, ICsrMatrix<double>
    {
        explicit AllRowsTheSame(int n)
            : size(n), begins(std::size_t(n), 0), ends(begins.size(), n), columns(begins.size()),
              values(begins.size(), 1.0)
        {
            for (int column = 0; column < n; ++column)
                columns[std::size_t(column)] = column;
        }
        bool onIsCorrectlyDefinedSystem() const override { return true; }
        void onSetSingleRightPart(double *, IVertexPosInformer<double> const &) const override {}
        int onGetEquationsNumber() const override { return size; }
        double onScalarProductByMatrixRow(int, int, double const *) const override { return 0; }
        double onGetFreeVertCoeff(int, int) const override { return 1; }
        void onSetSingleSolution(double const *, IEqSysResultReciever<double> &) const override {}
        bool onIsSymmetric() const override { return true; }
        bool onIsPositiveDefinite() const override { return true; }
        eCSRindexBase doGetIndexBase() const override { return CSR_INDEX_BASE_0; }
        bool doIsUpperTriangleOnlyStored() const override { return false; }
        int doGetMatrixSize() const override { return size; }
        int doGetNonZeroValuesNumber() const override { return size; }
        double const * doGetCsrValues() const override { return values.data(); }
        int const * doGetCsrColumns() const override { return columns.data(); }
        int const * doGetCsrPointerB() const override { return begins.data(); }
        int const * doGetCsrPointerE() const override { return ends.data(); }

        int size;
        std::vector<int> begins, ends, columns;
        std::vector<double> values;
    } const shared(46400 * (lastRank() + 1));
    PositionMap<double> positions;
    IVertexPosInformer<double> const * informers[] = {&positions};
    IEqSysResultReciever<double> * receivers[] = {&positions};
    EXPECT_FALSE(core.solveSystem(shared, 1, informers, receivers, nullptr));
    EXPECT_EQ(core.lastFailure(), LinSysFailure::noMemory);
}

// What only one rank meets ends the solve on all; the next one works.
TEST(MultigridCore, TellsAllRanksOfWhatOneOfThemMet)
{
    struct Faulty : PositionMap<double>
    {
        double GetVertexPosition(int vertex) const override
        {
            if (isFaultyInformer)
                throw std::runtime_error("no position");
            return PositionMap<double>::GetVertexPosition(vertex);
        }
        void SetVertexPosition(int vertex, double position) override
        {
            if (isFaultyReceiver)
                throw std::bad_alloc();
            PositionMap<double>::SetVertexPosition(vertex, position);
        }
        bool isFaultyInformer = false, isFaultyReceiver = false;
    };
    bool const isLast = rank() == lastRank();
    auto solver = chainOf(200);
    Faulty positions;
    positions.SetVertexPosition(fixedVertex, 1.0);
    IVertexPosInformer<double> const * informers[] = {&positions};
    IEqSysResultReciever<double> * receivers[] = {&positions};
    auto const solve = [&](CProgressCounter * progress) {
        return solver.SolveSystem(1, informers, receivers, progress);
    };
    positions.isFaultyInformer = isLast;
    try {
        solve(nullptr);
        FAIL();
    } catch (RankError const & error) {
        EXPECT_FALSE(isLast);
        EXPECT_EQ(error.rank(), lastRank());
        EXPECT_EQ(error.cause(), "no position");
    } catch (std::runtime_error const & error) {
        EXPECT_TRUE(isLast);
        EXPECT_STREQ(error.what(), "no position");
    }
    positions.isFaultyInformer = false;
    positions.isFaultyReceiver = isLast;
    EXPECT_THROW(solve(nullptr), std::bad_alloc);
    EXPECT_EQ(solver.lastFailure(), LinSysFailure::noMemory);
    positions.isFaultyReceiver = false;

    qz_test::ProgressRecorder counter;
    for (double beyond : {0.05, 0.2, 0.5}) {
        counter.interruptBeyond = beyond;
        EXPECT_THROW(solve(isLast ? &counter : nullptr), CUserIntrException) << beyond;
        EXPECT_EQ(solver.lastFailure(), LinSysFailure::interrupted);
    }
    EXPECT_TRUE(solve(nullptr));

    if (lastRank() > 0) {
        solver = chainOf(isLast ? 100 : 200);
        EXPECT_FALSE(solve(nullptr));
        EXPECT_EQ(solver.lastFailure(), LinSysFailure::malformed);
    }
}

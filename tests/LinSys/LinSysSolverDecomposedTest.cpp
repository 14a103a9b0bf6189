// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZsys/ParallelTasks.h>

#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include <support/SolverSystems.h>

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;

// A band matrix: neighbouring blocks are coupled weakly, as the cuts of a space are.
struct BandSystem
{
    explicit BandSystem(int size) : matrix(size)
    {
        std::mt19937 random(41);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        for (int row = 0; row < size; ++row) {
            matrix(row, row) = 6.0;
            for (int column = row + 1; column < std::min(row + 4, size); ++column)
                matrix(row, column) = matrix(column, row) = uniform(random);
        }
        right = testSupport::randomVector(size, random);
    }
    DenseMatrix matrix;
    std::vector<double> right;
};

struct Outcome
{
    bool succeeded = false;
    std::vector<double> solution;
    int deliveries = 0, iterations = 0;
    bool isLimitReached = false;
    double residual = 0.0;
    LinSysFailure failure = LinSysFailure::unknown;
};

Outcome decompose(DenseMatrix const & matrix, std::vector<double> const & right,
                  std::vector<int> const & boundaries, int rightParts = 1, int maxIterations = -1,
                  bool isSymmetric = true)
{
    CLinSysSolverSpaceDecomposer<double> solver(boundaries, 1e-10, maxIterations);
    solver.setSymmetric(isSymmetric);
    solver.setPositiveDefinite(isSymmetric);
    testSupport::stateSystem<double>(solver, matrix, right);
    Outcome run;
    auto const solutions = testSupport::solveWhole<double>(solver, rightParts, run.succeeded);
    run.solution = solutions[0].values;
    for (auto const & receiver : solutions)
        run.deliveries += receiver.calls;
    run.iterations = solver.getIterationsUsed();
    run.isLimitReached = solver.isIterationLimitReached();
    run.residual = solver.getRelativeResidual();
    run.failure = solver.lastFailure();
    return run;
}

TEST(Decomposed, AnyAscendingBoundariesGiveTheSolution)
{
    std::mt19937 random(41);
    int const size = 60;
    auto const [matrix, right] = BandSystem(size);
    std::vector<double> const expected = testSupport::eliminate(matrix, right);
    std::vector<std::vector<int>> cases{
        {}, {0}, {0, size}, {size}, {30}, {0, 0, 0, 30, 30, 30, size, size, size}, {1, 2, 3, 4, 5, 6, 7}};
    for (int round = 0; round < 20; ++round) {
        std::vector<int> boundaries;
        for (int count = int(random() % 9); count > 0; --count)
            boundaries.push_back(int(random() % (size + 1)));
        std::sort(boundaries.begin(), boundaries.end());
        cases.push_back(boundaries);
    }
    for (auto const & boundaries : cases) {
        Outcome const run = decompose(matrix, right, boundaries, 2);
        SCOPED_TRACE(testing::PrintToString(boundaries));
        ASSERT_TRUE(run.succeeded);
        EXPECT_EQ(run.deliveries, 2 * size);
        EXPECT_LT(testSupport::relativeDistance(run.solution, expected), 1e-9);
    }
    EXPECT_EQ(decompose(matrix, right, {}).iterations, 0);
    EXPECT_GT(decompose(matrix, right, {30}).iterations, 0);
}

TEST(Decomposed, BadBoundariesAndBreakdownsFail)
{
    auto const [matrix, right] = BandSystem(20);
    int const huge = std::numeric_limits<int>::max(), lowest = std::numeric_limits<int>::min();
    for (std::vector<int> const & boundaries : std::vector<std::vector<int>>{
             {10, 5}, {-1}, {-5, 10, 20}, {0, 21}, {0, huge}, {lowest, 3}, {5, 25, 20}, {20, 0}}) {
        Outcome const run = decompose(matrix, right, boundaries);
        EXPECT_FALSE(run.succeeded) << testing::PrintToString(boundaries);
        EXPECT_TRUE(run.deliveries == 0 && run.failure == LinSysFailure::malformed);
    }
    // So does a breakdown at the root.
    Outcome const run = decompose(matrix, std::vector<double>(20, 0.0), {10}, 2);
    EXPECT_FALSE(run.succeeded);
    EXPECT_EQ(run.deliveries, 0);
}

TEST(Decomposed, UnsolvableLeavesKeepZerosForTheMerge)
{
    // The second block alone is singular, the whole is not.
    DenseMatrix matrix(4);
    matrix.elements = {4, 1, 1, 0, 1, 4, 0, 1, 1, 0, 1, 1, 0, 2, 1, 1};
    std::vector<double> const right{1.0, 2.0, 3.0, 5.0};
    Outcome const run = decompose(matrix, right, {2}, 1, 100, false);
    ASSERT_TRUE(run.succeeded);
    EXPECT_LT(testSupport::relativeDistance(run.solution, testSupport::eliminate(matrix, right)), 1e-8);
}

TEST(Decomposed, TheLimitOfTheWholeSystemIsTold)
{
    auto const [matrix, right] = BandSystem(60);
    Outcome const run = decompose(matrix, right, {15, 30, 45}, 1, 1);
    ASSERT_TRUE(run.succeeded && run.isLimitReached);
    EXPECT_TRUE(run.iterations == 3 && run.failure == LinSysFailure::notConverged);
    std::vector<double> const product = testSupport::compress(matrix, false, 0).product(run.solution);
    EXPECT_NEAR(run.residual, testSupport::relativeDistance(product, right), 1e-12);
}

TEST(Decomposed, BitsDoNotDependOnTheNumberOfThreads)
{
    auto const [matrix, right] = BandSystem(200);
    std::vector<int> const boundaries{20, 40, 60, 80, 100, 120, 140, 160, 180};
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(1);
    std::vector<double> const alone = decompose(matrix, right, boundaries).solution;
    for (int const threads : {2, 3, 16}) {
        CVescaThreadingTasksHelper::setNumOfPhisicalThread(threads);
        EXPECT_EQ(decompose(matrix, right, boundaries).solution, alone) << threads;
    }
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
}

} // namespace

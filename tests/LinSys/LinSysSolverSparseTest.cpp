// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverSparse.h>

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

#include <support/SolverSystems.h>

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;

// Compressed rows with a hole behind each, as somebody keeps them whose rows may grow.
class RowsWithHoles : public CCSRSquareMatrix<double>
{
public:
    RowsWithHoles(DenseMatrix const & dense, int base, bool upperOnly)
    {
        initMemory(dense.size, 0, eCSRindexBase(base), upperOnly);
        for (int row = 0; row < dense.size; ++row) {
            getCsrPointerBMod()[row] = getCsrColumnsSize() + base;
            for (int column = upperOnly ? row : 0; column < dense.size; ++column)
                if (dense(row, column) != 0)
                    append(column + base, dense(row, column));
            m_ends.push_back(getCsrValuesSize() + base);
            append(-77, std::nan(""));
        }
        getCsrPointerEMod()[dense.size - 1] = getCsrValuesSize() + base;
    }

private:
    void append(int column, double value)
    {
        pushBackCsrColumn(column);
        pushBackCsrValue(value);
    }
    int const * doGetCsrPointerE() const override { return m_ends.data(); }

    std::vector<int> m_ends;
};

TEST(ExplicitMatrices, MayHaveHolesBetweenTheirRows)
{
    std::mt19937 random(37);
    DenseMatrix const matrix = testSupport::randomSparse(50, 5.0, true, 1.1, random);
    std::vector<double> const right = testSupport::randomVector(50, random);
    std::vector<double> const expected = testSupport::eliminate(matrix, right);
    for (int base : {0, 1})
        for (bool upperOnly : {false, true}) {
            RowsWithHoles const rows(matrix, base, upperOnly);
            std::vector<double> solution(50);
            CLinSysSolverSparseDss<double> direct;
            ASSERT_TRUE(direct.solveForExplicitMatrix(solution.data(), rows, true, right.data(), nullptr));
            EXPECT_LT(testSupport::relativeDistance(solution, expected), 1e-12);
            auto const iterate = [&](double eps, int maxIterations) {
                CLinSysSolverSparseMKL<double> iterative(0.5, 10);
                iterative.setBicgstabEps(eps);
                iterative.setMaxIterationsAllowed(maxIterations);
                solution.assign(50, 0.0);
                return iterative.solveForExplicitMatrix(solution.data(), rows, right.data(), nullptr);
            };
            EXPECT_EQ(iterate(1e-12, 3), 3);
            EXPECT_GT(iterate(1e-12, -1), iterate(1e-3, -1));
            iterate(1e-12, -1);
            EXPECT_LT(testSupport::relativeDistance(solution, expected), 1e-10);
        }
    CCSRSquareMatrix<double> unfinished;
    unfinished.initMemory(1, 0, CSR_INDEX_BASE_0, false);
    double element = 7;
    CLinSysSolverSparseDss<double> direct;
    CLinSysSolverSparseMKL<double> iterative(1e-6, 10);
    EXPECT_FALSE(direct.solveForExplicitMatrix(&element, unfinished, true, right.data(), nullptr));
    EXPECT_EQ(iterative.solveForExplicitMatrix(&element, unfinished, right.data(), nullptr), -1);
    EXPECT_EQ(direct.lastFailure(), LinSysFailure::incomplete);
    EXPECT_TRUE(iterative.lastFailure() == LinSysFailure::incomplete && element == 7);
}

TEST(IterativeSolver, DeliversWhatItHasAndTellsTheLimit)
{
    std::mt19937 random(33);
    DenseMatrix const matrix = testSupport::randomSparse(60, 6.0, true, 1.02, random);
    std::vector<double> const right = testSupport::randomVector(60, random);
    CSparseStoreBicgstabLinSysSolver<double> solver(0, 1e-6, 2);
    solver.setSymmetric(true);
    testSupport::stateSystem<double>(solver, matrix, right);
    bool succeeded = false;
    auto const stopped = testSupport::solveWhole<double>(solver, 2, succeeded);
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(solver.getIterationsUsed(), 4);
    ASSERT_TRUE(solver.isIterationLimitReached());
    EXPECT_EQ(solver.lastFailure(), LinSysFailure::notConverged);
    double expectedResidual = 0.0;
    for (int part = 0; part < 2; ++part) {
        auto const product =
            testSupport::compress(matrix, false, 0).product(stopped[std::size_t(part)].values);
        std::vector<double> b = right;
        for (double & element : b)
            element *= part + 1;
        expectedResidual = std::max(expectedResidual, testSupport::relativeDistance(product, b));
    }
    EXPECT_NEAR(solver.getRelativeResidual(), expectedResidual, 1e-3 * expectedResidual);

    solver.setMaxIterations(500);
    testSupport::solveWhole<double>(solver, 2, succeeded);
    EXPECT_FALSE(solver.isIterationLimitReached());
    EXPECT_EQ(solver.getRelativeResidual(), 0.0);
    EXPECT_EQ(solver.lastFailure(), LinSysFailure::none);

    // A right part of zeros: breakdown, counted as -1, and delivered all the same.
    CSparseStoreBicgstabLinSysSolver<double> zeros(0, 1e-6, 10);
    testSupport::stateSystem<double>(zeros, matrix, std::vector<double>(60, 0.0));
    auto const none = testSupport::solveWhole<double>(zeros, 3, succeeded);
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(zeros.getIterationsUsed(), -3);
    EXPECT_EQ(none[2].values, std::vector<double>(60, 0.0));
}

TEST(DirectSolvers, LiftSolvesSemidefiniteSystemsThatHaveSolutionsOnly)
{
    // The graph of a ring: constants are the kernel.
    int const size = 40;
    DenseMatrix matrix(size);
    for (int row = 0; row < size; ++row) {
        matrix(row, row) = 2.0;
        matrix(row, (row + 1) % size) = matrix((row + 1) % size, row) = -1.0;
    }
    std::mt19937 random(35);
    std::vector<double> const wanted = testSupport::randomVector(size, random);
    std::vector<double> const solvable = testSupport::compress(matrix, false, 0).product(wanted);
    for (bool const hasSolution : {true, false})
        for (double const lift : {0.0, 1e-13}) {
            CSparseStoreSparseLinSysSolver<double> solver;
            solver.setSymmetric(true);
            solver.setPositiveDefinite(true);
            solver.setSemidefiniteLift(lift);
            testSupport::stateSystem<double>(
                solver, matrix, hasSolution ? solvable : std::vector<double>(std::size_t(size), 1.0));
            std::unique_ptr<CSparseStoreSparseLinSysSolver<double>> const copy(solver.Copy());
            bool succeeded = false;
            auto const solutions = testSupport::solveWhole<double>(*copy, 1, succeeded);
            EXPECT_EQ(succeeded, hasSolution && lift > 0) << hasSolution << lift;
            EXPECT_EQ(copy->getConditionEstimate(), 0.0);
            if (!succeeded)
                continue;
            // The lift is all that the least eigenvalue has of the diagonal; the norm is 2 diagonal elements.
            copy->setConditionEstimated(true);
            testSupport::solveWhole<double>(*copy, 1, succeeded);
            EXPECT_GT(copy->getConditionEstimate(), 0.5 / lift);
            EXPECT_LT(copy->getConditionEstimate(), 4.0 / lift);
            auto const product = testSupport::compress(matrix, false, 0).product(solutions[0].values);
            EXPECT_LT(testSupport::relativeDistance(product, solvable), 1e-9);
        }
}

} // namespace

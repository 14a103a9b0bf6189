// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <support/SolverSystems.h>

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;

template <class T>
class Solvers : public testing::Test
{
protected:
    using Storage = CCSRSstorage<T>;

    /// Every composition and ready solver, empty.
    static std::vector<std::unique_ptr<IVertexPosLinearSystem<T>>> all(int size)
    {
        T const eps = T(1e-6f);
        std::vector<std::unique_ptr<IVertexPosLinearSystem<T>>> result;
        result.emplace_back(new CLinSysSolverCompose<T, Storage, CLinSysSolverSparseDss<T>>);
        result.emplace_back(new CLinSysSolverCompose<T, Storage, CLinSysSolverSparseMKL<T>>);
        result.emplace_back(new CLinSysSolverCompose<T, Storage, CLinSysSolverCoreBicgstab<T>>);
        result.emplace_back(new CLinSysSolverCompose<T, Storage, CLinSysSolverDecomposed<T>>);
        result.emplace_back(new CSparseStoreSparseLinSysSolver<T>(5));
        result.emplace_back(new CSparseStoreBicgstabLinSysSolver<T>(5, eps, -1));
        result.emplace_back(new CLinSysSolverSpaceDecomposer<T>({size / 3, size / 2}, 1e-6, -1));
        return result;
    }
};
using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(Solvers, Scalars, );

TYPED_TEST(Solvers, CoresTakeMatricesOfBothIndexBases)
{
    using T = TypeParam;
    std::mt19937 random(32);
    for (int const layout : {0, 1, 2, 3}) {
        bool const symmetric = layout < 2;
        DenseMatrix const matrix = testSupport::randomSparse(30, 4.0, symmetric, 1.3, random);
        std::vector<double> const right = testSupport::randomVector(30, random);
        CCSRSstorage<T> storage;
        storage.setIndexBase(layout % 2);
        storage.setSymmetric(symmetric);
        storage.setPositiveDefinite(symmetric);
        testSupport::stateSystem<T>(storage, matrix, right);
        CLinSysSolverSparseDss<T> direct;
        CLinSysSolverSparseMKL<T> iterative(T(1e-6f), 100);
        CLinSysSolverCoreBicgstab<T> rowWise;
        for (ILinSysSolverCore<T> * core :
             std::initializer_list<ILinSysSolverCore<T> *>{&direct, &iterative, &rowWise}) {
            bool succeeded = false;
            auto const solutions =
                testSupport::solveFor<T>(1, succeeded, [&](int count, auto informers, auto receivers) {
                    return core->solveSystem(storage, count, informers, receivers, nullptr);
                });
            ASSERT_TRUE(succeeded);
            EXPECT_LT(
                testSupport::relativeDistance(solutions[0].values, testSupport::eliminate(matrix, right)),
                (sizeof(T) == 4 ? 2e-4 : 1e-5));
        }
    }
}

TYPED_TEST(Solvers, IncompleteAndEmptySystems)
{
    using T = TypeParam;
    bool succeeded = false;
    int number = 0;
    for (auto const & solver : this->all(0)) {
        SCOPED_TRACE(number++);
        testSupport::solveWhole<T>(*solver, 2, succeeded);
        EXPECT_TRUE(succeeded); // no equations
        std::unique_ptr<IVertexPosLinearSystem<T>> const incomplete(solver->Copy());
        incomplete->DefineFreeVertex(0);
        incomplete->DefineFreeVertex(1);
        CVertexLinearCombination<T> equation;
        equation.AddVertex(0, T(1));
        incomplete->AddEquation(equation);
        auto const solutions = testSupport::solveWhole<T>(*incomplete, 1, succeeded);
        EXPECT_FALSE(succeeded);
        EXPECT_EQ(solutions[0].calls, 0);
    }
}

TYPED_TEST(Solvers, IterativeSolverDeliversWhatItHasAndTellsTheLimit)
{
    using T = TypeParam;
    std::mt19937 random(33);
    DenseMatrix const matrix = testSupport::randomSparse(60, 6.0, true, 1.02, random);
    std::vector<double> const right = testSupport::randomVector(60, random);
    CSparseStoreBicgstabLinSysSolver<T> solver(0, T(1e-6f), 2);
    solver.setSymmetric(true);
    testSupport::stateSystem<T>(solver, matrix, right);
    bool succeeded = false;
    auto const stopped = testSupport::solveWhole<T>(solver, 2, succeeded);
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(solver.getIterationsUsed(), 4);
    ASSERT_TRUE(solver.isIterationLimitReached());
    double expectedResidual = 0.0;
    for (int part = 0; part < 2; ++part) {
        std::vector<double> product = testSupport::compress(matrix, false, 0)
                                          .product(stopped[std::size_t(part)].values),
                            b = right;
        for (double & element : b)
            element *= part + 1;
        expectedResidual = std::max(expectedResidual, testSupport::relativeDistance(product, b));
    }
    EXPECT_NEAR(double(solver.getRelativeResidual()), expectedResidual, 1e-3 * expectedResidual);

    solver.setMaxIterations(500);
    testSupport::solveWhole<T>(solver, 2, succeeded);
    EXPECT_FALSE(solver.isIterationLimitReached());
    EXPECT_EQ(solver.getRelativeResidual(), T(0));

    // A right part of zeros: breakdown, counted as -1, and delivered all the same.
    CSparseStoreBicgstabLinSysSolver<T> zeros(0, T(1e-6f), 10);
    testSupport::stateSystem<T>(zeros, matrix, std::vector<double>(60, 0.0));
    auto const none = testSupport::solveWhole<T>(zeros, 3, succeeded);
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(zeros.getIterationsUsed(), -3);
    EXPECT_EQ(none[2].values, std::vector<double>(60, 0.0));
}

TEST(DirectSolvers, InfiniteElementsFailAndDeliverNothing)
{
    std::mt19937 random(34);
    DenseMatrix infinite = testSupport::randomSparse(6, 2.0, true, 1.5, random);
    infinite(2, 2) = std::numeric_limits<double>::infinity();
    for (bool const definite : {true, false}) {
        CSparseStoreSparseLinSysSolver<double> solver;
        solver.setSymmetric(true);
        solver.setPositiveDefinite(definite);
        testSupport::stateSystem<double>(solver, infinite, std::vector<double>(6, 1.0));
        bool succeeded = true;
        auto const solutions = testSupport::solveWhole<double>(solver, 2, succeeded);
        EXPECT_FALSE(succeeded);
        EXPECT_EQ(solutions[0].calls + solutions[1].calls, 0);
    }
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
            if (succeeded) {
                EXPECT_LT(testSupport::relativeDistance(
                              testSupport::compress(matrix, false, 0).product(solutions[0].values), solvable),
                          1e-9);
            }
        }
}

class ThrowingCounter : public CProgressCounter
{
public:
    explicit ThrowingCounter(int reportsAllowed) : m_left(reportsAllowed) {}
    int reports = 0;

private:
    void onPosition(double overall) override
    {
        EXPECT_GE(overall, m_last);
        m_last = overall < 1 ? overall : 0.0;
        ++reports;
        if (m_left-- == 0)
            throw CUserIntrException("user interruption");
    }
    int m_left;
    double m_last = 0.0;
};

TYPED_TEST(Solvers, InterruptionPassesFromEveryReport)
{
    using T = TypeParam;
    std::mt19937 random(36);
    DenseMatrix const matrix = testSupport::randomSparse(150, 4.0, true, 1.2, random);
    std::vector<double> const right = testSupport::randomVector(150, random);
    for (auto const & solver : this->all(150)) {
        solver->setSymmetric(true);
        solver->setPositiveDefinite(true);
        testSupport::stateSystem<T>(*solver, matrix, right);
        bool succeeded = false;
        ThrowingCounter counting(std::numeric_limits<int>::max());
        testSupport::solveWhole<T>(*solver, 2, succeeded, &counting);
        ASSERT_GT(counting.reports, 3);
        EXPECT_EQ(counting.getPosFloat(), 1.0);
        int const step = 1 + counting.reports / 40;
        for (int allowed = 0; allowed + 2 < counting.reports; allowed += step) {
            ThrowingCounter counter(allowed);
            EXPECT_THROW(testSupport::solveWhole<T>(*solver, 2, succeeded, &counter), CUserIntrException);
        }
    }
}

} // namespace

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
#include <thread>
#include <vector>

#include <support/SolverSystems.h>

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;
using testSupport::Receiver;

template <class T>
constexpr double tolerance = std::is_same_v<T, float> ? 2e-4 : 1e-5;

/// A system that is no compressed-row matrix: a storage seen through the reading interface alone.
template <class T>
class OtherSystem : public ILinearSystemReadOnly<T>
{
public:
    explicit OtherSystem(CCSRSstorage<T> const & storage) : m_storage(storage) {}

private:
    bool onIsCorrectlyDefinedSystem() const override { return m_storage.IsCorrectlyDefinedSystem(); }
    void onSetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const override
    {
        m_storage.SetSingleRightPart(rightPart, informer);
    }
    int onGetEquationsNumber() const override { return m_storage.GetEquationsNumber(); }
    T onScalarProductByMatrixRow(int row, int size, T const * vector) const override
    {
        return m_storage.ScalarProductByMatrixRow(row, size, vector);
    }
    T onGetFreeVertCoeff(int row, int column) const override
    {
        return static_cast<ILinearSystemReadOnly<T> const &>(m_storage).GetFreeVertCoeff(row, column);
    }
    void onSetSingleSolution(T const * solution, IEqSysResultReciever<T> & reciever) const override
    {
        m_storage.SetSingleSolution(solution, reciever);
    }
    bool onIsSymmetric() const override { return m_storage.isSymmetric(); }
    bool onIsPositiveDefinite() const override { return m_storage.isPositiveDefinite(); }

    CCSRSstorage<T> const & m_storage;
};

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

TYPED_TEST(Solvers, EverySolverAndItsCopyAgreeWithElimination)
{
    using T = TypeParam;
    std::mt19937 random(31);
    for (int round = 0; round < 8; ++round) {
        int const size = 12 + int(random() % 40);
        bool const symmetric = round % 2 == 0;
        DenseMatrix const matrix = testSupport::randomSparse(size, 4.0, symmetric, 1.3, random);
        std::vector<double> const right = testSupport::randomVector(size, random);
        std::vector<double> const expected = testSupport::eliminate(matrix, right);
        int number = 0;
        for (auto const & solver : this->all(size)) {
            SCOPED_TRACE(number++);
            solver->setSymmetric(symmetric);
            solver->setPositiveDefinite(symmetric);
            testSupport::stateSystem<T>(*solver, matrix, right);
            ASSERT_TRUE(solver->IsCorrectlyDefinedSystem());
            std::unique_ptr<IVertexPosLinearSystem<T>> const copy(solver->Copy());
            EXPECT_TRUE(typeid(*copy) == typeid(*solver));
            bool succeeded = false;
            auto const solutions = testSupport::solveWhole<T>(*solver, 3, succeeded);
            ASSERT_TRUE(succeeded);
            for (int part = 0; part < 3; ++part) {
                std::vector<double> scaled = expected;
                for (double & element : scaled)
                    element *= part + 1;
                EXPECT_LT(testSupport::relativeDistance(solutions[std::size_t(part)].values, scaled),
                          tolerance<T>);
            }
            auto const again = testSupport::solveWhole<T>(*solver, 3, succeeded);
            EXPECT_EQ(again[2].values, solutions[2].values);
            auto const ofCopy = testSupport::solveWhole<T>(*copy, 3, succeeded);
            EXPECT_TRUE(succeeded);
            EXPECT_EQ(ofCopy[2].values, solutions[2].values);
        }
    }
}

// The cores see the system without its matrix, or with a matrix of the other index base.
TYPED_TEST(Solvers, CoresTakeSystemsOfAnyMaking)
{
    using T = TypeParam;
    std::mt19937 random(32);
    for (bool const symmetric : {true, false})
        for (int const base : {0, 1}) {
            DenseMatrix const matrix = testSupport::randomSparse(30, 4.0, symmetric, 1.3, random);
            std::vector<double> const right = testSupport::randomVector(30, random);
            std::vector<double> const expected = testSupport::eliminate(matrix, right);
            CCSRSstorage<T> storage;
            storage.setIndexBase(base);
            storage.setSymmetric(symmetric);
            storage.setPositiveDefinite(symmetric);
            testSupport::stateSystem<T>(storage, matrix, right);
            OtherSystem<T> const other(storage);
            CLinSysSolverSparseDss<T> direct;
            CLinSysSolverSparseMKL<T> iterative(T(1e-6f), 100);
            CLinSysSolverCoreBicgstab<T> rowWise;
            for (ILinSysSolverCore<T> * core :
                 std::initializer_list<ILinSysSolverCore<T> *>{&direct, &iterative, &rowWise})
                for (ILinearSystemReadOnly<T> const * system :
                     std::initializer_list<ILinearSystemReadOnly<T> const *>{&storage, &other}) {
                    bool succeeded = false;
                    auto const solutions = testSupport::solveFor<T>(
                        2, succeeded, [&](int count, auto informers, auto receivers) {
                            return core->solveSystem(*system, count, informers, receivers, nullptr);
                        });
                    ASSERT_TRUE(succeeded);
                    EXPECT_LT(testSupport::relativeDistance(solutions[0].values, expected), tolerance<T>);
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

TEST(DirectSolvers, FailuresDeliverNothing)
{
    std::mt19937 random(34);
    DenseMatrix singular(6), infinite = testSupport::randomSparse(6, 2.0, true, 1.5, random);
    for (int row = 0; row < 6; ++row)
        for (int column = 0; column < 6; ++column)
            singular(row, column) = 1.0;
    infinite(2, 2) = std::numeric_limits<double>::infinity();
    for (DenseMatrix const & matrix : {singular, infinite})
        for (bool const definite : {true, false}) {
            CSparseStoreSparseLinSysSolver<double> solver;
            solver.setSymmetric(true);
            solver.setPositiveDefinite(definite);
            testSupport::stateSystem<double>(solver, matrix, std::vector<double>(6, 1.0));
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
    void onPosition(double) override
    {
        ++reports;
        if (m_left-- == 0)
            throw CUserIntrException("user interruption");
    }
    int m_left;
};

TYPED_TEST(Solvers, InterruptionPassesFromEveryReport)
{
    using T = TypeParam;
    std::mt19937 random(36);
    DenseMatrix const matrix = testSupport::randomSparse(25, 4.0, true, 1.2, random);
    std::vector<double> const right = testSupport::randomVector(25, random);
    for (auto const & solver : this->all(25)) {
        solver->setSymmetric(true);
        solver->setPositiveDefinite(true);
        testSupport::stateSystem<T>(*solver, matrix, right);
        bool succeeded = false;
        ThrowingCounter counting(std::numeric_limits<int>::max());
        testSupport::solveWhole<T>(*solver, 2, succeeded, &counting);
        ASSERT_GT(counting.reports, 3);
        EXPECT_EQ(counting.getPosFloat(), 1.0);
        for (int allowed = 0; allowed + 2 < counting.reports; ++allowed) {
            ThrowingCounter counter(allowed);
            EXPECT_THROW(testSupport::solveWhole<T>(*solver, 2, succeeded, &counter), CUserIntrException);
        }
    }
}

TEST(DirectSolvers, SolversOnSeveralThreadsGiveTheBitsOfOne)
{
    std::mt19937 random(37);
    DenseMatrix const matrix = testSupport::randomSparse(150, 8.0, true, 1.1, random);
    std::vector<double> const right = testSupport::randomVector(150, random);
    CSparseStoreSparseLinSysSolver<double> solver;
    solver.setSymmetric(true);
    solver.setPositiveDefinite(true);
    testSupport::stateSystem<double>(solver, matrix, right);
    bool succeeded = false;
    auto const serial = testSupport::solveWhole<double>(solver, 1, succeeded);
    ASSERT_TRUE(succeeded);
    std::vector<std::vector<double>> results(4);
    std::vector<std::thread> threads;
    for (auto & result : results)
        threads.emplace_back(
            [&, copy = std::shared_ptr<CSparseStoreSparseLinSysSolver<double>>(solver.Copy())] {
                bool ok = false;
                result = testSupport::solveWhole<double>(*copy, 1, ok)[0].values;
            });
    for (std::thread & thread : threads)
        thread.join();
    for (auto const & result : results)
        EXPECT_EQ(result, serial[0].values);
}

} // namespace

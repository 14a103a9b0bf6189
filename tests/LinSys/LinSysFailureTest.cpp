// SPDX-License-Identifier: Apache-2.0
#include <LinSys/EverySolver.h>
#include <QZmath/LinSys/LinSysFailure.h>
#include <QZsys/Exceptions.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include <support/Recorders.h>

// Every solver names the reason of every failure.

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;
using testSupport::Method;
using testSupport::Solver;

constexpr int size = 12;

template <class T>
std::vector<Solver<T>> everySolver(int maxIterations = 1000)
{
    return testSupport::everySolver<T>(size, maxIterations);
}

template <class T>
bool solve(IVertexPosLinearSystem<T> & system, CProgressCounter * progress = nullptr)
{
    bool succeeded = false;
    testSupport::solveWhole<T>(system, 1, succeeded, progress);
    return succeeded;
}

template <class T>
class LinSysFailureTest : public testing::Test
{
protected:
    std::mt19937 random{5};
    DenseMatrix matrix = testSupport::randomSparse(size, 4.0, true, 1.4, random);
    std::vector<double> right = testSupport::randomVector(size, random);
};

using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(LinSysFailureTest, Scalars, );

} // namespace

TYPED_TEST(LinSysFailureTest, MisusedAndUnfinishedSystems)
{
    using T = TypeParam;
    for (Solver<T> const & solver : everySolver<T>()) {
        SCOPED_TRACE(int(solver.method));
        IVertexPosLinearSystem<T> & system = *solver.system;
        system.DefineFreeVertex(0);
        std::unique_ptr<IVertexPosLinearSystem<T>> const unfinished(system.Copy());
        unfinished->DefineFreeVertex(1);
        CVertexLinearCombination<T> equation;
        equation.AddVertex(0, T(1));
        unfinished->AddEquation(equation);
        // With boundaries that suit it, but not the system, the decomposing solver complains of them first.
        LinSysFailure const expected =
            solver.method == Method::decomposed ? LinSysFailure::malformed : LinSysFailure::incomplete;
        EXPECT_FALSE(solve(*unfinished));
        EXPECT_EQ(unfinished->lastFailure(), expected);

        system.AddEquation(CVertexLinearCombination<T>());
        system.DefineFreeVertex(0);
        ASSERT_TRUE(system.IsSpoiled());
        if (!solve(system)) { // a system without equations is solved already
            EXPECT_EQ(system.lastFailure(), LinSysFailure::spoiled);
        }
    }
}

TYPED_TEST(LinSysFailureTest, SingularAndInfiniteMatrices)
{
    using T = TypeParam;
    DenseMatrix singular = this->matrix, infinite = this->matrix;
    for (int other = 0; other < size; ++other)
        singular(3, other) = singular(other, 3) = 0;
    infinite(4, 4) = std::numeric_limits<double>::infinity();
    for (bool const isDefinite : {false, true}) {
        for (Solver<T> const & solver : everySolver<T>(50)) {
            if (solver.method != Method::direct && solver.method != Method::dense)
                continue;
            std::unique_ptr<IVertexPosLinearSystem<T>> const other(solver.system->Copy());
            solver.system->setPositiveDefinite(isDefinite);
            other->setPositiveDefinite(isDefinite);
            testSupport::stateSystem<T>(*solver.system, singular, this->right);
            EXPECT_FALSE(solve(*solver.system));
            EXPECT_EQ(solver.system->lastFailure(), LinSysFailure::singular);
            testSupport::stateSystem<T>(*other, infinite, this->right);
            EXPECT_TRUE(!solve(*other) || solver.method == Method::dense);
            EXPECT_EQ(other->lastFailure(), LinSysFailure::notFinite);
        }
    }
    // The direct solve of a decomposing solver without boundaries gives true all the same.
    CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverDecomposed<T>> whole;
    testSupport::stateSystem<T>(whole, singular, this->right);
    EXPECT_TRUE(solve(whole));
    EXPECT_EQ(whole.lastFailure(), LinSysFailure::singular);
}

TYPED_TEST(LinSysFailureTest, IterationsThatDoNotConverge)
{
    using T = TypeParam;
    std::vector<double> const zeros(size, 0.0);
    for (Solver<T> const & solver : everySolver<T>(1)) {
        if (solver.method == Method::direct || solver.method == Method::dense)
            continue;
        SCOPED_TRACE(int(solver.method));
        std::unique_ptr<IVertexPosLinearSystem<T>> const zero(solver.system->Copy());
        testSupport::stateSystem<T>(*zero, this->matrix, zeros); // a breakdown
        EXPECT_EQ(solve(*zero), solver.method == Method::bestApproach);
        EXPECT_EQ(zero->lastFailure(), LinSysFailure::notConverged);
        if (solver.method == Method::iterative)
            continue; // has no limit
        testSupport::stateSystem<T>(*solver.system, this->matrix, this->right);
        EXPECT_TRUE(solve(*solver.system));
        EXPECT_EQ(solver.system->lastFailure(), LinSysFailure::notConverged);
    }
    CLinSysSolverSparseMKL<T> core(T(1e-6), 10);
    std::vector<T> solution(size), zeroRight(size);
    CCSRSquareMatrix<T> unfinished;
    EXPECT_EQ(core.solveForExplicitMatrix(solution.data(), unfinished, zeroRight.data(), nullptr), -1);
    EXPECT_NE(core.lastFailure(), LinSysFailure::none);
}

// What passes through is noted, and the next solve starts anew.
TYPED_TEST(LinSysFailureTest, ExceptionsAndTheSolveAfterThem)
{
    using T = TypeParam;
    struct ShortOfMemory : IVertexPosInformer<T>
    {
        T GetVertexPosition(int) const override { throw std::bad_alloc(); }
    };
    for (Solver<T> const & solver : everySolver<T>()) {
        SCOPED_TRACE(int(solver.method));
        IVertexPosLinearSystem<T> & system = *solver.system;
        EXPECT_EQ(system.lastFailure(), LinSysFailure::none);
        testSupport::stateSystem<T>(system, this->matrix, this->right);
        qz_test::ProgressRecorder counter;
        counter.inPosition = [] { throw CUserIntrException("user interruption"); };
        EXPECT_THROW(solve(system, &counter), CUserIntrException);
        EXPECT_EQ(system.lastFailure(), LinSysFailure::interrupted);

        ShortOfMemory const informer;
        testSupport::Receiver<T> receiver;
        IVertexPosInformer<T> const * informers[] = {&informer};
        IEqSysResultReciever<T> * receivers[] = {&receiver};
        EXPECT_THROW(system.SolveSystem(1, informers, receivers, nullptr), std::bad_alloc);
        EXPECT_EQ(system.lastFailure(), LinSysFailure::noMemory);

        EXPECT_TRUE(solve(system));
        EXPECT_EQ(system.lastFailure(), LinSysFailure::none);
    }
    // More elements of a dense matrix than can be counted.
    CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverCoreMkl<T>> large;
    constexpr int vertices = 47000;
    for (int vertex = 0; vertex < vertices; ++vertex)
        large.DefineFreeVertex(vertex);
    for (int vertex = 0; vertex < vertices; ++vertex) {
        CVertexLinearCombination<T> equation;
        equation.AddVertex(vertex, T(1));
        large.AddEquation(equation);
    }
    EXPECT_THROW(large.SolveSystem(0, nullptr, nullptr, nullptr), std::bad_alloc);
    EXPECT_EQ(large.lastFailure(), LinSysFailure::noMemory);
}

TEST(LinSysFailure, BoundariesOutOfOrderAndSilentCores)
{
    struct Silent : ILinSysSolverCore<double>
    {
        bool onSolveSystem(ILinearSystemReadOnly<double> const &, int, IVertexPosInformer<double> const **,
                           IEqSysResultReciever<double> **, CProgressCounter *) override
        {
            return false;
        }
    } silent;
    CCSRSstorage<double> storage;
    EXPECT_FALSE(silent.solveSystem(storage, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(silent.lastFailure(), LinSysFailure::unknown);

    CLinSysSolverDecomposed<double> decomposed({3, 1}, 1e-6, 10);
    EXPECT_FALSE(decomposed.solveSystem(storage, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(decomposed.lastFailure(), LinSysFailure::malformed);

    std::set<std::string> texts;
    for (int failure = 0; failure <= int(LinSysFailure::unknown); ++failure)
        texts.insert(failureText(LinSysFailure(failure)));
    EXPECT_EQ(texts.size(), std::size_t(LinSysFailure::unknown) + 1) << "each has words of its own";
}

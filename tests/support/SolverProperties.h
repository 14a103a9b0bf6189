// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysFailure.h>
#include <QZmath/LinSys/LinSysSolverCompose.h>
#include <QZmath/LinSys/VPLSstorage.h>
#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <support/Recorders.h>
#include <support/SolverSystems.h>

/// Whole systems through every solver of a program, compared with a dense elimination. Of what fails each
/// names the reason. A program instantiates the suite `SolverProperties` with types that have a `Scalar` and
/// a static `everySolver(int size)`, the solvers for systems of that size.
namespace testSupport
{

using namespace REmath;

/// What a solver is for, and how exact it is.
enum class Method
{
    direct,    // any system
    iterative, // definite or dominant ones
    multigrid  // definite ones; others it refuses as a direct solver does singular ones
};

enum class Kind
{
    definite,            // symmetric, dominant diagonal
    mixedSigns,          // symmetric, dominant diagonal of both signs
    saddlePoint,         // symmetric, zeros on a part of the diagonal
    dominant,            // not symmetric
    permutedRows,        // not symmetric, most diagonal elements 0
    zeroColumn,          // singular
    zeroColumnSymmetric, // singular
    infinite             // symmetric
};

inline bool isSymmetric(Kind kind) { return kind <= Kind::saddlePoint || kind >= Kind::zeroColumnSymmetric; }

inline DenseMatrix matrixOf(Kind kind, int size, std::mt19937 & random)
{
    DenseMatrix matrix = randomSparse(size, 4.0, isSymmetric(kind), 1.4, random);
    int const victim = int(random() % unsigned(size));
    switch (kind) {
    case Kind::definite:
    case Kind::dominant:
        break;
    case Kind::mixedSigns:
        for (int row = 0; row < size; row += 2)
            matrix(row, row) = -matrix(row, row);
        break;
    case Kind::saddlePoint:
        // The last third are multipliers: no element among them, each coupled strongly with a vertex of
        // its own.
        for (int row = size - size / 3; row < size; ++row) {
            for (int column = 0; column < size; ++column)
                matrix(row, column) = matrix(column, row) = 0;
            int const own = row - (size - size / 3);
            matrix(row, own) = matrix(own, row) = 2;
        }
        break;
    case Kind::permutedRows:
        for (int row = 0; row + 1 < size; ++row)
            for (int column = 0; column < size; ++column)
                std::swap(matrix(row, column), matrix(row + 1, column));
        break;
    case Kind::infinite:
        matrix(victim, victim) = std::numeric_limits<double>::infinity();
        break;
    case Kind::zeroColumn:
    case Kind::zeroColumnSymmetric:
        for (int other = 0; other < size; ++other) {
            matrix(other, victim) = 0;
            if (kind == Kind::zeroColumnSymmetric)
                matrix(victim, other) = 0;
        }
        break;
    }
    return matrix;
}

template <class T>
void state(IVertexPosLinearSystem<T> & solver, Kind kind, bool promiseDefinite, DenseMatrix const & matrix,
           std::vector<double> const & right)
{
    solver.setSymmetric(isSymmetric(kind));
    solver.setPositiveDefinite(promiseDefinite);
    stateSystem<T>(solver, matrix, right);
}

/// The n-th solution is that of n times the right part.
template <class T>
void expectSolutions(IVertexPosLinearSystem<T> & solver, int count, DenseMatrix const & matrix,
                     std::vector<double> const & right, double tolerance)
{
    std::vector<double> const expected = eliminate(matrix, right);
    double const scale = norm(expected);
    bool succeeded = false;
    auto const solutions = solveWhole<T>(solver, count, succeeded);
    ASSERT_TRUE(succeeded);
    for (std::size_t part = 0; part < solutions.size(); ++part) {
        ASSERT_EQ(solutions[part].calls, matrix.size);
        double const factor = double(part) + 1;
        for (std::size_t k = 0; k < expected.size(); ++k)
            ASSERT_NEAR(solutions[part].values[k], factor * expected[k], factor * tolerance * scale) << part;
    }
}

/// True when the solver gives up and delivers nothing.
template <class T>
bool isRefused(IVertexPosLinearSystem<T> & solver)
{
    bool succeeded = true;
    auto const solutions = solveWhole<T>(solver, 2, succeeded);
    return !succeeded && solutions[0].calls + solutions[1].calls == 0;
}

template <class T>
struct Candidate
{
    std::string name;
    Method method;
    std::unique_ptr<IVertexPosLinearSystem<T>> solver;
};

template <class T>
using Candidates = std::vector<Candidate<T>>;
template <class T>
using Csr = CCSRSstorage<T>;
template <class T>
using DenseRows = CVPLSstorage<T, CStdVectorAsVPLSstorageRow>;
template <class T>
using SparseRows = CVPLSstorage<T, CSparseVectorAsVPLSstorageRow>;
template <class T>
using ShiftedRows = CVPLSstorage<T, CShiftedVectorAsVPLstorageRow>;

template <class Solver, class T, class... Arguments>
Solver & add(Candidates<T> & list, std::string const & name, Method method, Arguments... arguments)
{
    auto solver = std::make_unique<Solver>(arguments...);
    Solver & made = *solver;
    list.push_back({name, method, std::move(solver)});
    return made;
}

/// A core over every storage that can hold any matrix.
template <template <class> class Core, class T>
void addOverStorages(Candidates<T> & list, std::string const & name, Method method)
{
    add<CLinSysSolverCompose<T, DenseRows<T>, Core<T>>>(list, "dense rows, " + name, method);
    add<CLinSysSolverCompose<T, SparseRows<T>, Core<T>>>(list, "sparse rows, " + name, method);
    add<CLinSysSolverCompose<T, Csr<T>, Core<T>>>(list, "csr, " + name, method);
    auto & solver = add<CLinSysSolverCompose<T, Csr<T>, Core<T>>>(list, "csr of base 0, " + name, method);
    solver.getStorageRefMod().setIndexBase(0);
}

template <class Solvers>
class SolverProperties : public testing::Test
{};

TYPED_TEST_SUITE_P(SolverProperties);

TYPED_TEST_P(SolverProperties, EverySolverSolvesWhatWasStated)
{
    using T = typename TypeParam::Scalar;
    bool const isFloat = std::is_same_v<T, float>;
    for (Kind kind :
         {Kind::definite, Kind::mixedSigns, Kind::saddlePoint, Kind::dominant, Kind::permutedRows}) {
        for (unsigned seed = 0; seed < 8; ++seed) {
            int const size = int(seed == 0 ? 1 : 3 + 6 * seed);
            std::mt19937 random(seed);
            DenseMatrix const matrix = matrixOf(kind, size, random);
            std::vector<double> right = randomVector(size, random);
            for (Candidate<T> & candidate : TypeParam::everySolver(size)) {
                if (candidate.method != Method::direct && kind != Kind::definite &&
                    (kind != Kind::dominant || candidate.method == Method::multigrid))
                    continue; // such systems need not converge
                SCOPED_TRACE(candidate.name + ", kind " + std::to_string(int(kind)) + ", size " +
                             std::to_string(size));
                double const tolerance = candidate.method != Method::direct ? 2e-4 : isFloat ? 1e-4 : 1e-10;
                std::unique_ptr<IVertexPosLinearSystem<T>> solver = std::move(candidate.solver);
                state(*solver, kind, kind == Kind::definite && seed % 2 == 0, matrix, right);
                ASSERT_TRUE(solver->IsCorrectlyDefinedSystem());
                for (int count : {3, 1, 0})
                    ASSERT_NO_FATAL_FAILURE(expectSolutions(*solver, count, matrix, right, tolerance));
                std::unique_ptr<IVertexPosLinearSystem<T>> const copy(solver->Copy());
                ASSERT_EQ(copy->isSymmetric(), isSymmetric(kind));
                ASSERT_EQ(copy->isPositiveDefinite(), solver->isPositiveDefinite());
                bool succeeded = false;
                auto const before = solveWhole<T>(*solver, 2, succeeded);
                solver.reset();
                auto const after = solveWhole<T>(*copy, 2, succeeded);
                ASSERT_EQ(after[0].values, before[0].values);
                ASSERT_EQ(after[1].values, before[1].values);

                // Other coefficients of a fixed vertex count from the next solve on.
                copy->SetFixedVertCoeff(0, 0, T(-3));
                std::vector<double> changed = right;
                changed[0] = 3;
                ASSERT_NO_FATAL_FAILURE(expectSolutions(*copy, 2, matrix, changed, tolerance));
            }
        }
    }
}

TYPED_TEST_P(SolverProperties, DirectSolversNameSingularAndInfiniteSystems)
{
    using T = typename TypeParam::Scalar;
    for (Kind kind : {Kind::zeroColumn, Kind::zeroColumnSymmetric, Kind::infinite}) {
        for (unsigned seed = 0; seed < 10; ++seed) {
            int const size = 4 + int(seed);
            std::mt19937 random(seed);
            DenseMatrix const matrix = matrixOf(kind, size, random);
            std::vector<double> const right = randomVector(size, random);
            for (Candidate<T> & candidate : TypeParam::everySolver(size)) {
                if (candidate.method == Method::iterative)
                    continue;
                SCOPED_TRACE(candidate.name + ", size " + std::to_string(size));
                // The decomposing solver delivers in spite of a failure of its direct part, the dense core
                // in spite of infinite elements. Both say what it was.
                bool const isInfinite = kind == Kind::infinite;
                bool const mayDeliver = candidate.name == "csr, decomposed" ||
                                        (isInfinite && candidate.name.find("direct") == std::string::npos);
                state(*candidate.solver, kind, isSymmetric(kind) && seed % 2 == 0, matrix, right);
                EXPECT_TRUE(isRefused(*candidate.solver) || mayDeliver);
                EXPECT_EQ(candidate.solver->lastFailure(),
                          isInfinite ? LinSysFailure::notFinite : LinSysFailure::singular);
            }
        }
    }
}

TYPED_TEST_P(SolverProperties, EmptySpoiledUnfinishedAndZeroSystems)
{
    using T = typename TypeParam::Scalar;
    std::mt19937 random(4);
    DenseMatrix const matrix = matrixOf(Kind::definite, 8, random);
    std::vector<double> const right = randomVector(8, random), zeros(8, 0.0);
    for (Candidate<T> & candidate : TypeParam::everySolver(8)) {
        SCOPED_TRACE(candidate.name);
        bool const isOverMatrix = candidate.name.find("iterative") != std::string::npos;
        bool const isDecomposed = candidate.name.find("decomposed") != std::string::npos;
        std::unique_ptr<IVertexPosLinearSystem<T>> const unfinished(candidate.solver->Copy()),
            zero(candidate.solver->Copy());
        if (candidate.name != "csr decomposed, ready") { // its boundaries lie outside of no unknowns
            bool succeeded = false;
            solveWhole<T>(*candidate.solver, 2, succeeded);
            EXPECT_TRUE(succeeded);
        }

        state(*zero, Kind::definite, true, matrix, zeros);
        // An exact start is a breakdown for the iteration; only the core over a matrix delivers it.
        if (candidate.method != Method::iterative || isOverMatrix) {
            expectSolutions(*zero, 2, matrix, zeros, 0.0);
        } else {
            EXPECT_TRUE(isRefused(*zero));
        }
        EXPECT_EQ(zero->lastFailure(),
                  candidate.method != Method::iterative ? LinSysFailure::none : LinSysFailure::notConverged);
        unfinished->DefineFreeVertex(0);
        unfinished->DefineFreeVertex(1);
        CVertexLinearCombination<T> equation;
        equation.AddVertex(0, T(1));
        unfinished->AddEquation(equation);
        // A matrix that is made for the iteration has as many rows as there are equations.
        bool const isSolved = candidate.name.find("rows, iterative") != std::string::npos;
        EXPECT_NE(isRefused(*unfinished), isSolved);
        // With boundaries that suit it, but not the system, the decomposing solver complains of them first.
        EXPECT_TRUE(isSolved || unfinished->lastFailure() == (candidate.name == "csr decomposed, ready"
                                                                  ? LinSysFailure::malformed
                                                                  : LinSysFailure::incomplete));
        if (isOverMatrix || isDecomposed)
            continue; // these two solve what they find
        state(*candidate.solver, Kind::definite, false, matrix, right);
        candidate.solver->AddEquation(CVertexLinearCombination<T>());
        EXPECT_TRUE(candidate.solver->IsSpoiled());
        EXPECT_TRUE(isRefused(*candidate.solver));
        EXPECT_EQ(candidate.solver->lastFailure(), LinSysFailure::spoiled);
        std::unique_ptr<IVertexPosLinearSystem<T>> const copy(candidate.solver->Copy());
        EXPECT_TRUE(copy->IsSpoiled());
    }
}

// What passes through is noted, and the next solve starts anew.
TYPED_TEST_P(SolverProperties, InterruptionsAndMemoryShortagesPassFromEveryPlace)
{
    using T = typename TypeParam::Scalar;
    struct ShortOfMemory : IVertexPosInformer<T>
    {
        T GetVertexPosition(int) const override { throw std::bad_alloc(); }
    } const informer;
    Receiver<T> receiver;
    IVertexPosInformer<T> const * informers[] = {&informer};
    IEqSysResultReciever<T> * receivers[] = {&receiver};
    std::mt19937 random(36);
    DenseMatrix const matrix = randomSparse(150, 4.0, true, 1.2, random);
    std::vector<double> const right = randomVector(150, random);
    for (Candidate<T> const & candidate : TypeParam::everySolver(150)) {
        SCOPED_TRACE(candidate.name);
        std::unique_ptr<IVertexPosLinearSystem<T>> const & solver = candidate.solver;
        solver->setSymmetric(true);
        solver->setPositiveDefinite(true);
        stateSystem<T>(*solver, matrix, right);
        bool succeeded = false;
        qz_test::ProgressRecorder counting;
        solveWhole<T>(*solver, 2, succeeded, &counting);
        std::size_t const reports = counting.positions.size();
        ASSERT_GT(reports, 3u);
        EXPECT_TRUE(counting.isMonotone() && counting.getPosFloat() == 1.0);
        for (std::size_t allowed = 0; allowed + 2 < reports; allowed += 1 + reports / 40) {
            qz_test::ProgressRecorder counter;
            counter.inPosition = [&] {
                if (counter.positions.size() > allowed)
                    throw CUserIntrException("user interruption");
            };
            EXPECT_THROW(solveWhole<T>(*solver, 2, succeeded, &counter), CUserIntrException);
            EXPECT_EQ(solver->lastFailure(), LinSysFailure::interrupted);
        }
        EXPECT_THROW(solver->SolveSystem(1, informers, receivers, nullptr), std::bad_alloc);
        EXPECT_EQ(solver->lastFailure(), LinSysFailure::noMemory);
        solveWhole<T>(*solver, 1, succeeded);
        EXPECT_TRUE(succeeded && solver->lastFailure() == LinSysFailure::none);
    }
}

REGISTER_TYPED_TEST_SUITE_P(SolverProperties, EverySolverSolvesWhatWasStated,
                            DirectSolversNameSingularAndInfiniteSystems, EmptySpoiledUnfinishedAndZeroSystems,
                            InterruptionsAndMemoryShortagesPassFromEveryPlace);

} // namespace testSupport

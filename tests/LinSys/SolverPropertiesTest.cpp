// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysFailure.h>
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverMKL.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/LinSys/SparseLinSysSolver.h>
#include <QZmath/LinSys/VPLSstorage.h>
#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <support/Recorders.h>
#include <support/SolverSystems.h>

// Whole systems through every solver, compared with a dense elimination. Of what fails each names the reason.

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;

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

bool isSymmetric(Kind kind) { return kind <= Kind::saddlePoint || kind >= Kind::zeroColumnSymmetric; }

DenseMatrix matrixOf(Kind kind, int size, std::mt19937 & random)
{
    DenseMatrix matrix = testSupport::randomSparse(size, 4.0, isSymmetric(kind), 1.4, random);
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
        // The last third are multipliers: no element among them, each coupled strongly with a vertex of its
        // own.
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
    testSupport::stateSystem<T>(solver, matrix, right);
}

// The n-th solution is that of n times the right part.
template <class T>
void expectSolutions(IVertexPosLinearSystem<T> & solver, int count, DenseMatrix const & matrix,
                     std::vector<double> const & right, double tolerance)
{
    std::vector<double> const expected = testSupport::eliminate(matrix, right);
    double const scale = testSupport::norm(expected);
    bool succeeded = false;
    auto const solutions = testSupport::solveWhole<T>(solver, count, succeeded);
    ASSERT_TRUE(succeeded);
    for (std::size_t part = 0; part < solutions.size(); ++part) {
        ASSERT_EQ(solutions[part].calls, matrix.size);
        double const factor = double(part) + 1;
        for (std::size_t k = 0; k < expected.size(); ++k)
            ASSERT_NEAR(solutions[part].values[k], factor * expected[k], factor * tolerance * scale) << part;
    }
}

// True when the solver gives up and delivers nothing.
template <class T>
bool isRefused(IVertexPosLinearSystem<T> & solver)
{
    bool succeeded = true;
    auto const solutions = testSupport::solveWhole<T>(solver, 2, succeeded);
    return !succeeded && solutions[0].calls + solutions[1].calls == 0;
}

template <class T>
struct Candidate
{
    std::string name;
    bool isDirect;
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
Solver & add(Candidates<T> & list, std::string const & name, bool isDirect, Arguments... arguments)
{
    auto solver = std::make_unique<Solver>(arguments...);
    Solver & made = *solver;
    list.push_back({name, isDirect, std::move(solver)});
    return made;
}

// A core over every storage that can hold any matrix.
template <template <class> class Core, class T>
void addOverStorages(Candidates<T> & list, std::string const & name, bool isDirect)
{
    add<CLinSysSolverCompose<T, DenseRows<T>, Core<T>>>(list, "dense rows, " + name, isDirect);
    add<CLinSysSolverCompose<T, SparseRows<T>, Core<T>>>(list, "sparse rows, " + name, isDirect);
    add<CLinSysSolverCompose<T, Csr<T>, Core<T>>>(list, "csr, " + name, isDirect);
    auto & solver = add<CLinSysSolverCompose<T, Csr<T>, Core<T>>>(list, "csr of base 0, " + name, isDirect);
    solver.getStorageRefMod().setIndexBase(0);
}

template <class T>
Candidates<T> everySolver(int size)
{
    Candidates<T> result;
    add<CLinSysSolverMKL<T>>(result, "dense rows, ready", true);
    add<CSparseLinSysSolver<T>>(result, "sparse rows, ready", true);
    add<CSparseStoreSparseLinSysSolver<T>>(result, "csr direct, ready", true, 3);
    add<CSparseStoreBicgstabLinSysSolver<T>>(result, "csr iterative, ready", false, 3, T(1e-6), 5 * size);
    // Blocks that are not coupled would leave the merge nothing to do, which counts as a breakdown.
    std::vector<int> const boundaries = size < 4 ? std::vector<int>() : std::vector<int>{size / 2};
    add<CLinSysSolverSpaceDecomposer<T>>(result, "csr decomposed, ready", false, boundaries, T(1e-6),
                                         5 * size);
    addOverStorages<CLinSysSolverCoreMkl>(result, "dense core", true);
    addOverStorages<CLinSysSolverSparseDss>(result, "direct", true);
    addOverStorages<CLinSysSolverSparseMKL>(result, "iterative", false);
    addOverStorages<CLinSysSolverCoreBicgstab>(result, "by products", false);
    add<CLinSysSolverCompose<T, ShiftedRows<T>, CLinSysSolverCoreBicgstab<T>>>(
        result, "shifted rows, by products", false);
    add<CLinSysSolverCompose<T, Csr<T>, CLinSysSolverDecomposed<T>>>(result, "csr, decomposed", true);
    return result;
}

template <class T>
class SolverPropertiesTest : public testing::Test
{};

using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(SolverPropertiesTest, Scalars, );

} // namespace

TYPED_TEST(SolverPropertiesTest, EverySolverSolvesWhatWasStated)
{
    using T = TypeParam;
    bool const isFloat = std::is_same_v<T, float>;
    for (Kind kind :
         {Kind::definite, Kind::mixedSigns, Kind::saddlePoint, Kind::dominant, Kind::permutedRows}) {
        for (unsigned seed = 0; seed < 8; ++seed) {
            int const size = int(seed == 0 ? 1 : 3 + 6 * seed);
            std::mt19937 random(seed);
            DenseMatrix const matrix = matrixOf(kind, size, random);
            std::vector<double> right = testSupport::randomVector(size, random);
            for (Candidate<T> & candidate : everySolver<T>(size)) {
                if (!candidate.isDirect && kind != Kind::definite && kind != Kind::dominant)
                    continue; // such systems need not converge
                SCOPED_TRACE(candidate.name + ", kind " + std::to_string(int(kind)) + ", size " +
                             std::to_string(size));
                double const tolerance = !candidate.isDirect ? 2e-4 : isFloat ? 1e-4 : 1e-10;
                std::unique_ptr<IVertexPosLinearSystem<T>> solver = std::move(candidate.solver);
                state(*solver, kind, kind == Kind::definite && seed % 2 == 0, matrix, right);
                ASSERT_TRUE(solver->IsCorrectlyDefinedSystem());
                for (int count : {3, 1, 0})
                    ASSERT_NO_FATAL_FAILURE(expectSolutions(*solver, count, matrix, right, tolerance));
                std::unique_ptr<IVertexPosLinearSystem<T>> const copy(solver->Copy());
                ASSERT_EQ(copy->isSymmetric(), isSymmetric(kind));
                ASSERT_EQ(copy->isPositiveDefinite(), solver->isPositiveDefinite());
                bool succeeded = false;
                auto const before = testSupport::solveWhole<T>(*solver, 2, succeeded);
                solver.reset();
                auto const after = testSupport::solveWhole<T>(*copy, 2, succeeded);
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

TYPED_TEST(SolverPropertiesTest, DirectSolversNameSingularAndInfiniteSystems)
{
    using T = TypeParam;
    for (Kind kind : {Kind::zeroColumn, Kind::zeroColumnSymmetric, Kind::infinite}) {
        for (unsigned seed = 0; seed < 10; ++seed) {
            int const size = 4 + int(seed);
            std::mt19937 random(seed);
            DenseMatrix const matrix = matrixOf(kind, size, random);
            std::vector<double> const right = testSupport::randomVector(size, random);
            for (Candidate<T> & candidate : everySolver<T>(size)) {
                if (!candidate.isDirect)
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

TYPED_TEST(SolverPropertiesTest, EmptySpoiledUnfinishedAndZeroSystems)
{
    using T = TypeParam;
    std::mt19937 random(4);
    DenseMatrix const matrix = matrixOf(Kind::definite, 8, random);
    std::vector<double> const right = testSupport::randomVector(8, random), zeros(8, 0.0);
    for (Candidate<T> & candidate : everySolver<T>(8)) {
        SCOPED_TRACE(candidate.name);
        bool const isIterative = candidate.name.find("iterative") != std::string::npos;
        bool const isDecomposed = candidate.name.find("decomposed") != std::string::npos;
        std::unique_ptr<IVertexPosLinearSystem<T>> const unfinished(candidate.solver->Copy()),
            zero(candidate.solver->Copy());
        if (candidate.name != "csr decomposed, ready") { // its boundaries lie outside of no unknowns
            bool succeeded = false;
            testSupport::solveWhole<T>(*candidate.solver, 2, succeeded);
            EXPECT_TRUE(succeeded);
        }

        state(*zero, Kind::definite, true, matrix, zeros);
        // An exact start is a breakdown for the iteration; only the core over a matrix delivers it.
        if (candidate.isDirect || isIterative) {
            expectSolutions(*zero, 2, matrix, zeros, 0.0);
        } else {
            EXPECT_TRUE(isRefused(*zero));
        }
        EXPECT_EQ(zero->lastFailure(),
                  candidate.isDirect ? LinSysFailure::none : LinSysFailure::notConverged);
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
        if (isIterative || isDecomposed)
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
TYPED_TEST(SolverPropertiesTest, InterruptionsAndMemoryShortagesPassFromEveryPlace)
{
    using T = TypeParam;
    struct ShortOfMemory : IVertexPosInformer<T>
    {
        T GetVertexPosition(int) const override { throw std::bad_alloc(); }
    } const informer;
    testSupport::Receiver<T> receiver;
    IVertexPosInformer<T> const * informers[] = {&informer};
    IEqSysResultReciever<T> * receivers[] = {&receiver};
    std::mt19937 random(36);
    DenseMatrix const matrix = testSupport::randomSparse(150, 4.0, true, 1.2, random);
    std::vector<double> const right = testSupport::randomVector(150, random);
    for (Candidate<T> const & candidate : everySolver<T>(150)) {
        SCOPED_TRACE(candidate.name);
        std::unique_ptr<IVertexPosLinearSystem<T>> const & solver = candidate.solver;
        solver->setSymmetric(true);
        solver->setPositiveDefinite(true);
        testSupport::stateSystem<T>(*solver, matrix, right);
        bool succeeded = false;
        qz_test::ProgressRecorder counting;
        testSupport::solveWhole<T>(*solver, 2, succeeded, &counting);
        std::size_t const reports = counting.positions.size();
        ASSERT_GT(reports, 3u);
        EXPECT_TRUE(counting.isMonotone() && counting.getPosFloat() == 1.0);
        for (std::size_t allowed = 0; allowed + 2 < reports; allowed += 1 + reports / 40) {
            qz_test::ProgressRecorder counter;
            counter.inPosition = [&] {
                if (counter.positions.size() > allowed)
                    throw CUserIntrException("user interruption");
            };
            EXPECT_THROW(testSupport::solveWhole<T>(*solver, 2, succeeded, &counter), CUserIntrException);
            EXPECT_EQ(solver->lastFailure(), LinSysFailure::interrupted);
        }
        EXPECT_THROW(solver->SolveSystem(1, informers, receivers, nullptr), std::bad_alloc);
        EXPECT_EQ(solver->lastFailure(), LinSysFailure::noMemory);
        testSupport::solveWhole<T>(*solver, 1, succeeded);
        EXPECT_TRUE(succeeded && solver->lastFailure() == LinSysFailure::none);
    }
    // More elements of a dense matrix than can be counted.
    CLinSysSolverCompose<T, Csr<T>, CLinSysSolverCoreMkl<T>> large;
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

TEST(LinSysFailure, EachHasWordsOfItsOwnAndSilentCoresHaveOne)
{
    struct Silent : ILinSysSolverCore<double>
    {
        bool onSolveSystem(ILinearSystemReadOnly<double> const &, int, IVertexPosInformer<double> const **,
                           IEqSysResultReciever<double> **, CProgressCounter *) override
        {
            return false;
        }
    } silent;
    EXPECT_FALSE(silent.solveSystem(Csr<double>(), 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(silent.lastFailure(), LinSysFailure::unknown);
    std::set<std::string> texts;
    for (int failure = 0; failure <= int(LinSysFailure::unknown); ++failure)
        texts.insert(failureText(LinSysFailure(failure)));
    EXPECT_EQ(texts.size(), std::size_t(LinSysFailure::unknown) + 1);
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCoreMkl.h>
#include <QZmath/LinSys/LinSysSolverMKL.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <support/SparseSystems.h>
#include <utility>
#include <vector>

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;

template <class T>
struct Positions : IVertexPosInformer<T>, IEqSysResultReciever<T>
{
    T GetVertexPosition(int vertex) const override { return values.at(vertex); }
    void SetVertexPosition(int vertex, T position) override { values[vertex] = position; }
    std::map<int, T> values;
};

template <class T>
class LinSysSolverCoreMklTest : public testing::Test
{
public:
    /// Free vertices 2k, fixed ones 2k + 1, one of them in each equation with the coefficient -1: the right
    /// part is the fixed positions.
    static void state(IVertexPosLinearSystem<T> & solver, DenseMatrix const & matrix)
    {
        for (int index = 0; index < matrix.size; ++index) {
            solver.DefineFreeVertex(2 * index);
            solver.DefineFixedVertex(2 * index + 1);
        }
        for (int row = 0; row < matrix.size; ++row) {
            CVertexLinearCombination<T> equation;
            for (int column = 0; column < matrix.size; ++column) {
                equation.AddVertex(2 * column, T(matrix(row, column)));
            }
            equation.AddVertex(2 * row + 1, T(-1));
            solver.AddEquation(equation);
        }
    }

    /// Solves for random right parts, and compares with an elimination in `double`.
    static void expectSolved(IVertexPosLinearSystem<T> & solver, DenseMatrix const & matrix, int nRightParts,
                             std::mt19937 & random)
    {
        std::vector<Positions<T>> fixed(static_cast<std::size_t>(nRightParts)), solved(fixed);
        std::vector<IVertexPosInformer<T> const *> informers;
        std::vector<IEqSysResultReciever<T> *> recievers;
        for (std::size_t part = 0; part < fixed.size(); ++part) {
            for (int row = 0; row < matrix.size; ++row) {
                fixed[part].values[2 * row + 1] = T(testSupport::randomVector(1, random)[0]);
            }
            informers.push_back(&fixed[part]);
            recievers.push_back(&solved[part]);
        }
        ASSERT_TRUE(solver.SolveSystem(nRightParts, informers.data(), recievers.data(), nullptr));
        for (std::size_t part = 0; part < fixed.size(); ++part) {
            std::vector<double> right;
            for (auto const & position : fixed[part].values) {
                right.push_back(double(position.second));
            }
            std::vector<double> const expected = testSupport::eliminate(matrix, right);
            ASSERT_EQ(solved[part].values.size(), expected.size());
            for (int row = 0; row < matrix.size; ++row) {
                double const value = expected[std::size_t(row)];
                double const tolerance = sizeof(T) == 4 ? 2e-3 : 1e-10;
                EXPECT_NEAR(double(solved[part].values[2 * row]), value, tolerance * (1 + std::abs(value)));
            }
        }
    }
};
using Numbers = testing::Types<float, double>;
TYPED_TEST_SUITE(LinSysSolverCoreMklTest, Numbers);

template <class T>
DenseMatrix rounded(DenseMatrix matrix)
{
    for (double & element : matrix.elements) {
        element = double(T(element));
    }
    return matrix;
}

TYPED_TEST(LinSysSolverCoreMklTest, SolvesWhatAnEliminationSolves)
{
    using T = TypeParam;
    using Fixture = LinSysSolverCoreMklTest<T>;
    std::mt19937 random(53);
    for (int size : {1, 2, 5, 15, 16, 40}) {
        // Dominant or not in the diagonal, symmetric or not, so definite or not.
        for (double const dominance : {1.5, 0.0}) {
            for (bool const symmetric : {false, true}) {
                DenseMatrix matrix = testSupport::randomSparse(size, 4.0, symmetric, dominance, random);
                for (int row = 0; row < size; ++row) {
                    matrix(row, size - 1 - row) += 3;
                }
                matrix = rounded<T>(matrix);
                CLinSysSolverMKL<T> dense;
                CLinSysSolverCompose<T, CCSRSstorage<T>, CLinSysSolverCoreMkl<T>> compressed;
                compressed.setSymmetric(symmetric && dominance > 1);
                for (IVertexPosLinearSystem<T> * solver :
                     std::initializer_list<IVertexPosLinearSystem<T> *>{&dense, &compressed}) {
                    Fixture::state(*solver, matrix);
                    ASSERT_TRUE(solver->IsCorrectlyDefinedSystem());
                    Fixture::expectSolved(*solver, matrix, 3, random);
                    std::unique_ptr<IVertexPosLinearSystem<T>> const copy(solver->Copy());
                    EXPECT_TRUE(typeid(*copy) == typeid(*solver));
                    Fixture::expectSolved(*copy, matrix, 1, random);
                    Fixture::expectSolved(*solver, matrix, 2, random);
                }
            }
        }
    }
}

TYPED_TEST(LinSysSolverCoreMklTest, RefusesWithoutDelivering)
{
    using T = TypeParam;
    Positions<T> fixed, solved;
    IVertexPosInformer<T> const * informer = &fixed;
    IEqSysResultReciever<T> * reciever = &solved;
    for (int size : {3, 30}) {
        DenseMatrix singular(size);
        for (int row = 0; row < size; ++row) {
            singular(row, row) = singular(row, (row + 1) % size) = 1;
            fixed.values[2 * row + 1] = T(1);
        }
        // The determinant is the product of the diagonal plus 1 for an odd size, minus 1 for an even one.
        if (size % 2 != 0) {
            singular(0, 0) = -1;
        }
        CLinSysSolverMKL<T> solver;
        this->state(solver, singular);
        EXPECT_FALSE(solver.SolveSystem(1, &informer, &reciever, nullptr)) << size;
        CVertexLinearCombination<T> tooMuch;
        tooMuch.AddVertex(0, T(1));
        solver.AddEquation(tooMuch);
        EXPECT_FALSE(solver.SolveSystem(1, &informer, &reciever, nullptr));
    }
    EXPECT_TRUE(solved.values.empty());

    CLinSysSolverMKL<T> incomplete;
    incomplete.DefineFreeVertex(1);
    EXPECT_FALSE(incomplete.SolveSystem(1, &informer, &reciever, nullptr));
    CLinSysSolverMKL<T> nothing;
    EXPECT_TRUE(nothing.SolveSystem(1, nullptr, nullptr, nullptr));
}

/// A system of its own kind that records how its elements are read.
template <class T>
class RecordingSystem : public ILinearSystemReadOnly<T>
{
public:
    mutable std::vector<std::pair<int, int>> reads;
    static constexpr int size = 3;

private:
    bool onIsCorrectlyDefinedSystem() const override { return true; }
    void onSetSingleRightPart(T * rightPart, IVertexPosInformer<T> const & informer) const override
    {
        std::fill_n(rightPart, size, informer.GetVertexPosition(0));
    }
    int onGetEquationsNumber() const override { return size; }
    T onScalarProductByMatrixRow(int, int, T const *) const override { return T(0); }
    T onGetFreeVertCoeff(int row, int column) const override
    {
        reads.emplace_back(column, row);
        return T(row == column ? 2 : 0);
    }
    void onSetSingleSolution(T const * solution, IEqSysResultReciever<T> & reciever) const override
    {
        for (int row = 0; row < size; ++row) {
            reciever.SetVertexPosition(row, solution[row]);
        }
    }
    bool onIsSymmetric() const override { return true; }
    bool onIsPositiveDefinite() const override { return true; }
};

class RecordingProgress : public CProgressCounter
{
public:
    std::vector<double> positions;

protected:
    void onPosition(double overall) override { positions.push_back(overall); }
};

TYPED_TEST(LinSysSolverCoreMklTest, ReadsEachElementOnceFromTheLastOneBack)
{
    using T = TypeParam;
    RecordingSystem<T> const system;
    Positions<T> fixed, solved;
    fixed.values[0] = T(4);
    IVertexPosInformer<T> const * informer = &fixed;
    IEqSysResultReciever<T> * reciever = &solved;
    RecordingProgress progress;
    CLinSysSolverCoreMkl<T> core;
    ASSERT_TRUE(core.solveSystem(system, 1, &informer, &reciever, &progress));
    ASSERT_EQ(system.reads.size(), 9U);
    EXPECT_TRUE(std::is_sorted(system.reads.rbegin(), system.reads.rend()));
    EXPECT_EQ(solved.values, (std::map<int, T>{{0, T(2)}, {1, T(2)}, {2, T(2)}}));

    EXPECT_TRUE(std::is_sorted(progress.positions.begin(), progress.positions.end()));
    for (double const boundary : {0.2, 0.95, 1.0}) {
        auto const isThere = [boundary](double position) { return std::abs(position - boundary) < 1e-12; };
        EXPECT_TRUE(std::any_of(progress.positions.begin(), progress.positions.end(), isThere)) << boundary;
    }
    progress.interrupt();
    EXPECT_THROW(core.solveSystem(system, 1, &informer, &reciever, &progress), CUserIntrException);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/DirectSolver.h>
#include <QZmath/Backend/FillOrdering.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "support/Recorders.h"
#include "support/SparseSystems.h"

namespace
{

using QzBackend::CDirectSolver;
using testSupport::CompressedMatrix;
using testSupport::DenseMatrix;
using Structure = CDirectSolver::Structure;
using Definiteness = CDirectSolver::Definiteness;

bool define(CDirectSolver & solver, CompressedMatrix const & matrix)
{
    return solver.defineStructure(matrix.size, matrix.rowIndex.data(), matrix.columns.data(),
                                  matrix.nonZeros(), matrix.indexBase);
}

// Empty on failure.
std::vector<double> solveDirectly(CompressedMatrix const & matrix, Definiteness definiteness,
                                  std::vector<double> const & right, CProgressCounter * progress = nullptr)
{
    CDirectSolver solver(matrix.upperOnly ? Structure::symmetricUpper : Structure::general, definiteness);
    std::vector<double> solution(right.size(), -7.0);
    int const count = matrix.size > 0 ? int(right.size()) / matrix.size : 1;
    if (define(solver, matrix) && solver.reorder(progress) && solver.factor(matrix.values.data(), progress) &&
        solver.solve(right.data(), count, solution.data()))
        return solution;
    return {};
}

TEST(DirectSolver, AllKindsAgreeWithElimination)
{
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        int const size = 1 + int(random() % 60);
        for (bool const symmetric : {true, false})
            for (bool const definite : {true, false}) {
                DenseMatrix const dense =
                    testSupport::randomSparse(size, 4.0, symmetric, definite ? 1.2 : 0.0, random);
                for (bool const upperOnly : {true, false}) {
                    if (upperOnly && !symmetric)
                        continue;
                    CompressedMatrix const matrix = testSupport::compress(dense, upperOnly, round % 2);
                    std::vector<double> right = testSupport::randomVector(size, random);
                    std::vector<double> const expected = testSupport::eliminate(dense, right);
                    if (testSupport::norm(expected) > 1e5)
                        continue; // badly conditioned by chance: elimination is no judge
                    // An unsymmetric matrix that is declared definite is solved as it stands.
                    std::vector<double> const solution = solveDirectly(
                        matrix, definite ? Definiteness::positiveDefinite : Definiteness::indefinite, right);
                    ASSERT_EQ(solution.size(), right.size()) << round << symmetric << definite << upperOnly;
                    EXPECT_LT(testSupport::relativeDistance(solution, expected), 1e-8)
                        << round << symmetric << definite << upperOnly;
                }
            }
    }
}

// Large enough for merged rows, nested dissection by hand and several blocks in the dense kernels; arrow rows
// that couple with everything go last in the order.
TEST(DirectSolver, GridWithArrowRowsHasSmallResidual)
{
    for (int const reach : {1, 2}) {
        CompressedMatrix matrix = testSupport::gridOperator(reach == 1 ? 24 : 26, reach, 0.01, 1);
        // The first row couples with every point.
        int const size = matrix.size;
        std::vector<int> columns(static_cast<std::size_t>(size));
        std::iota(columns.begin(), columns.end(), 1);
        std::vector<double> values(static_cast<std::size_t>(size), -1e-3);
        values[0] = 100.0;
        int const removed = matrix.rowIndex[1] - 1;
        matrix.columns.erase(matrix.columns.begin(), matrix.columns.begin() + removed);
        matrix.values.erase(matrix.values.begin(), matrix.values.begin() + removed);
        matrix.columns.insert(matrix.columns.begin(), columns.begin(), columns.end());
        matrix.values.insert(matrix.values.begin(), values.begin(), values.end());
        for (std::size_t row = 1; row < matrix.rowIndex.size(); ++row)
            matrix.rowIndex[row] += size - removed;

        std::mt19937 random(13);
        int const parts = reach == 1 ? 17 : 2; // solved for by 16
        std::vector<double> const right = testSupport::randomVector(parts * size, random);
        std::vector<double> const solution = solveDirectly(matrix, Definiteness::positiveDefinite, right);
        ASSERT_EQ(solution.size(), right.size());
        for (std::ptrdiff_t part = 0; part < parts; ++part) {
            std::vector<double> const x(solution.begin() + part * size, solution.begin() + (part + 1) * size);
            std::vector<double> const b(right.begin() + part * size, right.begin() + (part + 1) * size);
            EXPECT_LT(testSupport::relativeDistance(matrix.product(x), b), 1e-11);
        }
        EXPECT_EQ(
            QzBackend::fillReducingOrder({size, matrix.rowIndex.data(), matrix.columns.data(), 1}, nullptr)
                .back(),
            0);
    }
}

TEST(DirectSolver, SingularMatricesFail)
{
    std::mt19937 random(15);
    // Rank deficient by construction, with rounding errors in place of the zero pivot: L has the constants in
    // its kernel, and the other has two columns in proportion.
    CompressedMatrix const neumann = testSupport::gridOperator(7, 1, 0.0, 1);
    std::vector<double> const right = testSupport::randomVector(neumann.size, random);
    EXPECT_TRUE(solveDirectly(neumann, Definiteness::positiveDefinite, right).empty());
    EXPECT_TRUE(solveDirectly(neumann, Definiteness::indefinite, right).empty());
    for (int round = 0; round < 20; ++round) {
        DenseMatrix dense = testSupport::randomSparse(30, 6.0, false, 1.5, random);
        for (int row = 0; row < 30; ++row)
            dense(row, 17) = dense(row, 4) * 0.7;
        EXPECT_TRUE(solveDirectly(testSupport::compress(dense, false, 0), Definiteness::indefinite,
                                  testSupport::randomVector(30, random))
                        .empty());
    }
    CompressedMatrix emptyRow;
    emptyRow.size = 3;
    emptyRow.rowIndex = {1, 2, 2, 3};
    emptyRow.columns = {1, 3};
    emptyRow.values = {1.0, 1.0};
    emptyRow.indexBase = 1;
    for (bool const upper : {true, false})
        for (Definiteness const kind : {Definiteness::positiveDefinite, Definiteness::indefinite}) {
            emptyRow.upperOnly = upper;
            EXPECT_TRUE(solveDirectly(emptyRow, kind, {1.0, 1.0, 1.0}).empty());
        }
}

// Rounding errors leave more of the last pivot the larger the matrix is.
TEST(DirectSolver, LargerSingularMatricesFailToo)
{
    for (int const side : {4, 12, 20}) {
        CompressedMatrix matrix = testSupport::gridOperator(side, 1, 0.0, 1);
        std::vector<double> const right(std::size_t(matrix.size), 1.0);
        EXPECT_TRUE(solveDirectly(matrix, Definiteness::positiveDefinite, right).empty()) << side;
        // Neither scales nor a condition far from singular are taken for that.
        for (int row = 0; row < matrix.size; ++row) {
            auto const scale = [](int number) { return std::ldexp(1.0, number % 7 * 20); };
            for (int place = matrix.rowIndex[std::size_t(row)] - 1;
                 place < matrix.rowIndex[std::size_t(row) + 1] - 1; ++place) {
                int const column = matrix.columns[std::size_t(place)] - 1;
                double & value = matrix.values[std::size_t(place)];
                value = (column == row ? value * (1 + 1e-9) : value) * scale(row) * scale(column);
            }
        }
        EXPECT_FALSE(solveDirectly(matrix, Definiteness::positiveDefinite, right).empty()) << side;
    }
}

TEST(DirectSolver, ConditionEstimatesAreThoseOfTheScaledMatrix)
{
    std::mt19937 random(21);
    for (int round = 0; round < 24; ++round) {
        int const size = 5 + int(random() % 40);
        bool const definite = round % 2 == 0;
        DenseMatrix dense = testSupport::randomSparse(size, 4.0, definite, definite ? 1.001 : 0.0, random);
        std::vector<double> scale(std::size_t(size), 1.0);
        if (definite) // to a diagonal of ones, from any other
            for (int row = 0; row < size; ++row)
                scale[std::size_t(row)] = 1 / std::sqrt(dense(row, row));
        // The norms of the matrix and of its inverse, column by column.
        double norm = 0, inverseNorm = 0;
        for (int column = 0; column < size; ++column) {
            std::vector<double> unit(std::size_t(size), 0.0);
            double sum = 0;
            for (int row = 0; row < size; ++row)
                sum += std::fabs(dense(row, column)) * scale[std::size_t(row)] * scale[std::size_t(column)];
            norm = std::max(norm, sum);
            unit[std::size_t(column)] = 1 / scale[std::size_t(column)];
            std::vector<double> const inverse = testSupport::eliminate(dense, unit);
            sum = 0;
            for (int row = 0; row < size; ++row)
                sum += std::fabs(inverse[std::size_t(row)]) / scale[std::size_t(row)];
            inverseNorm = std::max(inverseNorm, sum);
        }
        CompressedMatrix const matrix = testSupport::compress(dense, definite, 0);
        CDirectSolver solver(definite ? Structure::symmetricUpper : Structure::general,
                             definite ? Definiteness::positiveDefinite : Definiteness::indefinite);
        ASSERT_TRUE(define(solver, matrix) && solver.reorder(nullptr));
        EXPECT_EQ(solver.conditionEstimate(matrix.values.data()), 0.0);
        ASSERT_TRUE(solver.factor(matrix.values.data(), nullptr));
        double const ratio = solver.conditionEstimate(matrix.values.data()) / (norm * inverseNorm);
        // Rows and columns of general matrices are scaled in another way, which changes something.
        EXPECT_GT(ratio, definite ? 1.0 / 3 : 0.005) << round << ' ' << definite;
        EXPECT_LT(ratio, definite ? 1 + 1e-9 : 10.0) << round << ' ' << definite;
    }
}

TEST(DirectSolver, PositionsRiseInSmallStepsWhileAnOrderIsChosen)
{
    for (int const side : {30, 45}) { // with and without rows that are merged
        CompressedMatrix const matrix = testSupport::gridOperator(side, 1, 0.01, 1);
        CDirectSolver solver(Structure::symmetricUpper, Definiteness::positiveDefinite);
        ASSERT_TRUE(define(solver, matrix));
        qz_test::ProgressRecorder counter;
        ASSERT_TRUE(solver.reorder(&counter));
        EXPECT_TRUE(counter.isMonotone());
        double last = 0, longest = 0;
        for (double const position : counter.positions)
            longest = std::max(longest, position - std::exchange(last, position));
        EXPECT_LT(longest, 0.12) << side;
    }
}

TEST(DirectSolver, ValuesThatAreNotFiniteOrNotDefiniteFail)
{
    CompressedMatrix const good = testSupport::gridOperator(8, 1, 0.5, 1);
    std::vector<double> const right(std::size_t(good.size), 1.0);
    std::mt19937 random(16);
    double const infinity = std::numeric_limits<double>::infinity();
    for (double const bad : {std::nan(""), infinity, -infinity})
        for (Definiteness const kind : {Definiteness::positiveDefinite, Definiteness::indefinite})
            for (int round = 0; round < 10; ++round) {
                CompressedMatrix matrix = good;
                matrix.values[random() % matrix.values.size()] = bad;
                std::vector<double> badRight = right;
                badRight[random() % badRight.size()] = bad;
                EXPECT_TRUE(solveDirectly(matrix, kind, right).empty());
                EXPECT_TRUE(solveDirectly(good, kind, badRight).empty());
            }
    for (int round = 0; round < 10; ++round) {
        CompressedMatrix matrix = good;
        int const row = int(random() % unsigned(matrix.size));
        matrix.values[std::size_t(matrix.rowIndex[std::size_t(row)] - 1)] = -1.0;
        EXPECT_TRUE(solveDirectly(matrix, Definiteness::positiveDefinite, right).empty());
        EXPECT_FALSE(solveDirectly(matrix, Definiteness::indefinite, right).empty());
    }
}

TEST(DirectSolver, BadStructuresAreRefused)
{
    CompressedMatrix const good = testSupport::gridOperator(3, 1, 0.5, 1);
    CDirectSolver solver(Structure::symmetricUpper, Definiteness::positiveDefinite);
    ASSERT_TRUE(define(solver, good));
    EXPECT_FALSE(solver.factor(good.values.data(), nullptr)); // out of turn
    auto const refused = [&](auto && damage) {
        CompressedMatrix matrix = good;
        damage(matrix);
        return !define(solver, matrix) && !solver.reorder(nullptr);
    };
    int const highest = std::numeric_limits<int>::max(), lowest = std::numeric_limits<int>::min();
    EXPECT_TRUE(refused([](CompressedMatrix & m) { m.size = 0; }));
    EXPECT_TRUE(refused([](CompressedMatrix & m) { m.indexBase = 0; }));
    EXPECT_TRUE(refused([](CompressedMatrix & m) { m.rowIndex.back() = -1; }));
    for (int bad : {-1, highest, lowest})
        EXPECT_TRUE(refused([bad](CompressedMatrix & m) { m.rowIndex[5] = bad; }));
    EXPECT_TRUE(refused([](CompressedMatrix & m) { m.columns[1] = m.columns[0]; }));
    EXPECT_TRUE(refused([](CompressedMatrix & m) { std::swap(m.columns[1], m.columns[2]); }));
    for (int bad : {good.size + 1, 1, lowest})
        EXPECT_TRUE(refused([bad](CompressedMatrix & m) { m.columns.back() = bad; }));
}

// Bad scaling, a row and a column that couple with everything, and no symmetry at all: what pivots must be
// chosen among for.
TEST(DirectSolver, UnsymmetricSystemsOfAnyScaleHaveSmallErrors)
{
    std::mt19937 random(20);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    for (bool const mirrored : {true, false}) {
        CompressedMatrix matrix;
        int const side = 40, size = matrix.size = side * side;
        std::vector<double> const solution = testSupport::randomVector(size, random);
        matrix.rowIndex.push_back(0);
        for (int row = 0; row < size; ++row) {
            std::vector<int> columns{row, (row + 7) % size, row / 2};
            if (mirrored)
                columns = {row, (row + 1) % size, (row + size - 1) % size, (row + side) % size,
                           (row + size - side) % size};
            if (row == 5)
                for (int column = 0; column < size; ++column)
                    columns.push_back(column);
            columns.push_back(11);
            std::sort(columns.begin(), columns.end());
            columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
            for (int const column : columns) {
                matrix.columns.push_back(column);
                matrix.values.push_back((column == row && row % 3 ? 0.0 : uniform(random) + 2.0) *
                                        std::ldexp(1.0, row % 200 - 100 + column % 31));
            }
            matrix.rowIndex.push_back(int(matrix.columns.size()));
        }
        std::vector<double> scaled(solution);
        for (int column = 0; column < size; ++column)
            scaled[std::size_t(column)] = std::ldexp(scaled[std::size_t(column)], -(column % 31));
        std::vector<double> found = solveDirectly(matrix, Definiteness::indefinite, matrix.product(scaled));
        ASSERT_FALSE(found.empty()) << mirrored;
        for (int column = 0; column < size; ++column)
            found[std::size_t(column)] = std::ldexp(found[std::size_t(column)], column % 31);
        EXPECT_LT(testSupport::relativeDistance(found, solution), 1e-9) << mirrored;

        // Two columns with elements in one row only leave no choice of pivots.
        for (int row = 0; row < size; ++row)
            for (int place = matrix.rowIndex[std::size_t(row)]; place < matrix.rowIndex[std::size_t(row) + 1];
                 ++place)
                if (int const column = matrix.columns[std::size_t(place)];
                    (column == 20 || column == 30) && row != 5)
                    matrix.values[std::size_t(place)] = 0.0;
        EXPECT_TRUE(solveDirectly(matrix, Definiteness::indefinite, scaled).empty()) << mirrored;
    }
    CompressedMatrix structural;
    structural.size = 4;
    structural.rowIndex = {0, 2, 4, 5, 6};
    structural.columns = {0, 1, 0, 1, 0, 3}; // column 2 is empty, and two columns share too few rows
    structural.values = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(solveDirectly(structural, Definiteness::indefinite, {1, 1, 1, 1}).empty());
    structural.columns = {0, 1, 0, 1, 2, 2};
    EXPECT_TRUE(solveDirectly(structural, Definiteness::indefinite, {1, 1, 1, 1}).empty());
}

TEST(DirectSolver, RepeatedFactorsAndSolvesAreIndependentAndBitEqual)
{
    CompressedMatrix matrix = testSupport::gridOperator(12, 2, 0.1, 0);
    std::mt19937 random(17);
    std::vector<double> const right = testSupport::randomVector(matrix.size, random);
    std::vector<double> const first = solveDirectly(matrix, Definiteness::positiveDefinite, right);

    CDirectSolver solver(Structure::symmetricUpper, Definiteness::positiveDefinite);
    ASSERT_TRUE(define(solver, matrix) && solver.reorder(nullptr));
    std::vector<double> bad(matrix.values.size(), -1.0);
    std::vector<double> solution(right.size());
    EXPECT_FALSE(solver.factor(bad.data(), nullptr));
    EXPECT_FALSE(solver.solve(right.data(), 1, solution.data()));
    ASSERT_TRUE(solver.factor(matrix.values.data(), nullptr));
    ASSERT_TRUE(solver.solve(right.data(), 1, solution.data()));
    EXPECT_EQ(solution, first);
    ASSERT_TRUE(solver.factor(matrix.values.data(), nullptr, 0.25));
    ASSERT_TRUE(solver.solve(right.data(), 1, solution.data()));
    EXPECT_LT(
        testSupport::relativeDistance(testSupport::gridOperator(12, 2, 0.35, 0).product(solution), right),
        1e-11);
}

TEST(DirectSolver, ConcurrentSolversGiveTheBitsOfOne)
{
    std::vector<CompressedMatrix> matrices;
    std::vector<std::vector<double>> rights, serial, concurrent(6);
    std::mt19937 random(18);
    for (int number = 0; number < 6; ++number) {
        matrices.push_back(testSupport::gridOperator(9 + number, 1, 0.1, 1));
        rights.push_back(testSupport::randomVector(matrices.back().size, random));
        serial.push_back(solveDirectly(matrices.back(),
                                       number % 3 ? Definiteness::positiveDefinite : Definiteness::indefinite,
                                       rights.back()));
        ASSERT_FALSE(serial.back().empty());
    }
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < 6; ++number)
        threads.emplace_back([&, number] {
            concurrent[number] = solveDirectly(
                matrices[number], number % 3 ? Definiteness::positiveDefinite : Definiteness::indefinite,
                rights[number]);
        });
    for (std::thread & thread : threads)
        thread.join();
    for (std::size_t number = 0; number < 6; ++number)
        EXPECT_EQ(concurrent[number], serial[number]) << number;
}

// Large enough for parts of blocks as well as for subtrees.
TEST(DirectSolver, AnyNumberOfThreadsGivesTheSameBits)
{
    CompressedMatrix const matrix = testSupport::gridOperator(22, 1, 0.01, 1);
    std::mt19937 random(19);
    std::vector<double> const right = testSupport::randomVector(2 * matrix.size, random);
    std::vector<double> first;
    for (int const threads : {1, 2, 3, 7, 7, 7, 7}) {
        CVescaThreadingTasksHelper::setNumOfPhisicalThread(threads);
        std::vector<double> const solution = solveDirectly(matrix, Definiteness::positiveDefinite, right);
        CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
        ASSERT_FALSE(solution.empty());
        if (first.empty())
            first = solution;
        EXPECT_EQ(solution, first) << threads;
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/VPLSstorage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <random>
#include <utility>
#include <vector>

#include <support/SolverSystems.h>

using namespace REmath;

namespace
{

using T = float;

using testSupport::DenseMatrix;

// Random matrix with values that `float` holds exactly, so that results can be compared without tolerance.
// The last row is never empty, so that the row index is complete.
DenseMatrix randomMatrix(int size, double density, bool upperOnly, std::mt19937 & random)
{
    DenseMatrix dense(size);
    for (int row = 0; row < size; ++row)
        for (int column = upperOnly ? row : 0; column < size; ++column)
            if (double(random() % 1000) < density * 1000)
                dense(row, column) = int(random() % 64) - 32;
    if (size > 0)
        dense(size - 1, size - 1) = 5;
    return dense;
}

CCSRSquareMatrix<T> makeCsr(DenseMatrix const & dense, int base, bool upperOnly)
{
    CCSRSquareMatrix<T> matrix;
    CCSRSquareMatrixFiller<T> filler(&matrix, dense.size, -1, base, upperOnly);
    for (int row = 0; row < dense.size; ++row)
        for (int column = 0; column < dense.size; ++column)
            EXPECT_TRUE(dense(row, column) == 0 ||
                        filler.pushByRawNextNonZeroElement(row + base, column + base, T(dense(row, column))));
    EXPECT_TRUE(filler.setCompleted());
    return matrix;
}

// Is `matrix` the block of `dense` from row and column `first` on, without zeros?
void expectHolds(ICsrMatrix<T> const & matrix, DenseMatrix const & dense, int first, bool upperOnly)
{
    int const base = matrix.getIndexBase();
    int position = 0;
    for (int row = 0; row < matrix.getMatrixSize(); ++row) {
        ASSERT_EQ(matrix.getCsrPointerB()[row], position + base);
        for (int column = upperOnly ? row : 0; column < matrix.getMatrixSize(); ++column)
            if (dense(row + first, column + first) != 0) {
                ASSERT_LT(position, matrix.getNonZeroValuesNumber());
                ASSERT_EQ(matrix.getCsrColumns()[position], column + base);
                ASSERT_EQ(double(matrix.getCsrValues()[position]), dense(row + first, column + first));
                ++position;
            }
        ASSERT_EQ(matrix.getCsrPointerE()[row], position + base);
    }
    ASSERT_EQ(matrix.getNonZeroValuesNumber(), position);
}

} // namespace

TEST(CsrMatrixTest, FillerTakesAscendingElementsUpToTheirNumber)
{
    std::mt19937 random(10);
    int completed = 0, refused = 0;
    for (int round = 0; round < 5000; ++round) {
        int const size = std::array{INT_MIN, -1, 1, 2, 3, 4}[random() % 6], base = int(random() % 2);
        int const expected = std::array{-1, -1, 1, 2, 3, 4}[random() % 6]; // -1: not known ahead
        CCSRSquareMatrix<T> matrix;
        CCSRSquareMatrixFiller<T> filler(&matrix, size, expected, base, false);
        std::vector<std::pair<int, int>> taken;
        bool isSound = true;
        for (int pushes = int(random() % 7); pushes > 0; --pushes) {
            std::pair<int, int> place = taken.empty() ? std::pair(0, -1) : taken.back();
            place.second += 1 + int(random() % 2);
            if (place.second >= size || random() % 4 == 0)
                place = {place.first + 1, int(random() % 3)};
            if (random() % 16 == 0)
                (random() % 2 ? place.first : place.second) =
                    std::array{INT_MIN, -1, 0, size, INT_MAX - 1}[random() % 5];
            auto const isInside = [size](int index) { return index >= 0 && index < size; };
            isSound = isSound && isInside(place.first) && isInside(place.second) &&
                      (taken.empty() || taken.back() < place) && int(taken.size()) != expected;
            ASSERT_EQ(filler.pushByRawNextNonZeroElement(place.first + base, place.second + base,
                                                         T(taken.size() + 1)),
                      isSound);
            ASSERT_EQ(filler.isSpoiled(), !isSound);
            if (!isSound)
                break;
            taken.push_back(place);
        }
        bool const isComplete = isSound && !taken.empty() && (expected < 0 || int(taken.size()) == expected);
        ASSERT_EQ(expected < 0 ? filler.setCompleted() : filler.isCompleted(), isComplete);
        for (std::size_t k = 0; k < taken.size(); ++k) {
            ASSERT_EQ(matrix.getCsrColumns()[k], taken[k].second + base);
            ASSERT_EQ(matrix.getCsrValues()[k], T(k + 1));
        }
        for (int row = 0; isComplete && row <= taken.back().first; ++row)
            ASSERT_EQ(matrix.getRowIndex()[row] - base,
                      std::lower_bound(taken.begin(), taken.end(), std::pair(row, 0)) - taken.begin());
        completed += isComplete;
        refused += !isSound;
    }
    EXPECT_TRUE(completed > 500 && refused > 500);
}

TEST(CsrMatrixTest, FillerSurvivesMisuse)
{
    // An exact filler needs neither a reservation nor a completion; with them it is spoiled.
    CCSRSquareMatrix<T> matrix;
    for (bool reserves : {false, true}) {
        CCSRSquareMatrixFiller<T> filler(&matrix, 3, 2, 0, true);
        EXPECT_TRUE(filler.pushByRawNextNonZeroElement(1, 0, 9)); // below the diagonal: passed over
        EXPECT_FALSE(filler.isSpoiled());
        reserves ? filler.reserveMemory(20) : void(filler.setCompleted());
        EXPECT_TRUE(filler.isSpoiled());
    }
    for (int base : {-1, 2, INT_MAX, INT_MIN}) {
        CCSRSquareMatrixFiller<T> filler(&matrix, 2, -1, base, false);
        EXPECT_FALSE(filler.pushByRawNextNonZeroElement(base, base, 1));
    }
    // No target, and one that is taken away under the filler.
    CCSRSquareMatrixFiller<T> targetless(nullptr, 3, 2, 0, false);
    targetless.reserveMemory(3);
    EXPECT_FALSE(targetless.isCompleted() || targetless.pushByRawNextNonZeroElement(0, 0, 1));
    CCSRSquareMatrixFiller<T> filler(&matrix, 4, 4, 0, false);
    EXPECT_TRUE(filler.pushByRawNextNonZeroElement(0, 0, 1));
    matrix.initMemory(2, 1, CSR_INDEX_BASE_0, false);
    EXPECT_FALSE(filler.pushByRawNextNonZeroElement(1, 0, 1));
}

TEST(CsrMatrixTest, ProductsAgreeWithTheDenseMatrix)
{
    std::mt19937 random(11);
    for (int round = 0; round < 120; ++round) {
        int const size = 1 + int(random() % 70);
        bool const upperOnly = round % 2 == 0;
        int const base = round / 2 % 2;
        DenseMatrix const dense = randomMatrix(size, round % 5 * 0.25, upperOnly, random);
        CCSRSquareMatrix<T> const matrix = makeCsr(dense, base, upperOnly);
        std::vector<T> vector, expected;
        for (int row = 0; row < size; ++row)
            vector.push_back(T(int(random() % 64) - 32));
        for (int row = 0; row < size; ++row) {
            T sum = 0;
            for (int column = 0; column < size; ++column)
                sum += T(upperOnly && column < row ? dense(column, row) : dense(row, column)) *
                       vector[std::size_t(column)];
            expected.push_back(sum);
        }
        std::vector<T> result(vector.size(), T(77));
        MatrixMultVector<T>(size, result.data(), matrix, vector.data());
        ASSERT_EQ(result, expected);
        // Not the size of the matrix: refused.
        MatrixMultVector<T>(size + 1, result.data(), matrix, vector.data());
        MatrixMultVector<T>(size - 1, result.data(), matrix, expected.data());
        ASSERT_EQ(result, expected);
    }
    // What is not complete, and sizes that no vector has, change nothing.
    CCSRSquareMatrix<T> incomplete;
    CCSRSquareMatrixFiller<T> const filler(&incomplete, 3, -1, 1, false);
    std::vector<T> const vector(3, T(1)), before(3, T(5));
    std::vector<T> result = before;
    for (int size : {3, 0, -1})
        MatrixMultVector<T>(size, result.data(), incomplete, vector.data());
    EXPECT_EQ(result, before);
}

TEST(CsrMatrixTest, SubMatrixIsTheBlockOfTheDenseMatrix)
{
    std::mt19937 random(12);
    for (int round = 0; round < 60; ++round) {
        int const size = 1 + int(random() % 12), base = int(random() % 2);
        bool const upperOnly = random() % 2 == 0;
        DenseMatrix const dense = randomMatrix(size, 0.4, upperOnly, random);
        CCSRSquareMatrix<T> const matrix = makeCsr(dense, base, upperOnly);
        for (int first = -1; first <= size + 1; ++first)
            for (int last = -1; last <= size + 1; ++last) {
                CCSRSquareMatrix<T> block(matrix);
                block.makeSelfSubMatrix(first, last, round % 2 == 0 ? block : matrix);
                bool const isRange = first >= 0 && first <= last && last <= size;
                ASSERT_EQ(block.getMatrixSize(), isRange ? last - first : 0);
                ASSERT_NO_FATAL_FAILURE(expectHolds(block, dense, std::max(first, 0), upperOnly));
            }
    }
}

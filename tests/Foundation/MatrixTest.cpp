// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Matrix.h>

#include "DenseTestSupport.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

namespace
{

using namespace REmath;
using denseTest::randomElement;
using denseTest::randomMatrix;
using denseTest::wordOf;

// Compares each element, by all ways to it, with a function of its row and column.
template <class T, class Wanted>
void expectElements(Matrix<T> const & matrix, int rows, int cols, Wanted wanted)
{
    ASSERT_EQ(matrix.rows(), rows);
    ASSERT_EQ(matrix.cols(), cols);
    for (int row = 0; row < rows; ++row) {
        for (int col = 0; col < cols; ++col) {
            ASSERT_EQ(matrix(row, col), wanted(row, col)) << row << ' ' << col;
            // The place that LAPACK expects it in.
            ASSERT_EQ(&matrix.elem(row, col), matrix[0] + col * rows + row);
            ASSERT_EQ(&matrix.elem(row, col), matrix[col] + row);
        }
    }
}

template <class T>
class MatrixTest : public testing::Test
{};
TYPED_TEST_SUITE(MatrixTest, denseTest::AllElements, );

TYPED_TEST(MatrixTest, OperationsActOnTheElementsTheyName)
{
    using T = TypeParam;
    std::mt19937 random(17);
    auto const upTo = [&random](int largest) { return int(random() % unsigned(largest + 1)); };
    for (int round = 0; round < 120; ++round) {
        int const rows = 1 + upTo(24), cols = 1 + upTo(6), newRows = 1 + upTo(24), newCols = 1 + upTo(6);
        Matrix<T> const a = randomMatrix<T>(rows, cols, random), b = randomMatrix<T>(rows, cols, random);
        Matrix<T> own(3, 4);
        std::vector<T> outside(std::size_t(rows * cols));
        std::vector<T *> table(std::size_t(cols) + 20);
        Matrix<T> wrapper(outside.data(), table.data(), rows, cols);
        Matrix<T> & matrix = round % 2 == 0 ? own : wrapper;
        auto const ofA = [&a](int row, int col) { return a(row, col); };
        matrix = a;
        expectElements(matrix, rows, cols, ofA);
        ASSERT_TRUE(matrix == a && !(matrix != a));

        // A window of the matrix goes to another place of it, over itself or not.
        int const height = 1 + upTo(rows - 1), width = 1 + upTo(cols - 1);
        int const row0 = upTo(rows - height), col0 = upTo(cols - width);
        int const from = upTo(rows - height), fromCol = upTo(cols - width);
        auto const isInside = [&](int row, int col) {
            return row >= row0 && row < row0 + height && col >= col0 && col < col0 + width;
        };
        matrix.copySubMatrix(row0, col0, height, width, matrix, from, fromCol);
        expectElements(matrix, rows, cols, [&](int row, int col) {
            return isInside(row, col) ? a(row - row0 + from, col - col0 + fromCol) : a(row, col);
        });
        matrix = a;
        matrix.as(row0, col0, b.get(0, 0, height, width));
        expectElements(matrix, rows, cols, [&](int row, int col) {
            return isInside(row, col) ? b(row - row0, col - col0) : a(row, col);
        });
        ASSERT_EQ(matrix.get(row0, col0, height, width), b.get(0, 0, height, width));
        if (rows % height == 0 && cols % width == 0) {
            Matrix<T> const tile = b.get(0, 0, height, width);
            int const i = upTo(rows / height - 1), j = upTo(cols / width - 1);
            (matrix = a).submatrix(i, j, tile);
            (own = a).as(i * height, j * width, tile);
            ASSERT_EQ(own, matrix);
        }

        expectElements(a.transpose(), cols, rows, [&](int row, int col) { return a(col, row); });
        ASSERT_EQ(a.herm(), a.transpose());
        expectElements(a.flop(), rows, cols, [&](int row, int col) { return a(row, cols - 1 - col); });
        T const value = randomElement<T>(random);
        Vector<T> diagonal(std::min(rows, cols));
        T sum(0);
        for (int k = 0; k < diagonal.size(); ++k)
            sum = T(sum + (diagonal[k] = a(k, k)));
        ASSERT_EQ(a.getDiag(), diagonal);
        ASSERT_EQ(a.trace(), sum);
        (matrix = a).diag(value);
        expectElements(matrix, rows, cols,
                       [&](int row, int col) { return row == col ? value : a(row, col); });

        matrix = a + b;
        matrix -= value;
        matrix *= 2;
        matrix += a - b;
        matrix += value;
        expectElements(matrix, rows, cols, [&](int row, int col) {
            T const doubled = T(T(T(a(row, col) + b(row, col)) - value) * 2);
            return T(T(doubled + T(a(row, col) - b(row, col))) + value);
        });
        (matrix = a) *= 4;
        matrix /= 2;
        ASSERT_EQ(matrix, a + a);
        ASSERT_EQ(matrix = value, value);
        expectElements(matrix, rows, cols, [&](int, int) { return value; });

        Matrix<T> other(b);
        other.swap(matrix = a);
        expectElements(other, rows, cols, ofA);
        ASSERT_EQ(matrix, b);
        matrix = std::move(other);
        matrix.resizeKeep(newRows, newCols);
        expectElements(matrix, newRows, newCols,
                       [&](int row, int col) { return row < rows && col < cols ? a(row, col) : T(0); });
        matrix.resize(rows, newCols);
        expectElements(matrix, rows, newCols, [](int, int) { return T(0); });
    }
}

TYPED_TEST(MatrixTest, OverMemoryOfTheCallersLeavesItWhenResizedOrAssigned)
{
    using T = TypeParam;
    std::vector<T> outside{T(1), T(2), T(3), T(4), T(5), T(6)};
    std::vector<T> const before = outside;
    std::vector<T *> table(3);
    Matrix<T> resized(outside.data(), table.data(), 2, 3), target(outside.data(), table.data(), 2, 3), moved;
    EXPECT_EQ(resized(1, 2), T(6));
    resized.resize(0, 5);
    EXPECT_EQ(resized[0], outside.data());
    resized.resize(2, 3);
    EXPECT_EQ(resized, target = Matrix<T>(2, 3));
    moved = Matrix<T>(outside.data(), table.data(), 3, 2);
    EXPECT_NE(moved[0], outside.data());
    // The source is the target's own memory in another shape.
    moved = Matrix<T>(moved[0], table.data(), 2, 2);
    EXPECT_EQ(moved(1, 1), T(4));
    EXPECT_EQ(outside, before);
}

TYPED_TEST(MatrixTest, ThrowsItsWordsAndChangesNothing)
{
    using T = TypeParam;
    std::mt19937 random(5);
    Matrix<T> matrix = randomMatrix<T>(4, 6, random);
    Matrix<T> const before(matrix), other(6, 4), tile(2, 3), uneven(3, 3), tall(8, 6);
    Matrix<T> const empty(0, 3), negative(-2, -3);
    for (Matrix<T> const * operand : {&other, &tall, &empty, &negative}) {
        EXPECT_EQ(wordOf([&] { matrix += *operand; }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { matrix - *operand; }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { return *operand != matrix; }), "NURBSWrongSize2D");
    }
    for (Matrix<T> const * unfit : {&uneven, &tall, &empty, &negative})
        EXPECT_EQ(wordOf([&] { matrix.submatrix(-1, 0, *unfit); }), "NURBSWrongSize2D");
    // Tiles are counted by their size, windows by elements.
    for (int const at : {-1, 2, INT_MAX, INT_MIN}) {
        EXPECT_EQ(wordOf([&] { matrix.submatrix(at, 0, tile); }), "NURBSOutOfBound2D");
        EXPECT_EQ(wordOf([&] { matrix.submatrix(0, at, tile); }), "NURBSOutOfBound2D");
        EXPECT_EQ(wordOf([&] { matrix.as(at == 2 ? 3 : at, 0, tile); }), "NURBSMatrixErr");
        EXPECT_EQ(wordOf([&] { matrix.as(0, at == 2 ? 4 : at, tile); }), "NURBSMatrixErr");
        EXPECT_EQ(wordOf([&] { matrix.get(at == 2 ? 3 : at, 0, 2, 3); }), "NURBSMatrixErr");
        EXPECT_EQ(wordOf([&] { matrix.get(0, at == 2 ? 4 : at, 2, 3); }), "NURBSMatrixErr");
    }
    EXPECT_EQ(wordOf([&] { matrix.get(0, 0, -1, 1); }), "NURBSMatrixErr");
    EXPECT_EQ(wordOf([&] { matrix.get(2, 2, INT_MAX, INT_MAX); }), "NURBSMatrixErr");
    // More elements than can be counted.
    EXPECT_THROW(Matrix<T>(65536, 32768), std::bad_alloc);
    EXPECT_THROW(Matrix<T>(INT_MAX, INT_MAX), std::bad_alloc);
    EXPECT_THROW(matrix.resize(INT_MAX, 3), std::bad_alloc);
    EXPECT_THROW(matrix.resizeKeep(3, INT_MAX), std::bad_alloc);
    EXPECT_EQ(matrix, before);
}

template <class T>
T plainProduct(T const & left, T const & right)
{
    if constexpr (std::is_arithmetic_v<T>)
        return T(left * right);
    else
        return T(left.x() * right.x(), left.y() * right.y(), left.z() * right.z(), left.w() * right.w());
}

template <class T>
class MatrixProductTest : public testing::Test
{};
using ProductElements = testing::Types<unsigned char, int, float, double, HPoint3D>;
TYPED_TEST_SUITE(MatrixProductTest, ProductElements, );

TYPED_TEST(MatrixProductTest, IsTheSumOfProducts)
{
    using T = TypeParam;
    std::mt19937 random(23);
    for (int round = 0; round < 120; ++round) {
        auto const size = [&random] { return 1 + int(random() % 22); };
        int const inners = size();
        Matrix<T> const left = randomMatrix<T>(size(), inners, random);
        Matrix<T> const right = randomMatrix<T>(inners, size(), random);
        Matrix<T> expected(left.rows(), right.cols());
        for (int row = 0; row < left.rows(); ++row) {
            for (int col = 0; col < right.cols(); ++col) {
                for (int inner = 0; inner < inners; ++inner)
                    expected(row, col) =
                        T(expected(row, col) + plainProduct(left(row, inner), right(inner, col)));
            }
        }
        // The numbers are small integers: every order of summation is exact.
        ASSERT_EQ(left * right, expected);
        if constexpr (std::is_arithmetic_v<T>) {
            Vector<T> column(right.rows()), expectedColumn(expected.rows());
            std::copy_n(right[0], right.rows(), column.memory());
            std::copy_n(expected[0], expected.rows(), expectedColumn.memory());
            ASSERT_EQ(left * column, expectedColumn);
            Matrix<T> a = left, b = right;
            a.resizeKeep(12, 12);
            b.resizeKeep(12, 12);
            ASSERT_EQ(comm(a, b) + b * a, a * b);
            ASSERT_EQ(DenseScalar<T>(2) * a, a + a);
        }
    }
    Matrix<T> const narrow(3, 2), wide(2, 4), empty(3, 0), flat(0, 5), negative(-1, 3);
    EXPECT_EQ(wordOf([&] { narrow * empty; }), "NURBSWrongSize2D");
    EXPECT_EQ(empty * flat, Matrix<T>(3, 5));
    EXPECT_EQ(negative * narrow, Matrix<T>(-1, 2));
    if constexpr (std::is_arithmetic_v<T>) {
        EXPECT_EQ(wordOf([&] { narrow * Vector<T>(3); }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { comm(narrow, Matrix<T>(2, 3)); }), "NURBSWrongSize2D");
        EXPECT_EQ(empty * Vector<T>(0), Vector<T>(3));
        EXPECT_EQ((negative * Vector<T>(3)).size(), 0);
    }
}

TYPED_TEST(MatrixProductTest, ZerosOfTheLeftHideWhatIsNotFiniteOnTheRight)
{
    using T = TypeParam;
    for (int const size : {2, 5, 8, 16, 33}) {
        for (double const wild : {double(INFINITY), double(NAN)}) {
            if constexpr (!std::is_integral_v<T>) {
                Matrix<T> left(size, size), right(size, size), twos(size - 1, size);
                left.diag(T(2));
                right = T(1);
                twos = T(2);
                right(0, 0) = T(wild);
                Matrix<T> const result = left * right;
                EXPECT_EQ(result.get(1, 0, size - 1, size), twos) << size << wild;
                EXPECT_NE(result(0, 0), T(2)) << size << wild;
            }
        }
    }
}

} // namespace

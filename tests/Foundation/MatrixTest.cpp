// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Matrix.h>

#include "DenseTestSupport.h"

#include <algorithm>
#include <climits>
#include <limits>
#include <new>
#include <utility>
#include <vector>

namespace
{

using namespace REmath;
using denseTest::fillRandomly;
using denseTest::randomElement;
using denseTest::wordOf;

/// Rows of elements, each kept and changed by itself.
template <class T>
using Model = std::vector<std::vector<T>>;

template <class T>
Model<T> modelOf(int rows, int cols)
{
    return Model<T>(std::size_t(rows), std::vector<T>(std::size_t(cols), T(0)));
}

template <class T>
Model<T> contents(Matrix<T> const & matrix)
{
    Model<T> rows = modelOf<T>(matrix.rows(), matrix.cols());
    for (int row = 0; row < matrix.rows(); ++row) {
        for (int col = 0; col < matrix.cols(); ++col) {
            rows[std::size_t(row)][std::size_t(col)] = matrix(row, col);
            // All three ways to an element, and the place that LAPACK expects it in.
            EXPECT_EQ(&matrix.elem(row, col), matrix[col] + row);
            EXPECT_EQ(&matrix.elem(row, col), matrix[0] + col * matrix.rows() + row);
        }
    }
    return rows;
}

/// Writes the upper left `rows` by `cols` elements of `source` into `target`.
template <class T>
void copyWindow(Model<T> & target, int row, int col, int rows, int cols, Model<T> const & source,
                int sourceRow = 0, int sourceCol = 0)
{
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < cols; ++c) {
            target[std::size_t(row + r)][std::size_t(col + c)] =
                source[std::size_t(sourceRow + r)][std::size_t(sourceCol + c)];
        }
    }
}

template <class T>
class MatrixTest : public testing::Test
{};
TYPED_TEST_SUITE(MatrixTest, denseTest::AllElements, );

TYPED_TEST(MatrixTest, FollowsAModelThroughRandomOperations)
{
    using T = TypeParam;
    std::mt19937 random(17);
    auto const upTo = [&random](int largest) { return int(random() % unsigned(largest + 1)); };
    for (int round = 0; round < 40; ++round) {
        std::vector<T> outside(12);
        std::vector<T *> table(4);
        Matrix<T> own(3, 4);
        Matrix<T> wrapper(outside.data(), table.data(), 3, 4);
        Matrix<T> & matrix = round % 2 == 0 ? own : wrapper;
        Model<T> model = modelOf<T>(3, 4);
        for (int step = 0; step < 60; ++step) {
            int const rows = int(model.size()), cols = int(model[0].size());
            int const newRows = 1 + upTo(24), newCols = 1 + upTo(6);
            T const value = randomElement<T>(random);
            Matrix<T> other(rows, cols);
            fillRandomly(other, random);
            Model<T> const otherModel = contents(other);
            Model<T> next = modelOf<T>(newRows, newCols);
            switch (random() % 12) {
            case 0:
                matrix.resize(newRows, newCols);
                model = next;
                break;
            case 1:
                matrix.resizeKeep(newRows, newCols);
                copyWindow(next, 0, 0, std::min(rows, newRows), std::min(cols, newCols), model);
                model = next;
                break;
            case 2:
                matrix = other;
                model = otherModel;
                break;
            case 3:
                EXPECT_EQ(matrix = value, value);
                model.assign(model.size(), std::vector<T>(model[0].size(), value));
                break;
            case 4: {
                // A window of the matrix goes to another place of it, over itself or not.
                int const height = upTo(rows), width = upTo(cols);
                int const row = upTo(rows - height), col = upTo(cols - width);
                int const fromRow = upTo(rows - height), fromCol = upTo(cols - width);
                EXPECT_EQ(contents(matrix.get(fromRow, fromCol, height, width)).size(), std::size_t(height));
                matrix.copySubMatrix(row, col, height, width, matrix, fromRow, fromCol);
                copyWindow(model, row, col, height, width, Model<T>(model), fromRow, fromCol);
                break;
            }
            case 5: {
                int const height = 1 + upTo(rows - 1), width = 1 + upTo(cols - 1);
                int const row = upTo(rows - height), col = upTo(cols - width);
                matrix.as(row, col, other.get(0, 0, height, width));
                copyWindow(model, row, col, height, width, otherModel);
                ASSERT_EQ(matrix.get(row, col, height, width), other.get(0, 0, height, width));
                break;
            }
            case 6: {
                int height = 1 + upTo(rows - 1), width = 1 + upTo(cols - 1);
                while (rows % height != 0) {
                    ++height;
                }
                while (cols % width != 0) {
                    ++width;
                }
                int const i = upTo(rows / height - 1), j = upTo(cols / width - 1);
                matrix.submatrix(i, j, other.get(0, 0, height, width));
                copyWindow(model, i * height, j * width, height, width, otherModel);
                break;
            }
            case 7:
                next = modelOf<T>(cols, rows);
                for (int row = 0; row < rows; ++row) {
                    for (int col = 0; col < cols; ++col) {
                        next[std::size_t(col)][std::size_t(row)] = model[std::size_t(row)][std::size_t(col)];
                    }
                }
                ASSERT_EQ(matrix.herm(), matrix.transpose());
                matrix = matrix.transpose();
                model = next;
                break;
            case 8:
                matrix = matrix.flop();
                for (std::vector<T> & row : model) {
                    std::reverse(row.begin(), row.end());
                }
                break;
            case 9: {
                T sum(0);
                Vector<T> const diagonal = matrix.getDiag();
                ASSERT_EQ(diagonal.size(), std::min(rows, cols));
                for (int index = 0; index < diagonal.size(); ++index) {
                    T & element = model[std::size_t(index)][std::size_t(index)];
                    EXPECT_EQ(diagonal[index], element);
                    sum = T(sum + element);
                    element = value;
                }
                EXPECT_EQ(matrix.trace(), sum);
                matrix.diag(value);
                break;
            }
            case 10:
                matrix = other + matrix - other;
                other = matrix;
                matrix += other;
                matrix -= value;
                matrix *= 2;
                for (std::vector<T> & row : model) {
                    for (T & element : row) {
                        element = T(T(T(element + element) - value) * 2);
                    }
                }
                break;
            case 11:
                other.swap(matrix);
                ASSERT_EQ(contents(other), model);
                ASSERT_EQ(contents(matrix), otherModel);
                matrix = std::move(other);
                break;
            }
            if (sizeof(T) > 1 && step % 5 == 4) {
                matrix.reset(); // bytes may wrap around; others are kept small enough for the model
                model.assign(model.size(), std::vector<T>(model[0].size(), T(0)));
            }
            ASSERT_EQ(contents(matrix), model) << "round " << round << ", step " << step;
            Matrix<T> const copy(matrix);
            ASSERT_TRUE(copy == matrix && !(copy != matrix));
        }
    }
}

TYPED_TEST(MatrixTest, OverMemoryOfTheCallersLeavesItWhenResizedOrAssigned)
{
    using T = TypeParam;
    std::vector<T> outside{T(1), T(2), T(3), T(4), T(5), T(6)};
    std::vector<T> const before = outside;
    std::vector<T *> table(3);
    Matrix<T> resized(outside.data(), table.data(), 2, 3);
    EXPECT_EQ(resized(1, 2), T(6));
    resized.resize(0, 5);
    EXPECT_EQ(resized[0], outside.data());
    resized.resize(2, 3);
    EXPECT_EQ(resized, Matrix<T>(2, 3));
    Matrix<T> target(outside.data(), table.data(), 2, 3);
    target = Matrix<T>(2, 3);
    Matrix<T> moved;
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
    Matrix<T> matrix(4, 6);
    fillRandomly(matrix, random);
    Matrix<T> const before(matrix), other(6, 4), tile(2, 3), uneven(3, 3), tall(8, 6);
    Matrix<T> const empty(0, 3), negative(-2, -3);
    for (Matrix<T> const * operand : {&other, &tall, &empty, &negative}) {
        EXPECT_EQ(wordOf([&] { matrix += *operand; }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { matrix -= *operand; }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { matrix + *operand; }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { matrix - *operand; }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { return matrix == *operand; }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { return *operand != matrix; }), "NURBSWrongSize2D");
    }
    for (Matrix<T> const * unfit : {&uneven, &tall, &empty, &negative}) {
        EXPECT_EQ(wordOf([&] { matrix.submatrix(0, 0, *unfit); }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { matrix.submatrix(-1, 0, *unfit); }), "NURBSWrongSize2D");
    }
    std::pair<int, int> const tiles[] = {{2, 0}, {0, 2}, {-1, 0}, {0, -1}, {INT_MAX, 0}, {0, INT_MIN}};
    for (auto const & [i, j] : tiles) {
        EXPECT_EQ(wordOf([&, row = i, col = j] { matrix.submatrix(row, col, tile); }), "NURBSOutOfBound2D");
    }
    std::pair<int, int> const offsets[] = {{3, 0}, {0, 4}, {-1, 0}, {0, -1}, {INT_MAX, 0}, {0, INT_MAX}};
    for (auto const & [r, c] : offsets) {
        EXPECT_EQ(wordOf([&, row = r, col = c] { matrix.as(row, col, tile); }), "NURBSMatrixErr");
        EXPECT_EQ(wordOf([&, row = r, col = c] { matrix.get(row, col, 2, 3); }), "NURBSMatrixErr");
    }
    EXPECT_EQ(wordOf([&] { matrix.get(0, 0, -1, 1); }), "NURBSMatrixErr");
    EXPECT_EQ(wordOf([&] { matrix.get(2, 2, INT_MAX, INT_MAX); }), "NURBSMatrixErr");
    EXPECT_EQ(matrix, before);
}

TYPED_TEST(MatrixTest, EmptyMatricesKeepTheirSizesAndTakeEveryOperation)
{
    using T = TypeParam;
    std::pair<int, int> const sizes[] = {{0, 0}, {0, 3}, {3, 0}, {-2, 5}, {5, -2}, {INT_MIN, INT_MIN}};
    for (auto const & [rows, cols] : sizes) {
        Matrix<T> empty(rows, cols);
        Matrix<T> full(2, 2);
        full = empty;
        EXPECT_EQ(full.rows(), rows);
        EXPECT_EQ(full.cols(), cols);
        EXPECT_TRUE(full == empty);
        full += empty;
        full *= 2;
        full.reset(T(1));
        full.diag(T(1));
        EXPECT_EQ(full.trace(), T(0));
        EXPECT_EQ(full.getDiag().size(), 0);
        EXPECT_EQ(full.transpose().rows(), cols);
        EXPECT_EQ((full + full).cols(), cols);
        EXPECT_EQ(full.flop().rows(), rows);
        Matrix<T> const wrapper(nullptr, nullptr, rows, cols);
        EXPECT_TRUE(wrapper == empty);
        full.resizeKeep(2, 3);
        EXPECT_EQ(full, Matrix<T>(2, 3));
    }
    EXPECT_EQ(Matrix<T>(2, 2).get(2, 2, 0, 0).rows(), 0);
    EXPECT_EQ(contents(Matrix<T>()), modelOf<T>(1, 1));
}

TYPED_TEST(MatrixTest, RefusesMoreElementsThanCanBeCounted)
{
    using T = TypeParam;
    Matrix<T> matrix(2, 2);
    matrix = T(3);
    Matrix<T> const before(matrix);
    EXPECT_THROW(Matrix<T>(65536, 32768), std::bad_alloc);
    EXPECT_THROW(Matrix<T>(INT_MAX, INT_MAX), std::bad_alloc);
    EXPECT_THROW(matrix.resize(INT_MAX, 3), std::bad_alloc);
    EXPECT_THROW(matrix.resizeKeep(3, INT_MAX), std::bad_alloc);
    EXPECT_EQ(matrix, before);
}

template <class T>
T plainProduct(T const & left, T const & right)
{
    if constexpr (std::is_arithmetic_v<T>) {
        return T(left * right);
    } else {
        return T(left.x() * right.x(), left.y() * right.y(), left.z() * right.z(), left.w() * right.w());
    }
}

template <class T>
class MatrixProductTest : public testing::Test
{};
using ProductElements =
    testing::Types<char, unsigned char, int, unsigned int, float, double, HPoint3D, HPoint3D_d>;
TYPED_TEST_SUITE(MatrixProductTest, ProductElements, );

TYPED_TEST(MatrixProductTest, IsTheSumOfProducts)
{
    using T = TypeParam;
    std::mt19937 random(23);
    for (int round = 0; round < 120; ++round) {
        auto const size = [&random] { return 1 + int(random() % 22); };
        Matrix<T> left(size(), size()), right(left.cols(), size());
        fillRandomly(left, random);
        fillRandomly(right, random);
        Matrix<T> expected(left.rows(), right.cols());
        for (int row = 0; row < left.rows(); ++row) {
            for (int col = 0; col < right.cols(); ++col) {
                for (int inner = 0; inner < left.cols(); ++inner) {
                    expected(row, col) =
                        T(expected(row, col) + plainProduct(left(row, inner), right(inner, col)));
                }
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
    EXPECT_EQ(wordOf([&] { wide * wide; }), "NURBSWrongSize2D");
    EXPECT_EQ(wordOf([&] { narrow * empty; }), "NURBSWrongSize2D");
    EXPECT_EQ(empty * flat, Matrix<T>(3, 5));
    EXPECT_EQ(negative * narrow, Matrix<T>(-1, 2));
    if constexpr (std::is_arithmetic_v<T>) {
        EXPECT_EQ(wordOf([&] { narrow * Vector<T>(3); }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { comm(narrow, wide); }), "NURBSWrongSize2D");
        EXPECT_EQ(wordOf([&] { comm(narrow, Matrix<T>(2, 3)); }), "NURBSWrongSize2D");
        EXPECT_EQ(empty * Vector<T>(0), Vector<T>(3));
        EXPECT_EQ((negative * Vector<T>(3)).size(), 0);
    }
}

TYPED_TEST(MatrixProductTest, ZerosOfTheLeftHideWhatIsNotFiniteOnTheRight)
{
    using T = TypeParam;
    if constexpr (!std::is_integral_v<T>) {
        for (double const wild :
             {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
            for (int const size : {2, 5, 8, 16, 33}) {
                Matrix<T> left(size, size), right(size, size);
                left.diag(T(2));
                right = T(1);
                right(0, 0) = T(wild);
                Matrix<T> const result = left * right;
                Matrix<T> twos(size - 1, size);
                twos = T(2);
                EXPECT_EQ(result.get(1, 0, size - 1, size), twos) << size;
                EXPECT_NE(result(0, 0), T(2)) << size;
            }
        }
    }
}

} // namespace

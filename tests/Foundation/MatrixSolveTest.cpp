// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Matrix.h>

#include "DenseTestSupport.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace
{

using namespace REmath;
using denseTest::wordOf;

template <class T>
class MatrixSolveTest : public testing::Test
{};
using RealElements = testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixSolveTest, RealElements, );

template <class T>
Matrix<T> uniformMatrix(int rows, int cols, std::mt19937 & random)
{
    std::uniform_real_distribution<T> uniform(-1, 1);
    return denseTest::filledMatrix<T>(rows, cols, [&] { return uniform(random); });
}

// Largest element by its absolute value.
double norm(Matrix<double> const & matrix)
{
    double largest = 0;
    for (int i = 0; i < matrix.rows() * matrix.cols(); ++i)
        largest = std::max(largest, std::abs(matrix[0][i]));
    return largest;
}

template <class T>
Matrix<double> widened(Matrix<T> const & matrix)
{
    Matrix<double> result(matrix.rows(), matrix.cols());
    std::copy_n(matrix[0], matrix.rows() * matrix.cols(), result[0]);
    return result;
}

// Regular matrices that are hard in different ways: random, with nothing on the diagonal, with rows of very
// different size, nearly singular.
template <class T>
Matrix<T> regularMatrix(int kind, int size, std::mt19937 & random)
{
    Matrix<T> matrix = uniformMatrix<T>(size, size, random);
    for (int row = 0; row < size; ++row) {
        for (int col = 0; col < size && kind > 0; ++col)
            matrix(row, col) = kind == 1   ? T(2 * ((row + 1) % size == col))
                               : kind == 2 ? matrix(row, col) * T(std::pow(10.0, row % 7 - 3))
                                           : T(1) / T(row + col + 1) + (row == col ? T(1e-3) : T(0));
    }
    return matrix;
}

TYPED_TEST(MatrixSolveTest, SolvesWithAResidualOfRoundingAndLeavesTheFactors)
{
    using T = TypeParam;
    double const eps = std::numeric_limits<T>::epsilon();
    std::mt19937 random(31);
    for (int trial = 0; trial < 160; ++trial) {
        SCOPED_TRACE(trial);
        int const size = 1 + trial / 4;
        Matrix<T> const a = regularMatrix<T>(trial % 4, size, random);
        Matrix<T> const b = uniformMatrix<T>(size, 1 + size % 4, random);
        Matrix<T> factors(a), x, inPlace(b);
        ASSERT_TRUE(solveMat(factors, b, x));
        Matrix<double> const wide = widened(a), residual = wide * widened(x) - widened(b);
        EXPECT_LE(norm(residual), 8 * eps * size * (size * norm(wide) * norm(widened(x)) + 1));

        // The factors multiply to the rows of the matrix in the order of the pivots.
        Matrix<double> lower(size, size), upper(size, size);
        lower.diag(1);
        for (int col = 0; col < size; ++col) {
            for (int row = 0; row < size; ++row)
                (row > col ? lower : upper)(row, col) = double(factors(row, col));
        }
        EXPECT_LE(norm(lower), 1.0);
        Matrix<double> const product = lower * upper;
        for (int row = 0; row < size; ++row) {
            double closest = std::numeric_limits<double>::infinity();
            for (int original = 0; original < size; ++original)
                closest =
                    std::min(closest, norm(product.get(row, 0, 1, size) - wide.get(original, 0, 1, size)));
            EXPECT_LE(closest, 8 * eps * size * size * norm(wide));
        }

        // In place of the right side, into memory of the caller's, and in place of the matrix itself.
        std::vector<T> outside(std::size_t(b.rows() * b.cols()));
        std::vector<T *> table(std::size_t(b.cols()));
        Matrix<T> wrapper(outside.data(), table.data(), b.rows(), b.cols());
        EXPECT_TRUE(solveMat(factors = a, inPlace, inPlace) && inPlace == x);
        EXPECT_TRUE(solveMat(factors = a, b, wrapper) && wrapper == x && wrapper[0] == outside.data());
        EXPECT_TRUE(solveMat(factors = a, b, factors) && factors == x);
    }
}

TYPED_TEST(MatrixSolveTest, ChecksSizesBeforeItTouchesAnything)
{
    using T = TypeParam;
    Matrix<T> oblong(2, 3), square(3, 3), x(5, 5), nothing(0, 0), large(20, 20);
    square.diag(T(1));
    Matrix<T> const before(square);
    EXPECT_EQ(wordOf([&] { solveMat(oblong, square, x); }), "MatrixSolveDimError");
    EXPECT_EQ(wordOf([&] { solveMat(square, oblong, x); }), "MatrixSolveDimError");
    EXPECT_EQ(wordOf([&] { solveMat(square, oblong, oblong); }), "MatrixSolveDimError");
    EXPECT_EQ(square, before);
    EXPECT_EQ(x, Matrix<T>(5, 5));

    // Right sides without columns, and nothing to solve at all.
    EXPECT_TRUE(solveMat(square, Matrix<T>(3, 0), x) && x.cols() == 0);
    EXPECT_FALSE(solveMat(large, Matrix<T>(20, -1), x));
    EXPECT_TRUE(solveMat(nothing, nothing, x) && x.rows() == 0);
}

TYPED_TEST(MatrixSolveTest, SurvivesWhatIsNotFinite)
{
    using T = TypeParam;
    using Limits = std::numeric_limits<T>;
    std::mt19937 random(41);
    for (int const size : {1, 2, 3, 15, 16, 17, 40, 130}) {
        for (T const wild : {Limits::quiet_NaN(), Limits::infinity(), Limits::max()}) {
            for (int const count : {size * size, size, 1}) {
                Matrix<T> a = uniformMatrix<T>(size, size, random), x;
                std::fill_n(count == 1 ? &a(size / 2, size / 2) : a[0], count, wild);
                bool const solved = solveMat(a, uniformMatrix<T>(size, 3, random), x);
                // A column of NaN never gives a zero pivot, so there is no failure, and nothing finite.
                EXPECT_TRUE(!std::isnan(wild) || count == 1 || (solved && std::isnan(x(0, 0))));
            }
        }
    }
}

TEST(InverseMat, TimesTheMatrixIsTheIdentity)
{
    std::mt19937 random(43);
    for (int trial = 0; trial < 120; ++trial) {
        SCOPED_TRACE(trial);
        int const size = 1 + trial / 3;
        Matrix<double> const a = regularMatrix<double>(trial % 3, size, random);
        Matrix<double> inverse, identity(size, size), inPlace(a);
        identity.diag(1);
        ASSERT_TRUE(inverseMat(a, inverse));
        double const bound = 1e-15 * size * size * norm(a) * norm(inverse) * size;
        EXPECT_LE(norm(a * inverse - identity), bound);
        EXPECT_LE(norm(inverse * a - identity), bound);
        EXPECT_TRUE(inverseMat(inPlace, inPlace) && inPlace == inverse);

        Matrix<double> singular = uniformMatrix<double>(size, size, random), x;
        std::fill_n(singular[trial % size], size, 0.0);
        EXPECT_FALSE(inverseMat(singular, inverse));
        Matrix<double> const b = uniformMatrix<double>(size, 2, random);
        EXPECT_TRUE(!solveMat(singular, b, x) && x == b);
        singular = std::numeric_limits<double>::quiet_NaN();
        inverseMat(singular, inverse);
        EXPECT_TRUE(std::isnan(inverse(0, 0)));
    }
    Matrix<double> inverse;
    EXPECT_EQ(wordOf([&] { inverseMat(Matrix<double>(2, 3), inverse); }), "MatrixSolveDimError");
    EXPECT_EQ(inverse, Matrix<double>(1, 1));
}

} // namespace

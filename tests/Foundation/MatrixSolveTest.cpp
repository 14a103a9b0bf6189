// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Matrix.h>

#include "DenseTestSupport.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

// Present in one implementation of BLAS only.
extern "C" {
__attribute__((weak)) void openblas_set_num_threads(int count);
__attribute__((weak)) int openblas_get_num_threads(void);
}

namespace
{

using namespace REmath;
using denseTest::uniformMatrix;
using denseTest::wordOf;

template <class T>
class MatrixSolveTest : public testing::Test
{};
using RealElements = testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixSolveTest, RealElements, );

// Largest element by its absolute value.
template <class T>
double norm(Matrix<T> const & matrix)
{
    double largest = 0;
    for (int col = 0; col < matrix.cols(); ++col) {
        for (int row = 0; row < matrix.rows(); ++row) {
            largest = std::max(largest, std::abs(double(matrix(row, col))));
        }
    }
    return largest;
}

Matrix<double> widened(Matrix<double> const & matrix) { return matrix; }

Matrix<double> widened(Matrix<float> const & matrix)
{
    Matrix<double> result(matrix.rows(), matrix.cols());
    for (int col = 0; col < matrix.cols(); ++col) {
        std::copy_n(matrix[col], matrix.rows(), result[col]);
    }
    return result;
}

// Matrices that are hard in different ways, all regular.
template <class T>
Matrix<T> regularMatrix(int kind, int size, std::mt19937 & random)
{
    Matrix<T> matrix = uniformMatrix<T>(size, size, random);
    for (int col = 0; col < size; ++col) {
        for (int row = 0; row < size; ++row) {
            switch (kind) {
            case 0: // random
                break;
            case 1: // nothing on the diagonal
                matrix(row, col) = (row + 1) % size == col ? T(2) : T(0);
                break;
            case 2: // rows of very different size
                matrix(row, col) *= T(std::pow(10.0, row % 7 - 3));
                break;
            case 3: // nearly singular
                matrix(row, col) = T(1) / T(row + col + 1) + (row == col ? T(1e-3) : T(0));
                break;
            }
        }
    }
    return matrix;
}

TYPED_TEST(MatrixSolveTest, SolvesWithAResidualOfRoundingAndLeavesTheFactors)
{
    using T = TypeParam;
    double const eps = std::numeric_limits<T>::epsilon();
    std::mt19937 random(31);
    for (int size = 1; size <= 40; ++size) {
        for (int kind = 0; kind < 4; ++kind) {
            Matrix<T> const a = regularMatrix<T>(kind, size, random);
            Matrix<T> const b = uniformMatrix<T>(size, 1 + size % 4, random);
            Matrix<T> factors(a), x;
            ASSERT_TRUE(solveMat(factors, b, x));
            Matrix<double> const residual = widened(a) * widened(x) - widened(b);
            EXPECT_LE(norm(residual), 8 * eps * size * (size * norm(a) * norm(x) + norm(b)))
                << "size " << size << ", kind " << kind;

            // The factors multiply to the rows of the matrix in the order of the pivots.
            Matrix<double> lower(size, size), upper(size, size);
            lower.diag(1);
            for (int col = 0; col < size; ++col) {
                for (int row = 0; row < size; ++row) {
                    (row > col ? lower : upper)(row, col) = double(factors(row, col));
                }
            }
            EXPECT_LE(norm(lower), 1.0);
            Matrix<double> const product = lower * upper, wide = widened(a);
            for (int row = 0; row < size; ++row) {
                double closest = std::numeric_limits<double>::infinity();
                for (int original = 0; original < size; ++original) {
                    closest = std::min(closest,
                                       norm(product.get(row, 0, 1, size) - wide.get(original, 0, 1, size)));
                }
                EXPECT_LE(closest, 8 * eps * size * size * norm(a));
            }

            // In place of the right side, and into a matrix over memory of the caller's.
            Matrix<T> inPlace(b);
            ASSERT_TRUE(solveMat(factors = a, inPlace, inPlace));
            EXPECT_EQ(inPlace, x);
            std::vector<T> outside(std::size_t(b.rows() * b.cols()));
            std::vector<T *> table(std::size_t(b.cols()));
            Matrix<T> wrapper(outside.data(), table.data(), b.rows(), b.cols());
            ASSERT_TRUE(solveMat(factors = a, b, wrapper));
            EXPECT_EQ(wrapper, x);
            EXPECT_EQ(wrapper[0], outside.data());
            // In place of the matrix itself.
            ASSERT_TRUE(solveMat(factors = a, b, factors));
            EXPECT_EQ(factors, x);
        }
    }
}

TYPED_TEST(MatrixSolveTest, ChecksSizesBeforeItTouchesAnything)
{
    using T = TypeParam;
    Matrix<T> oblong(2, 3), square(3, 3), x(5, 5);
    square.diag(T(1));
    Matrix<T> const before(square);
    EXPECT_EQ(wordOf([&] { solveMat(oblong, square, x); }), "MatrixSolveDimError");
    EXPECT_EQ(wordOf([&] { solveMat(square, oblong, x); }), "MatrixSolveDimError");
    EXPECT_EQ(wordOf([&] { solveMat(square, oblong, oblong); }), "MatrixSolveDimError");
    EXPECT_EQ(square, before);
    EXPECT_EQ(x, Matrix<T>(5, 5));

    // Right sides without columns, and nothing to solve at all.
    EXPECT_TRUE(solveMat(square, Matrix<T>(3, 0), x));
    EXPECT_EQ(x.cols(), 0);
    Matrix<T> large(20, 20);
    EXPECT_FALSE(solveMat(large, Matrix<T>(20, -1), x));
    Matrix<T> nothing(0, 0);
    EXPECT_TRUE(solveMat(nothing, nothing, x));
    EXPECT_EQ(x.rows(), 0);
}

TYPED_TEST(MatrixSolveTest, SurvivesWhatIsNotFinite)
{
    using T = TypeParam;
    std::mt19937 random(41);
    T const wilds[] = {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity(),
                       std::numeric_limits<T>::max()};
    for (int const size : {1, 2, 3, 15, 16, 17, 40, 130}) {
        for (T const wild : wilds) {
            for (int pattern = 0; pattern < 4; ++pattern) {
                Matrix<T> a = uniformMatrix<T>(size, size, random);
                for (int col = 0; col < size; ++col) {
                    for (int row = 0; row < size; ++row) {
                        bool const isWild = pattern == 0   ? true
                                            : pattern == 1 ? col == 0
                                            : pattern == 2 ? row == size - 1
                                                           : row == size / 2 && col == size / 2;
                        a(row, col) = isWild ? wild : a(row, col);
                    }
                }
                Matrix<T> const b = uniformMatrix<T>(size, 3, random);
                Matrix<T> x;
                // A column of NaN never gives a zero pivot, so there is no failure, and nothing finite.
                bool const solved = solveMat(a, b, x);
                if (std::isnan(wild) && pattern < 2) {
                    EXPECT_TRUE(solved);
                    EXPECT_TRUE(std::isnan(x(0, 0)));
                }
            }
        }
    }
}

TEST(InverseMat, TimesTheMatrixIsTheIdentity)
{
    std::mt19937 random(43);
    for (int size = 1; size <= 40; ++size) {
        for (int kind = 0; kind < 3; ++kind) {
            Matrix<double> const a = regularMatrix<double>(kind, size, random);
            Matrix<double> inverse, identity(size, size);
            identity.diag(1);
            ASSERT_TRUE(inverseMat(a, inverse));
            double const bound = 1e-15 * size * size * norm(a) * norm(inverse) * size;
            EXPECT_LE(norm(a * inverse - identity), bound) << "size " << size << ", kind " << kind;
            EXPECT_LE(norm(inverse * a - identity), bound) << "size " << size << ", kind " << kind;
            Matrix<double> inPlace(a);
            ASSERT_TRUE(inverseMat(inPlace, inPlace));
            EXPECT_EQ(inPlace, inverse);
        }
        Matrix<double> singular = uniformMatrix<double>(size, size, random), inverse, x;
        std::fill_n(singular[size * (size % 3) / 3], size, 0.0);
        EXPECT_FALSE(inverseMat(singular, inverse)) << size;
        Matrix<double> const b = uniformMatrix<double>(size, 2, random);
        EXPECT_FALSE(solveMat(singular, b, x)) << size;
        EXPECT_EQ(x, b);
        singular = std::numeric_limits<double>::quiet_NaN();
        inverseMat(singular, inverse);
        EXPECT_TRUE(std::isnan(inverse(0, 0)));
    }
    Matrix<double> inverse;
    EXPECT_EQ(wordOf([&] { inverseMat(Matrix<double>(2, 3), inverse); }), "MatrixSolveDimError");
    EXPECT_EQ(inverse, Matrix<double>(1, 1));
}

TYPED_TEST(MatrixSolveTest, GivesTheSameBitsForAnyNumberOfThreads)
{
    using T = TypeParam;
    if (!openblas_set_num_threads || !openblas_get_num_threads)
        GTEST_SKIP() << "BLAS has no setting for its threads";
    int const formerThreads = openblas_get_num_threads();
    std::mt19937 random(47);
    for (int const size : {60, 150, 400}) {
        Matrix<T> const a = uniformMatrix<T>(size, size, random), b = uniformMatrix<T>(size, 40, random);
        Vector<T> const vector = b.getDiag();
        std::vector<Matrix<T>> solutions, products;
        std::vector<Vector<T>> images;
        for (int const threads : {1, 2, 3}) {
            openblas_set_num_threads(threads);
            Matrix<T> factors(a), x;
            EXPECT_TRUE(solveMat(factors, b, x));
            solutions.push_back(x);
            products.push_back(a * b);
            images.push_back(b * vector);
            EXPECT_EQ(solutions.back(), solutions.front()) << size;
            EXPECT_EQ(products.back(), products.front()) << size;
            EXPECT_EQ(images.back(), images.front()) << size;
            EXPECT_EQ(openblas_get_num_threads(), threads);
        }
    }
    openblas_set_num_threads(formerThreads);
}

} // namespace

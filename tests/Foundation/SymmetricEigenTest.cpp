// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/SymmetricEigen.h>

#include "RowMatrix.h"

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

namespace
{

void reduce(float ** a, int n, float * d, float * e) { tred2(a, n, d, e); }
void reduce(double ** a, int n, double * d, double * e) { tred2_d(a, n, d, e); }
int iterate(float * d, float * e, int n, float ** z) { return tqli(d, e, n, z); }
int iterate(double * d, double * e, int n, double ** z) { return tqli_d(d, e, n, z); }

// Products and comparisons are in `double`.
template <class Real>
using Square = RowMatrix<Real>;

template <class Real>
Square<Real> randomSymmetric(int n, qz_sampling::Random & random)
{
    Square<Real> matrix(n);
    for (int row = 0; row < n; ++row) {
        for (int col = 0; col <= row; ++col)
            matrix.at(row, col) = matrix.at(col, row) = static_cast<Real>(random.uniform(-1, 1));
    }
    return matrix;
}

// Q diag(values) Q^T with the orthogonal Q of the eigenvectors of a random matrix.
template <class Real>
Square<Real> withEigenvalues(std::vector<double> const & values, qz_sampling::Random & random)
{
    int const n = static_cast<int>(values.size());
    Square<double> q = randomSymmetric<double>(n, random);
    std::vector<double> d(values), e(values);
    tred2_d(q.rows.data(), n, d.data(), e.data());
    Square<Real> matrix(n);
    for (int row = 0; row < n; ++row) {
        for (int col = 0; col <= row; ++col) {
            double sum = 0;
            for (int k = 0; k < n; ++k)
                sum += q.at(row, k) * values[static_cast<std::size_t>(k)] * q.at(col, k);
            matrix.at(row, col) = matrix.at(col, row) = static_cast<Real>(sum);
        }
    }
    return matrix;
}

template <class Real>
struct EigenSystem
{
    Square<Real> vectors;
    std::vector<Real> values;
    int status;

    // Reads the lower triangle only: the upper one is made NaN.
    explicit EigenSystem(Square<Real> const & matrix)
        : vectors(matrix), values(static_cast<std::size_t>(matrix.n))
    {
        for (int row = 0; row < matrix.n; ++row) {
            for (int col = row + 1; col < matrix.n; ++col)
                vectors.at(row, col) = std::numeric_limits<Real>::quiet_NaN();
        }
        std::vector<Real> e(values);
        reduce(vectors.rows.data(), matrix.n, values.data(), e.data());
        EXPECT_EQ(e[0], 0);
        e[0] = std::numeric_limits<Real>::quiet_NaN();
        status = iterate(values.data(), e.data(), matrix.n, vectors.rows.data());
    }

    std::vector<double> sorted() const
    {
        std::vector<double> result(values.begin(), values.end());
        std::sort(result.begin(), result.end());
        return result;
    }
};

// Checks |A v - d v| and |V^T V - I| against the rounding of the type.
template <class Real>
void expectEigenSystem(Square<Real> const & matrix, EigenSystem<Real> const & system)
{
    int const n = matrix.n;
    double largest = 0;
    for (Real element : matrix.elements)
        largest = std::max(largest, std::abs(static_cast<double>(element)));
    double const epsilon = 20 * n * static_cast<double>(std::numeric_limits<Real>::epsilon());
    ASSERT_EQ(system.status, 1);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            double image = 0, product = 0;
            for (int k = 0; k < n; ++k) {
                image += matrix.at(j, k) * system.vectors.at(k, i);
                product += system.vectors.at(k, i) * system.vectors.at(k, j);
            }
            double const value = system.values[static_cast<std::size_t>(i)];
            ASSERT_NEAR(image, value * system.vectors.at(j, i), epsilon * largest);
            ASSERT_NEAR(product, i == j, epsilon);
        }
    }
}

template <class Real>
class SymmetricEigen : public testing::Test
{};
using Reals = testing::Types<float, double>;
TYPED_TEST_SUITE(SymmetricEigen, Reals, );

} // namespace

TYPED_TEST(SymmetricEigen, SolvesRandomMatricesOfAllScales)
{
    qz_sampling::Random random(1);
    int const range = std::is_same_v<TypeParam, float> ? 100 : 950;
    for (int n = 1; n <= 16; ++n) {
        for (int exponent : {0, 0, -range, range}) {
            Square<TypeParam> matrix = randomSymmetric<TypeParam>(n, random);
            for (TypeParam & element : matrix.elements)
                element = std::ldexp(element, exponent);
            expectEigenSystem(matrix, EigenSystem<TypeParam>(matrix));
        }
    }
}

TYPED_TEST(SymmetricEigen, FindsRepeatedAndClusteredEigenvalues)
{
    qz_sampling::Random random(2);
    double const epsilon = std::numeric_limits<TypeParam>::epsilon();
    for (std::vector<double> const & values : {std::vector<double>{0, 0, 0},
                                               {-1, 2, 2},
                                               {1, 1, 1, 1},
                                               {0, 0, 0, 0, 5},
                                               {-3, 1, 1 + 3 * epsilon, 1 - 3 * epsilon},
                                               {-1, -1, -1, 0, 0, 1, 1, 1}}) {
        for (int repetition = 0; repetition < 20; ++repetition) {
            Square<TypeParam> const matrix = withEigenvalues<TypeParam>(values, random);
            EigenSystem<TypeParam> const system(matrix);
            expectEigenSystem(matrix, system);
            std::vector<double> wanted(values);
            std::sort(wanted.begin(), wanted.end());
            std::vector<double> const found = system.sorted();
            for (std::size_t i = 0; i < wanted.size(); ++i)
                EXPECT_NEAR(found[i], wanted[i], 60 * epsilon * 5);
        }
    }
}

TEST(SymmetricEigen, KeepsSmallEigenvaluesOfGradedMatrices)
{
    // S B S with the large scales at the lower right. An error relative to the largest eigenvalue would leave
    // nothing of the smallest one, and so nothing of the product of all, det(B) det(S)².
    qz_sampling::Random random(3);
    for (int repetition = 0; repetition < 50; ++repetition) {
        Square<double> matrix = withEigenvalues<double>({0.5, 0.8, 1.2, 2}, random);
        double const determinant = 0.5 * 0.8 * 1.2 * 2;
        double const scales[] = {1e-9, 1e-6, 1e-3, 1};
        for (int row = 0; row < 4; ++row) {
            for (int col = 0; col < 4; ++col)
                matrix.at(row, col) *= scales[row] * scales[col];
        }
        EigenSystem<double> const system(matrix);
        expectEigenSystem(matrix, system);
        double const product =
            std::accumulate(system.values.begin(), system.values.end(), 1.0, std::multiplies<>());
        EXPECT_NEAR(product * 1e36 / determinant, 1, 1e-10);
    }
}

TEST(SymmetricEigen, TridiagonalMatricesAndTheirOrder)
{
    // The second difference has the eigenvalues 2 - 2 cos(k pi / (n + 1)).
    int const n = 60;
    Square<double> z(n);
    std::vector<double> d(n, 2), e(n, -1);
    for (int i = 0; i < n; ++i)
        z.at(i, i) = 1;
    ASSERT_EQ(tqli_d(d.data(), e.data(), n, z.rows.data()), 1);
    std::sort(d.begin(), d.end());
    for (int k = 1; k <= n; ++k)
        EXPECT_NEAR(d[static_cast<std::size_t>(k - 1)], 2 - 2 * std::cos(k * std::acos(-1.0) / (n + 1)),
                    1e-13);

    // A diagonal matrix stays as it is: no sweep, no sorting.
    Square<double> unit(3);
    std::vector<double> diagonal{3, 1, 2}, none(3, 0);
    unit.at(0, 1) = 7;
    EXPECT_EQ(tqli_d(diagonal.data(), none.data(), 3, unit.rows.data()), 1);
    EXPECT_EQ(diagonal, (std::vector<double>{3, 1, 2}));
    EXPECT_EQ(unit.at(0, 1), 7);
}

TYPED_TEST(SymmetricEigen, FailsOnNumbersThatAreNone)
{
    using Limits = std::numeric_limits<TypeParam>;
    qz_sampling::Random random(5);
    for (int n = 1; n <= 4; ++n) {
        for (int place = 0; place < n; ++place) {
            Square<TypeParam> matrix = randomSymmetric<TypeParam>(n, random);
            matrix.at(n - 1, place) = Limits::quiet_NaN();
            EXPECT_EQ(EigenSystem<TypeParam>(matrix).status, 0) << n << " " << place;
            if (n > 1) {
                matrix.at(n - 1, place) = Limits::infinity();
                (void)EigenSystem<TypeParam>(matrix); // comes to an end
            }
        }
    }
    TypeParam d[2] = {1, 2}, e[2] = {0, Limits::infinity()}, z[4] = {1, 0, 0, 1};
    TypeParam * rows[2] = {z, z + 2};
    EXPECT_EQ(iterate(d, e, 2, rows), 0);
    reduce(rows, 0, d, e);
    EXPECT_EQ(iterate(d, e, 0, rows), 1);
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/IndexDetail.h>
#include <QZmath/Foundation/RotationMatrix.h>
#include <QZmath/Foundation/SymmetricEigen.h>

#include "RowMatrix.h"

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <vector>

using REmath::Detail::index;

namespace
{

void reduce(float ** a, int n, float * d, float * e) { tred2(a, n, d, e); }
void reduce(double ** a, int n, double * d, double * e) { tred2_d(a, n, d, e); }
int iterate(float * d, float * e, int n, float ** z) { return tqli(d, e, n, z); }
int iterate(double * d, double * e, int n, double ** z) { return tqli_d(d, e, n, z); }

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

// Q diag(values) Q with a random reflection Q = I - 2 v v^T / v^T v.
template <class Real>
Square<Real> withEigenvalues(std::vector<double> const & values, qz_sampling::Random & random)
{
    int const n = static_cast<int>(values.size());
    std::vector<double> v(values.size());
    std::generate(v.begin(), v.end(), [&random] { return random.normal(); });
    double const squared = std::inner_product(v.begin(), v.end(), v.begin(), 0.0);
    auto const q = [&](int i, int k) { return (i == k) - 2 * v[index(i)] * v[index(k)] / squared; };
    Square<Real> matrix(n);
    for (int i = 0; i < n * n; ++i) {
        double sum = 0;
        for (int k = 0; k < n; ++k)
            sum += q(i / n, k) * values[index(k)] * q(i % n, k);
        matrix.at(i / n, i % n) = static_cast<Real>(sum);
    }
    return matrix;
}

template <class Real>
struct EigenSystem
{
    // Reads the lower triangle only: the upper one is made NaN.
    explicit EigenSystem(Square<Real> const & matrix) : vectors(matrix), values(index(matrix.n))
    {
        for (int row = 0; row < matrix.n; ++row)
            std::fill(vectors.rows[index(row)] + row + 1, vectors.rows[index(row)] + matrix.n, Real(NAN));
        std::vector<Real> e(values);
        reduce(vectors.rows.data(), matrix.n, values.data(), e.data());
        EXPECT_EQ(e[0], 0);
        e[0] = Real(NAN);
        status = iterate(values.data(), e.data(), matrix.n, vectors.rows.data());
    }

    Square<Real> vectors;
    std::vector<Real> values;
    int status;
};

// Checks |A v - d v| and |V^T V - I| against the rounding of the type; returns the eigenvalues in order.
template <class Real>
std::vector<double> eigenvalues(Square<Real> const & matrix)
{
    EigenSystem<Real> const system(matrix);
    EXPECT_EQ(system.status, 1);
    int const n = matrix.n;
    double largest = 0;
    for (Real element : matrix.elements)
        largest = std::max(largest, std::abs(static_cast<double>(element)));
    double const epsilon = 20 * n * static_cast<double>(std::numeric_limits<Real>::epsilon());
    std::vector<double> values(system.values.begin(), system.values.end());
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            double image = 0, product = 0;
            for (int k = 0; k < n; ++k) {
                image += matrix.at(j, k) * system.vectors.at(k, i);
                product += system.vectors.at(k, i) * system.vectors.at(k, j);
            }
            double const wanted = values[index(i)] * system.vectors.at(j, i);
            EXPECT_NEAR(image, wanted, epsilon * largest);
            EXPECT_NEAR(product, i == j, epsilon);
        }
    }
    std::sort(values.begin(), values.end());
    return values;
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
    for (int trial = 0; trial < 64; ++trial) {
        Square<TypeParam> matrix = randomSymmetric<TypeParam>(1 + trial / 4, random);
        for (TypeParam & element : matrix.elements)
            element = std::ldexp(element, (trial % 4 - 1) % 2 * range);
        eigenvalues(matrix);
    }
}

TEST(SymmetricEigen, KeepsSmallEigenvaluesOfGradedMatrices)
{
    // S B S with the large scales at the lower right. An error relative to the largest eigenvalue would leave
    // nothing of the smallest one, and so nothing of the product of all, det(B) det(S)².
    qz_sampling::Random random(3);
    for (int repetition = 0; repetition < 50; ++repetition) {
        Square<double> matrix = withEigenvalues<double>({0.5, 0.8, 1.2, 2}, random);
        for (int i = 0; i < 16; ++i)
            matrix.at(i / 4, i % 4) *= std::pow(10, 3 * (i / 4 - 3) + 3 * (i % 4 - 3));
        std::vector<double> const values = eigenvalues(matrix);
        double const product = std::accumulate(values.begin(), values.end(), 1e36, std::multiplies<>());
        EXPECT_NEAR(product / (0.5 * 0.8 * 1.2 * 2), 1, 1e-10);
    }
}

TYPED_TEST(SymmetricEigen, LeavesDiagonalsAndFailsOnNumbersThatAreNone)
{
    using Limits = std::numeric_limits<TypeParam>;
    qz_sampling::Random random(5);
    for (int n = 1; n <= 4; ++n) {
        for (int place = 0; place < n; ++place) {
            Square<TypeParam> matrix = randomSymmetric<TypeParam>(n, random);
            matrix.at(n - 1, place) = Limits::quiet_NaN();
            EXPECT_EQ(EigenSystem<TypeParam>(matrix).status, 0) << n << " " << place;
            matrix.at(n - 1, place) = Limits::infinity();
            (void)EigenSystem<TypeParam>(matrix); // comes to an end
        }
    }
    // A diagonal matrix stays as it is: no sweep, no sorting.
    TypeParam d[2] = {3, 1}, e[2] = {}, z[4] = {1, 7, 0, 1}, *rows[2] = {z, z + 2};
    EXPECT_EQ(iterate(d, e, 2, rows), 1);
    EXPECT_TRUE(d[0] == 3 && d[1] == 1 && z[1] == 7);
    e[1] = Limits::infinity();
    EXPECT_EQ(iterate(d, e, 2, rows), 0);
    reduce(rows, 0, d, e);
    EXPECT_EQ(iterate(d, e, 0, rows), 1);
    REmath::Point3D_d vectors[3];
    double values[3];
    EXPECT_THROW(GetEigenVectorsSA(CRotationMatrix::Identity() * NAN, vectors, values, true),
                 std::runtime_error);
}

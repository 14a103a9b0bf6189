// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/Bicgstab.h>

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <vector>

#include <support/SparseSystems.h>

namespace
{

using testSupport::DenseMatrix;

template <class T>
struct Product
{
    explicit Product(DenseMatrix const & givenMatrix) : matrix(givenMatrix) {}
    DenseMatrix const & matrix;
    int calls = 0;
    int throwAt = -1;

    static void multiply(void * context, T const * in, T * out)
    {
        auto & product = *static_cast<Product *>(context);
        if (product.calls++ == product.throwAt)
            throw std::runtime_error("stop");
        for (int row = 0; row < product.matrix.size; ++row) {
            double sum = 0.0;
            for (int column = 0; column < product.matrix.size; ++column)
                sum += product.matrix(row, column) * double(in[column]);
            out[row] = T(sum);
        }
    }
};

template <class T>
class Bicgstab : public testing::Test
{};
using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(Bicgstab, Scalars, );

TYPED_TEST(Bicgstab, ReachesTheResidualAskedForAndCountsItsProducts)
{
    using T = TypeParam;
    T const eps = std::is_same_v<T, float> ? T(1e-4) : T(1e-9);
    std::mt19937 random(21);
    for (int round = 0; round < 30; ++round) {
        int const size = 2 + int(random() % 60);
        DenseMatrix const matrix = testSupport::randomSparse(size, 4.0, round % 2 == 0, 1.3, random);
        std::vector<double> const right = testSupport::randomVector(size, random);
        std::vector<T> const b(right.begin(), right.end());
        std::vector<T> x(b);
        Product<T> product(matrix);
        int const iterations = bicgstab(size, &Product<T>::multiply, &product, b.data(), x.data(), eps, -1);
        ASSERT_GT(iterations, 0);
        EXPECT_EQ(product.calls, 1 + 2 * iterations);
        EXPECT_LT(testSupport::relativeDistance({x.begin(), x.end()}, testSupport::eliminate(matrix, right)),
                  100 * double(eps));
    }
}

TYPED_TEST(Bicgstab, ExactStartsAreBreakdowns)
{
    using T = TypeParam;
    DenseMatrix identity(5), rotation(2), zero(5);
    for (int row = 0; row < 5; ++row)
        identity(row, row) = 1.0;
    rotation(0, 1) = 1.0;
    rotation(1, 0) = -1.0;
    std::vector<T> const b{1, 2, 3, 4, 5}, none(5, T(0));
    auto const run = [](DenseMatrix const & matrix, std::vector<T> const & right, std::vector<T> x,
                        int size) {
        Product<T> product(matrix);
        int const result =
            bicgstab(size, &Product<T>::multiply, &product, right.data(), x.data(), T(1e-5), 100);
        return std::pair(result, x);
    };
    EXPECT_EQ(run(identity, none, none, 5), std::pair(-1, none));
    EXPECT_EQ(run(identity, b, b, 5), std::pair(-1, b));
    EXPECT_EQ(run(identity, none, none, 0).first, -1);
    EXPECT_EQ(run(identity, b, none, 5), std::pair(1, b));
    // The shadow residual is orthogonal to the first product of a skew or vanishing matrix.
    EXPECT_EQ(run(rotation, b, none, 2).first, -1);
    EXPECT_EQ(run(zero, b, none, 5).first, -1);
}

TEST(BicgstabScales, SmallProductsCountAsZeroByType)
{
    DenseMatrix identity(1);
    identity(0, 0) = 1.0;
    auto const run = [&](auto value) {
        using T = decltype(value);
        Product<T> product(identity);
        T x = 0;
        return bicgstab(1, &Product<T>::multiply, &product, &value, &x, T(1e-3), 10);
    };
    EXPECT_EQ(run(3e-8f), -1); // 9e-16
    EXPECT_EQ(run(4e-8f), 1);  // 1.6e-15
    EXPECT_EQ(run(0.9e-20), -1);
    EXPECT_EQ(run(1.1e-20), 1);
}

TEST(BicgstabEnds, NotANumberEndsItAndExceptionsPass)
{
    DenseMatrix matrix(2);
    matrix(0, 0) = std::nan("");
    matrix(1, 1) = 1.0;
    double const b[] = {1.0, 1.0};
    double x[] = {0.5, 0.0};
    Product<double> product(matrix);
    EXPECT_EQ(bicgstab(2, &Product<double>::multiply, &product, b, x, 1e-6, -1), 0);
    matrix(0, 0) = 2.0;
    for (int const call : {0, 1, 2}) {
        Product<double> throwing(matrix);
        throwing.throwAt = call;
        x[0] = x[1] = 0.0;
        EXPECT_THROW(bicgstab(2, &Product<double>::multiply, &throwing, b, x, 1e-6, -1), std::runtime_error);
    }
}

} // namespace

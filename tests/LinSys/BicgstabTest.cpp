// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/Bicgstab.h>

#include <cmath>
#include <gtest/gtest.h>
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

TEST(Bicgstab, BreakdownsAreToldAndExceptionsPass)
{
    struct Case
    {
        std::vector<double> matrix, right, start;
        int result;
    };
    double const notANumber = std::nan("");
    Case const cases[] = {
        {{1, 0, 0, 1}, {0, 0}, {0, 0}, -1}, // an exact start
        {{1, 0, 0, 1}, {1, 2}, {1, 2}, -1},
        {{1, 0, 0, 1}, {1, 2}, {0, 0}, 1},
        {{0, 1, -1, 0}, {1, 2}, {0, 0}, -1}, // the shadow residual is orthogonal to the first product
        {{0, 0, 0, 0}, {1, 2}, {0, 0}, -1},
        {{notANumber, 0, 0, 1}, {1, 1}, {0.5, 0}, 0},
        {{1}, {0.9e-20}, {0}, -1}, // products this small count as zero
        {{1}, {1.1e-20}, {0}, 1},
        {{}, {}, {}, -1},
    };
    auto const run = [](auto eps, Case const & one, int throwAt, int limit = 100) {
        using T = decltype(eps);
        int const size = int(one.right.size());
        DenseMatrix matrix(size);
        matrix.elements = one.matrix;
        Product<T> product(matrix);
        product.throwAt = throwAt;
        std::vector<T> const b(one.right.begin(), one.right.end());
        std::vector<T> x(one.start.begin(), one.start.end());
        int const result = bicgstab(size, &Product<T>::multiply, &product, b.data(), x.data(), eps, limit);
        if (result == 1) {
            EXPECT_EQ(x, b);
            EXPECT_EQ(product.calls, 3); // one for the start, two for each iteration
        }
        return result;
    };
    for (Case const & one : cases)
        EXPECT_EQ(run(1e-6, one, -1), one.result) << testing::PrintToString(one.right);
    EXPECT_EQ(run(1e-3f, {{1}, {3e-8}, {0}, -1}, -1), -1); // 9e-16
    EXPECT_EQ(run(1e-3f, {{1}, {4e-8}, {0}, 1}, -1), 1);   // 1.6e-15
    // Singular without a solution, and never broken down: without a limit the iteration would go on for ever.
    EXPECT_EQ(run(1e-6, {{0, 3, 0, 3}, {0, 1}, {0, 0}, 0}, -1, 0), -1);
    for (int const call : {0, 1, 2})
        EXPECT_THROW(run(1e-6, {{2, 0, 0, 1}, {1, 1}, {0, 0}, 0}, call), std::runtime_error);
}

} // namespace

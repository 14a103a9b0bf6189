// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/GaussJordan.h>

#include "RowMatrix.h"

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

using Rows = RowMatrix<double>;

TEST(GaussJordan, InvertsAndSolvesInPlace)
{
    qz_sampling::Random random(1);
    for (int n : {1, 2, 3, 7, 20, 50}) {
        int const m = n == 50 ? 50 : n % 4;
        Rows a(n, n), b(n, m);
        for (auto * elements : {&a.elements, &b.elements})
            std::generate(elements->begin(), elements->end(), [&] { return random.uniform(-1, 1); });
        for (int i = 0; i < n && n > 2; ++i) // a zero diagonal needs the pivoting
            a.at(i, i) = 0;
        std::vector<double> const matrix = a.elements, rightSides = b.elements;
        std::vector<double *> const pointers = a.rows;
        ASSERT_EQ(gaussj(a.rows.data(), n, m > 0 ? b.rows.data() : nullptr, m), 1);
        EXPECT_EQ(a.rows, pointers);
        for (int row = 0; row < n; ++row) {
            for (int col = 0; col < n + m; ++col) {
                double product = 0;
                for (int k = 0; k < n; ++k)
                    product += matrix[static_cast<std::size_t>(row * n + k)] *
                               (col < n ? a.at(k, col) : b.at(k, col - n));
                double const wanted =
                    col < n ? row == col : rightSides[static_cast<std::size_t>(row * m + col - n)];
                EXPECT_NEAR(product, wanted, 1e-10);
            }
        }
    }
}

TEST(GaussJordan, ReportsWhatItCannotSolve)
{
    Rows large(51, 51, 3), column(51, 51, 3);
    EXPECT_EQ(gaussj(large.rows.data(), 51, column.rows.data(), 1), -1);
    EXPECT_EQ(gaussj(large.rows.data(), 1, column.rows.data(), 51), -1);
    EXPECT_EQ(large.elements, std::vector<double>(51 * 51, 3));

    Rows rankOne(4, 4, 2), nan(3, 3, std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(gaussj(rankOne.rows.data(), 4, nullptr, 0), -1);
    EXPECT_EQ(gaussj(nan.rows.data(), 3, nullptr, 0), 0);
}

TEST(GaussJordan, TakesTheLastOfEqualPivots)
{
    // From the last of the four ones the elimination goes by the sum of the right sides, which overflows;
    // from the first one it would go by their difference.
    Rows a(2, 2, 1), b(2, 1, 1e308);
    a.at(1, 1) = -1;
    b.at(1, 0) = 1.5e308;
    EXPECT_EQ(gaussj(a.rows.data(), 2, b.rows.data(), 1), 1);
    EXPECT_TRUE(std::isinf(b.at(0, 0)));
    EXPECT_EQ(a.elements, (std::vector<double>{0.5, 0.5, 0.5, -0.5}));
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/GeneralizedEigen.h>

#include "RowMatrix.h"

#include <QZmath/Foundation/IndexDetail.h>

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

using REmath::Detail::index;

namespace
{

// Pencil of two matrices and room for its solutions.
struct Pencil
{
    explicit Pencil(int size) : n(size), a(n), b(n), vectors(n), values(index(n)) {}
    bool solve()
    {
        return gen_right_eigen(n, a.rows.data(), b.rows.data(), count, vectors.rows.data(), values.data());
    }

    int n;
    RowMatrix<double> a, b, vectors;
    std::vector<double> values;
    int count = -7;
};

} // namespace

TEST(GeneralizedEigen, FindsTheRealPairsOfAKnownPencil)
{
    // P D Q and P E Q with D = diag(alpha), but for one 2 by 2 block without real eigenvalues, and E =
    // diag(beta) with one zero: the pair and the infinite value must be missing, without a hole.
    qz_sampling::Random random(1);
    for (int repetition = 0; repetition < 30; ++repetition) {
        int const n = 8;
        Pencil pencil(n);
        RowMatrix<double> p(n), q(n);
        for (RowMatrix<double> * const matrix : {&p, &q}) {
            for (int i = 0; i < n * n; ++i)
                matrix->elements[index(i)] = random.uniform(-1, 1) + (i % (n + 1) == 0 ? 3 : 0);
        }
        std::vector<double> wanted;
        for (int i = 0; i < n; ++i) {
            double const alpha = i < 2 ? 0.5 : i - 4.5;
            double const beta = i == 5 ? 0 : i < 2 ? 1 : 1.5;
            if (i >= 2 && i != 5)
                wanted.push_back(alpha / beta);
            for (int row = 0; row < n; ++row) {
                for (int col = 0; col < n; ++col) {
                    double const left = p.at(row, i);
                    pencil.a.at(row, col) += left * alpha * q.at(i, col);
                    pencil.b.at(row, col) += left * beta * q.at(i, col);
                    if (i < 2)
                        pencil.a.at(row, col) += left * (i == 0 ? 1 : -1) * q.at(1 - i, col);
                }
            }
        }
        RowMatrix<double> const a = pencil.a, b = pencil.b;
        ASSERT_TRUE(pencil.solve());
        EXPECT_EQ(pencil.a.elements, a.elements);
        EXPECT_EQ(pencil.b.elements, b.elements);
        std::vector<double> found;
        for (int i = 0; i < pencil.count; ++i) {
            double const value = pencil.values[index(i)];
            // The infinite value can come out as one that is merely huge, of the size 1 / rounding.
            if (std::abs(value) > 1e12)
                continue;
            found.push_back(value);
            for (int row = 0; row < n; ++row) {
                double sum = 0;
                for (int k = 0; k < n; ++k)
                    sum += (a.at(row, k) - value * b.at(row, k)) * pencil.vectors.at(i, k);
                EXPECT_NEAR(sum, 0, 1e-11);
            }
        }
        std::sort(found.begin(), found.end());
        ASSERT_EQ(found.size(), wanted.size());
        for (std::size_t i = 0; i < wanted.size(); ++i)
            EXPECT_NEAR(found[i], wanted[i], 1e-9);
    }
}

TEST(GeneralizedEigen, SingularSecondMatrixAndBadInput)
{
    Pencil pencil(10);
    for (int k = 0; k < 10; ++k)
        pencil.a.at(k, k) = k + 1;
    EXPECT_TRUE(pencil.solve() && pencil.count == 0); // b = 0
    // A tiny beta counts as none, whatever the eigenvalue.
    for (int k = 6; k < 9; ++k)
        pencil.b.at(k, k) = k == 8 ? 1e-11 : 1e-9;
    EXPECT_TRUE(pencil.solve() && pencil.count == 2);

    for (double bad : {std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::infinity()}) {
        for (double * place : {&pencil.a.at(4, 2), &pencil.b.at(0, 9)}) {
            double const good = std::exchange(*place, bad);
            pencil.count = -7;
            EXPECT_TRUE(!pencil.solve() && pencil.count == 0);
            *place = good;
        }
    }
    for (int size : {0, std::numeric_limits<int>::max()})
        EXPECT_FALSE(gen_right_eigen(size, nullptr, nullptr, pencil.count, nullptr, nullptr));
}

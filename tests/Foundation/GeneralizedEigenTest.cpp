// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/GeneralizedEigen.h>

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace
{

// Pencil of two matrices and room for its solutions.
struct Pencil
{
    explicit Pencil(int size) : n(size), a(square()), b(square()), vectors(square()), values(a.size())
    {
        for (int row = 0; row < n; ++row) {
            rowsA.push_back(a.data() + row * n);
            rowsB.push_back(b.data() + row * n);
            rowsOut.push_back(vectors.data() + row * n);
        }
    }
    Pencil(Pencil const &) = delete;
    Pencil & operator=(Pencil const &) = delete;
    std::vector<double> square() const { return std::vector<double>(static_cast<std::size_t>(n * n)); }
    bool solve()
    {
        return gen_right_eigen(n, rowsA.data(), rowsB.data(), count, rowsOut.data(), values.data());
    }
    double & atA(int row, int col) { return a[static_cast<std::size_t>(row * n + col)]; }
    double & atB(int row, int col) { return b[static_cast<std::size_t>(row * n + col)]; }

    // Largest element of a x - λ b x over the solutions with |λ| up to a limit.
    double residual(double limit) const
    {
        double largest = 0;
        for (int i = 0; i < count; ++i) {
            if (std::abs(values[static_cast<std::size_t>(i)]) > limit)
                continue;
            for (int row = 0; row < n; ++row) {
                double sum = 0;
                for (int k = 0; k < n; ++k) {
                    auto const place = static_cast<std::size_t>(row * n + k);
                    sum += (a[place] - values[static_cast<std::size_t>(i)] * b[place]) *
                           vectors[static_cast<std::size_t>(i * n + k)];
                }
                largest = std::max(largest, std::abs(sum));
            }
        }
        return largest;
    }

    int n;
    std::vector<double> a, b, vectors, values;
    std::vector<double const *> rowsA, rowsB;
    std::vector<double *> rowsOut;
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
        std::vector<double> p = pencil.square(), q = pencil.square();
        for (std::size_t i = 0; i < p.size(); ++i) {
            p[i] = random.uniform(-1, 1) + (i % (n + 1) == 0 ? 3 : 0);
            q[i] = random.uniform(-1, 1) + (i % (n + 1) == 0 ? 3 : 0);
        }
        std::vector<double> wanted;
        for (int i = 0; i < n; ++i) {
            double const alpha = i < 2 ? 0.5 : i - 4.5;
            double const beta = i == 5 ? 0 : i < 2 ? 1 : 1.5;
            if (i >= 2 && i != 5)
                wanted.push_back(alpha / beta);
            for (int row = 0; row < n; ++row) {
                for (int col = 0; col < n; ++col) {
                    double const left = p[static_cast<std::size_t>(row * n + i)];
                    pencil.atA(row, col) += left * alpha * q[static_cast<std::size_t>(i * n + col)];
                    pencil.atB(row, col) += left * beta * q[static_cast<std::size_t>(i * n + col)];
                    if (i < 2)
                        pencil.atA(row, col) +=
                            left * (i == 0 ? 1 : -1) * q[static_cast<std::size_t>((1 - i) * n + col)];
                }
            }
        }
        std::vector<double> const a = pencil.a, b = pencil.b;
        ASSERT_TRUE(pencil.solve());
        EXPECT_EQ(pencil.a, a);
        EXPECT_EQ(pencil.b, b);
        EXPECT_LT(pencil.residual(1e12), 1e-11);
        // The infinite value can come out as one that is merely huge, of the size 1 / rounding.
        std::vector<double> found(pencil.values.begin(), pencil.values.begin() + pencil.count);
        found.erase(
            std::remove_if(found.begin(), found.end(), [](double value) { return std::abs(value) > 1e12; }),
            found.end());
        std::sort(found.begin(), found.end());
        ASSERT_EQ(found.size(), wanted.size());
        for (std::size_t i = 0; i < wanted.size(); ++i)
            EXPECT_NEAR(found[i], wanted[i], 1e-9);
    }
}

TEST(GeneralizedEigen, SingularSecondMatrixAndBadInput)
{
    qz_sampling::Random random(3);
    Pencil pencil(10);
    for (int row = 0; row < 10; ++row) {
        for (int col = 0; col <= row; ++col)
            pencil.atA(row, col) = pencil.atA(col, row) = random.uniform(-1, 1) + (row == col ? 9 : 0);
    }
    ASSERT_TRUE(pencil.solve()); // b = 0
    EXPECT_EQ(pencil.count, 0);
    for (int k = 6; k < 9; ++k)
        pencil.atB(k, k) = 1;
    ASSERT_TRUE(pencil.solve());
    EXPECT_EQ(pencil.count, 3);
    EXPECT_LT(pencil.residual(1e12), 1e-12);

    for (double bad : {std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::infinity()}) {
        for (double * place : {&pencil.atA(4, 2), &pencil.atB(0, 9)}) {
            double const good = std::exchange(*place, bad);
            pencil.count = -7;
            EXPECT_FALSE(pencil.solve());
            EXPECT_EQ(pencil.count, 0);
            *place = good;
        }
    }
    // A tiny beta counts as none, whatever the eigenvalue.
    for (double beta : {1e-9, 1e-11}) {
        Pencil diagonal(2);
        diagonal.atA(0, 0) = diagonal.atA(1, 1) = diagonal.atB(0, 0) = 1;
        diagonal.atB(1, 1) = beta;
        ASSERT_TRUE(diagonal.solve());
        EXPECT_EQ(diagonal.count, beta > 1e-10 ? 2 : 1);
    }
    EXPECT_FALSE(gen_right_eigen(0, nullptr, nullptr, pencil.count, nullptr, nullptr));
    EXPECT_FALSE(
        gen_right_eigen(std::numeric_limits<int>::max(), nullptr, nullptr, pencil.count, nullptr, nullptr));
}

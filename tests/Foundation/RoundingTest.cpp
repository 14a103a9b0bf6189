// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Rounding.h>

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace
{

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr int largestInt = std::numeric_limits<int>::max();
constexpr int smallestInt = std::numeric_limits<int>::min();

} // namespace

TEST(Rounding, AddsAHalfAndTruncates)
{
    EXPECT_EQ(rndtoni(2.5), 3);
    EXPECT_EQ(rndtoni(-1.5), -1);
    EXPECT_EQ(rndtoni(-0.9), 0);
    EXPECT_EQ(rndtoni(1e300), largestInt);
    EXPECT_EQ(rndtoni(-infinity), smallestInt);
    EXPECT_EQ(rndtoni(notANumber), 0);
    EXPECT_DOUBLE_EQ(fRound2(1.237), 1.24);
    EXPECT_DOUBLE_EQ(fRound2(-1.234), -1.22);
    EXPECT_DOUBLE_EQ(fRound2(1e200), 1e200);
}

TEST(Rounding, ScalesByRepeatedMultiplication)
{
    for (int power : {-3, 3, smallestInt, largestInt}) { // the last two in no time
        double value = -1;
        scaleDouble(value, power);
        EXPECT_EQ(value, power == 3    ? -1000
                         : power == -3 ? -0.1 * 0.1 * 0.1 // not 0.001
                         : power > 0   ? -infinity
                                       : 0);
    }
}

TEST(Rounding, MantissasLieAboveOneAndUpToTen)
{
    qz_sampling::Random random(1);
    for (int repetition = 0; repetition < 2000; ++repetition) {
        double const value = std::pow(10.0, random.uniform(-300, 300));
        int exponent = 0;
        double const mantissa = getScale(value, exponent);
        EXPECT_GT(mantissa, 1 - 1e-12);
        EXPECT_LE(mantissa, 10 * (1 + 1e-7));
        EXPECT_NEAR(std::log10(mantissa) + exponent, std::log10(value), 1e-11);
    }
    int exponent = 0;
    EXPECT_TRUE(getScale(100, exponent) == 100 * 0.1 && exponent == 1);
    EXPECT_TRUE(getScale(1, exponent) > 9.999999 && exponent == -1);
    for (double value : {0.0, -5.0, infinity})
        EXPECT_TRUE(getScale(value, exponent) == value && exponent == 0);
    EXPECT_TRUE(std::isnan(getScale(notANumber, exponent)));
}

TEST(Rounding, AxesEndAtTheFirstRoundNumber)
{
    struct Row
    {
        double mantissa, top, step;
        int subdivisions;
    };
    double nan = notANumber, topOfNan = 0, stepOfNan = 0;
    int subdivisionsOfNan = 0, exponentOfNan = 0;
    roundBoundary(nan, topOfNan, stepOfNan, subdivisionsOfNan, exponentOfNan);
    EXPECT_EQ(topOfNan, 10);
    for (Row const & row : {Row{1.1, 1.2, 0.2, 2}, Row{1.2, 1.2, 0.2, 2}, Row{1.3, 1.4, 0.2, 1},
                            Row{1.5, 1.5, 0.5, 5}, Row{1.51, 2.5, 0.5, 5}, Row{2.6, 3, 1, 2},
                            Row{4.5, 5, 1, 2}, Row{7.9, 8, 1, 2}, Row{8.5, 10, 5, 5}, Row{10, 10, 5, 5}}) {
        for (int power : {0, 3, -4}) {
            double const scale = std::pow(10.0, power), before = row.mantissa * (1 - 1e-12) * scale;
            double value = before, top = 0, step = 0;
            int subdivisions = 0, exponent = 99;
            roundBoundary(value, top, step, subdivisions, exponent);
            EXPECT_TRUE(value == before && exponent == power && subdivisions == row.subdivisions);
            EXPECT_DOUBLE_EQ(top, row.top * scale);
            EXPECT_DOUBLE_EQ(step, row.step * scale);
        }
    }
}

TEST(Rounding, KeepsSignificantDigits)
{
    qz_sampling::Random random(2);
    for (int digits : {0, 2, 4, 9}) {
        for (int repetition = 0; repetition < 300; ++repetition) {
            double const x = random.uniform(-1, 1) * std::pow(10.0, random.uniform(-20, 20));
            char text[64];
            std::snprintf(text, sizeof text, "%.*e", digits, x);
            double const wanted = std::strtod(text, nullptr);
            EXPECT_NEAR(fRoundN(x, digits), wanted, 1e-14 * std::abs(x)) << text;
            EXPECT_TRUE(digits != 4 || std::abs(fRound4(x) - wanted) <= 1e-14 * std::abs(x)) << text;
        }
    }
    // 1 counts to the decade below, as 10 times 0.1, and gets a digit more than 1.1.
    EXPECT_DOUBLE_EQ(fRoundN(1, 0), 1);
    EXPECT_DOUBLE_EQ(fRoundN(0.94, 0), 0.9);
    EXPECT_EQ(fRound4(1e-31), 0);
    EXPECT_EQ(fRound4(-infinity), -infinity);
    EXPECT_TRUE(std::isnan(fRound4(notANumber)));
    EXPECT_EQ(fRoundN(3.3, largestInt), infinity);
    EXPECT_DOUBLE_EQ(fRoundN(3.3, -1), 3);
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PointArrangement.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

// The sense of each step by asking every other value.
bool isInSense(std::vector<float> const & values, int direction)
{
    std::size_t const n = values.size();
    for (std::size_t i = 0; i < n; ++i) {
        double const a = values[i], b = values[(i + 1) % n];
        int votes = 0;
        for (std::size_t other = 0; other < n && std::abs(b - a) > 0.01; ++other) {
            if (other == i || other == (i + 1) % n)
                continue;
            double const c = values[other];
            bool const isInside = c == b || (c > std::min(a, b) + 0.01 && c < std::max(a, b) - 0.01);
            votes += isInside == (a > b) ? 1 : -1;
        }
        if (votes * direction <= 0)
            return false;
    }
    return true;
}

// Positions in order round a circle of length 100, at least 1.5 apart, from a random place on.
std::vector<float> inOrder(std::mt19937 & random, int count)
{
    std::vector<float> values;
    for (int i = 0; i < count; ++i)
        values.push_back(static_cast<float>(
            (i + std::uniform_real_distribution<double>(0, 1 - 0.015 * count)(random)) * 100 / count));
    std::rotate(values.begin(), values.begin() + std::uniform_int_distribution<int>(0, count - 1)(random),
                values.end());
    return values;
}

} // namespace

TEST(PointArrangement, IsRightAboutAnyList)
{
    std::mt19937 random(83);
    std::uniform_real_distribution<float> position(0, 30);
    int arranged = 0;
    for (int trial = 0; trial < 4000; ++trial) {
        int const count = trial % 12, direction = std::vector<int>{1, -1, 1, 1, 0, 2}[std::size_t(trial) % 6];
        std::vector<float> values = count < 3 ? std::vector<float>() : inOrder(random, count);
        if (direction < 0)
            std::reverse(values.begin(), values.end());
        values.resize(static_cast<std::size_t>(count), 5.0F);
        for (int change = trial % 4; change > 0 && count > 0; --change)
            values[std::uniform_int_distribution<std::size_t>(0, values.size() - 1)(random)] =
                trial % 2 == 0 ? position(random) : std::round(position(random));
        std::vector<float> const before = values;
        bool const isRight = isInSense(before, direction);
        bool const isArranged = ArrangePointsOnCircle(values, direction, 100);
        if (count > 0 && std::abs(direction) != 1) // no sense at all
            ASSERT_TRUE(!isArranged && values == before);
        else
            ASSERT_TRUE(isArranged ? isInSense(values, direction) : !isRight);
        ASSERT_TRUE((isArranged && !isRight) || values == before);
        arranged += isArranged && !isRight;
    }
    EXPECT_GT(arranged, 100);
    for (float bad : {NAN, INFINITY}) {
        std::vector<float> values = {1, 2, bad, 4};
        EXPECT_FALSE(ArrangePointsOnCircle(values, 1, std::isnan(bad) ? 100 : 0));
    }
    // The step from 10 is wrong, those from 0 and from 5 are right: 10 makes room, by 5 / (1 + 5).
    std::vector<float> values = {0, 10, 5, 20, 30, 40};
    EXPECT_TRUE(ArrangePointsOnCircle(values, 1, 50));
    EXPECT_EQ(values, (std::vector<float>{0, static_cast<float>(5 / 6.0), 5, 20, 30, 40}));
}

TEST(PointArrangement, SortsOnALine)
{
    std::mt19937 random(84);
    std::vector<float> values;
    for (int i = 0; i < 200; ++i)
        values.push_back(std::round(std::normal_distribution<float>(0, 40)(random)));
    std::vector<float> const shuffled = values;
    EXPECT_TRUE(ArrangePointsOnLine(values, 1, 0));
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_TRUE(std::is_permutation(values.begin(), values.end(), shuffled.begin()));
    std::vector<float> const sorted(values.rbegin(), values.rend());
    EXPECT_TRUE(ArrangePointsOnLine(values, -7, 0));
    EXPECT_EQ(values, sorted);
    values[3] = values[70] = NAN;
    EXPECT_TRUE(ArrangePointsOnLine(values, 0, 0));
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end() - 2));
    EXPECT_TRUE(std::isnan(values[198]) && std::isnan(values[199]));
}

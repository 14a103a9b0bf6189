// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/BrentZero.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace
{

using Function = double (*)(double);

// One search with all it reports.
struct Search
{
    Search(Function searched, double a, double b, int limit = 100, double valueTolerance = 0, int digits = 0)
        : function(searched), iterations(limit)
    {
        BrentZeroFun(evaluate, a, b, valueTolerance, digits, iterations, root, status, this);
    }

    static double evaluate(double x, void * context)
    {
        auto * const search = static_cast<Search *>(context);
        search->points.push_back(x);
        return search->function(x);
    }

    Function function;
    int iterations;
    int status = 77;
    double root = 77;
    std::vector<double> points;
};

struct Problem
{
    Function function;
    double a, b, root;
};

Problem const problems[] = {
    {[](double x) { return std::exp(x) - 1000; }, 0, 20, std::log(1000)},
    {[](double x) { return x * x * x - 2 * x - 5; }, 3, 2, 2.0945514815423266},
    {[](double x) { return std::pow(x, 9) - 0.001; }, -1, 3, std::pow(10, -1 / 3.0)},
    {[](double x) { return std::atan(20 * x) - 0.3; }, -1, 10, std::tan(0.3) / 20},
    {[](double x) { return 1 / (x - 3) + 6; }, -100, 2.9999, 3 - 1 / 6.0},
    {[](double x) { return x < 0.2 ? -1.0 : 1e6 * (x - 0.2) + 1; }, -4, 1, 0.2},
    {[](double x) { return std::tanh(50 * (x - 0.3)) + 0.9; }, -1, 10, 0.3 - std::atanh(0.9) / 50},
};

} // namespace

TEST(BrentZero, FindsRootsToTheToleranceAskedFor)
{
    for (Problem const & problem : problems) {
        for (int digits : {0, 3, 6, 14, 400}) {
            Search const search(problem.function, problem.a, problem.b, 150, 0, digits);
            double const tolerance = std::max(digits == 400 ? 0 : std::pow(10.0, digits == 0 ? -9 : -digits),
                                              1e-15 * std::abs(search.root));
            // The values are rounded, which blurs the root a little.
            EXPECT_NEAR(search.root, problem.root, 2 * tolerance + 1e-15);
            EXPECT_TRUE(search.status == 0 && search.iterations < 75);
            EXPECT_EQ(search.points.size(), 2 + static_cast<std::size_t>(search.iterations));
        }
        Search const coarse(problem.function, problem.a, problem.b, 100, 0.5);
        EXPECT_TRUE(std::abs(problem.function(coarse.root)) <= 0.5 ||
                    std::abs(coarse.root - problem.root) < 1e-8);
    }
}

TEST(BrentZero, BoldStepsLeaveTheInterval)
{
    // Here a quadratic step passes only the weaker of the two conditions. A search that asks for both never
    // evaluates the function outside of its interval.
    Search const search([](double x) { return -16 + x * (19 + x * (-18 + x * (-15 + x * 6))); }, -2, 3, 100,
                        0, 12);
    EXPECT_TRUE(search.status == 0 && search.iterations == 11);
    EXPECT_NEAR(search.root, -1.53512, 1e-5);
    EXPECT_NEAR(*std::min_element(search.points.begin(), search.points.end()), -2.28271, 1e-5);
}

TEST(BrentZero, ReportsEndsAndLimits)
{
    Function const line = [](double x) { return x - 2; };
    Search const atB(line, 0, 2), atA(line, 2, 5), sameSign(line, 3, 5);
    EXPECT_TRUE(atB.status == 0 && atB.iterations == 0 && atB.root == 2);
    EXPECT_TRUE(atA.root == 2 && atA.points.size() == 2);
    EXPECT_TRUE(sameSign.status == -1 && sameSign.iterations == 1 && sameSign.root == 5);
    Search const nan([](double x) { return x > 1 ? x : std::numeric_limits<double>::quiet_NaN(); }, 0, 5);
    EXPECT_EQ(nan.status, -1);
    for (int limit : {-3, 0, 1, 4}) {
        Search const stopped(problems[0].function, 0, 20, limit);
        EXPECT_TRUE(stopped.status == 1 && stopped.iterations == std::max(limit, 0) + 1);
        EXPECT_EQ(stopped.points.size(), static_cast<std::size_t>(stopped.iterations) + 1);
    }
    Search const exhausted(problems[5].function, -std::numeric_limits<double>::infinity(), 1, 500);
    EXPECT_NE(exhausted.status, 77); // comes to an end
}

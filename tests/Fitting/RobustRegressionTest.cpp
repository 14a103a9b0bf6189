// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/RobustRegression.h>

#include <apps/sampling/Random.h>

#include <support/Allocations.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>
#include <vector>

namespace
{

// The mean of those numbers that are not NaN.
class Mean : public IRegressionAnalysisTask
{
public:
    explicit Mean(std::vector<double> samples) : numbers(std::move(samples)) {}

    int parameterCount() override { return 1; }
    unsigned int sampleCount() override { return static_cast<unsigned int>(numbers.size()); }
    int fitInitial(std::vector<double> & residuals) override
    {
        ones.assign(numbers.size(), 1.0);
        fit(ones, residuals);
        firstMean = mean;
        return 0;
    }
    int fitWeighted(std::vector<double> const & weights, std::vector<double> & residuals) override
    {
        if (++weightedFits == failAt)
            return 7;
        fit(weights, residuals);
        return 0;
    }
    void storeParameters(std::vector<double> & parameters) override { parameters.assign(1, mean); }
    bool isConverged(std::vector<double> const & parameters) override
    {
        return !(std::abs(parameters[0] - mean) >= tolerance);
    }

    std::vector<double> numbers, ones;
    double mean = 0, firstMean = 0, tolerance = 1e-9;
    int weightedFits = 0, failAt = 0; // the number of the weighted fit that fails

    void fit(std::vector<double> const & weights, std::vector<double> & residuals)
    {
        ASSERT_EQ(residuals.size(), numbers.size());
        double sum = 0, weightSum = 0;
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            sum += std::isnan(numbers[i]) ? 0 : weights[i] * numbers[i];
            weightSum += std::isnan(numbers[i]) ? 0 : weights[i];
        }
        mean = weightSum > 0 ? sum / weightSum : mean;
        for (std::size_t i = 0; i < numbers.size(); ++i)
            residuals[i] = std::abs(numbers[i] - mean);
    }
};

// Also in the second run of a solver, which needs no memory.
TEST(RobustRegression, OutliersOnOneSidePullLittle)
{
    qz_sampling::Random random(1);
    for (int const outliers : {0, 50, 100, 200, 300}) {
        Mean task({});
        for (int i = 0; i < 1000; ++i)
            task.numbers.push_back(i < outliers ? random.uniform(20, 60) : 5 + 0.1 * random.normal());
        CRobustRegressionSolver solver(task);
        ASSERT_EQ(solver.solveRegression(), 0);
        EXPECT_LT(task.weightedFits, 49);
        // The scale of the first fit, which outliers widen, stays, so that a part of them may keep some
        // weight.
        EXPECT_NEAR(task.mean, 5, std::max(0.02, (task.firstMean - 5) / 20)) << outliers;

        double const mean = task.mean;
        std::vector<double> const weights = solver.suppWeights();
        int const before = qz_test::allocations;
        EXPECT_EQ(solver.solveRegression(), 0);
        EXPECT_EQ(qz_test::allocations, before);
        EXPECT_TRUE(task.mean == mean && solver.suppWeights() == weights);
    }
}

// All rounds by the definition: the lower median by sorting, the weights by their formula. Samples without a
// distance have no weight.
TEST(RobustRegression, WeightsFollowTheMedian)
{
    qz_sampling::Random random(2);
    for (std::size_t count = 1; count < 60; ++count) {
        std::vector<double> numbers(count);
        for (double & number : numbers)
            number = random.uniform() < 0.1 ? std::nan("") : std::floor(random.uniform(0, 12)); // with ties
        Mean task(numbers), model(numbers);
        task.tolerance = -1;
        CRobustRegressionSolver solver(task);
        ASSERT_EQ(solver.solveRegression(), 0);
        ASSERT_EQ(task.weightedFits, 49);

        std::vector<double> residuals(count), weights(count, 1.0);
        double floor = 0;
        for (int fit = 0; fit <= 49; ++fit) {
            model.fit(weights, residuals);
            std::vector<double> sorted = residuals;
            for (double & residual : sorted)
                residual = std::isnan(residual) ? std::numeric_limits<double>::infinity() : residual;
            std::sort(sorted.begin(), sorted.end());
            double const scale = std::max(floor, 1.4826 * sorted[(count - 1) / 2]);
            floor = fit == 0 ? scale : floor;
            for (std::size_t i = 0; i < count && fit < 49; ++i) {
                double const ratio = residuals[i] / scale;
                weights[i] = ratio < 2 ? std::pow(1 + ratio * ratio, -2) : 0;
            }
        }
        EXPECT_NEAR(task.mean, model.mean, 1e-9);
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_NEAR(solver.suppWeights()[i], weights[i], 1e-9);
    }
}

TEST(RobustRegression, PassesCodesOnAndStopsAfterFortyNineRounds)
{
    Mean endless({1, 2, 3, 4, 100});
    endless.tolerance = 0;
    CRobustRegressionSolver solver(endless);
    EXPECT_TRUE(solver.suppWeights().empty());
    EXPECT_TRUE(solver.solveRegression() == 0 && endless.weightedFits == 49);
    endless.failAt = 52;
    EXPECT_TRUE(solver.solveRegression() == 7 && endless.weightedFits == 52);

    Mean nothing({});
    EXPECT_TRUE(CRobustRegressionSolver(nothing).solveRegression() == 0 && nothing.weightedFits == 0);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/RobustRegression.h>

#include <apps/sampling/Random.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <numeric>
#include <vector>

namespace
{

/// Allocations of this thread.
thread_local int allocations = 0;

} // namespace

void * operator new(std::size_t size)
{
    ++allocations;
    if (void * const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    ++allocations;
    return std::malloc(size);
}
void operator delete(void * memory) noexcept { std::free(memory); }
void operator delete(void * memory, std::size_t) noexcept { std::free(memory); }

namespace
{

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/// The mean of numbers.
class Mean : public IRegressionAnalysisTask
{
public:
    explicit Mean(std::vector<double> samples) : numbers(std::move(samples)) {}

    int parameterCount() override { return 1; }
    unsigned int sampleCount() override { return static_cast<unsigned int>(numbers.size()); }
    int fitInitial(std::vector<double> & residuals) override
    {
        mean = std::accumulate(numbers.begin(), numbers.end(), 0.0) / static_cast<double>(numbers.size());
        return finish(residuals);
    }
    int fitWeighted(std::vector<double> const & weights, std::vector<double> & residuals) override
    {
        if (++weightedFits == failAt)
            return 7;
        double const sum = std::accumulate(weights.begin(), weights.end(), 0.0);
        if (sum > 0)
            mean = std::inner_product(weights.begin(), weights.end(), numbers.begin(), 0.0) / sum;
        lastWeights = &weights;
        return finish(residuals);
    }
    void storeParameters(std::vector<double> & parameters) override { parameters.assign(1, mean); }
    bool isConverged(std::vector<double> const & parameters) override
    {
        return !(std::abs(parameters[0] - mean) >= tolerance);
    }

    std::vector<double> numbers;
    double mean = 0;
    double tolerance = 1e-9;
    int failAt = 0; // number of the weighted fit that fails
    int weightedFits = 0;
    std::vector<double> const * lastWeights = nullptr;

private:
    int finish(std::vector<double> & residuals)
    {
        EXPECT_EQ(residuals.size(), numbers.size());
        std::transform(numbers.begin(), numbers.end(), residuals.begin(),
                       [this](double number) { return std::abs(number - mean); });
        return 0;
    }
};

TEST(RobustRegression, OutliersOnOneSidePullLittle)
{
    qz_sampling::Random random(1);
    for (int const outliers : {0, 50, 100, 200, 300}) {
        std::vector<double> numbers;
        for (int i = 0; i < 1000; ++i)
            numbers.push_back(i < outliers ? random.uniform(20, 60) : 5 + 0.1 * random.normal());
        Mean task(numbers);
        ASSERT_EQ(CRobustRegressionSolver(task).solveRegression(), 0);
        EXPECT_LT(task.weightedFits, 49);
        // The scale of the first fit, which outliers widen, stays, so that a part of them may keep some
        // weight.
        double const plain = 35.0 * outliers / 1000;
        EXPECT_NEAR(task.mean, 5, std::max(0.02, plain / 20)) << outliers;
    }
}

/// One round by the definition: the lower median by sorting, the weights by their formula.
TEST(RobustRegression, WeightsFollowTheMedianOfTheFirstFit)
{
    qz_sampling::Random random(2);
    for (std::size_t count = 1; count < 60; ++count) {
        std::vector<double> numbers(count);
        for (double & number : numbers)
            number = std::floor(random.uniform(0, 12)); // with ties
        Mean task(numbers);
        task.tolerance = std::numeric_limits<double>::infinity();
        CRobustRegressionSolver solver(task);
        EXPECT_TRUE(solver.suppWeights().empty());
        ASSERT_EQ(solver.solveRegression(), 0);
        ASSERT_EQ(task.weightedFits, 1);

        double const mean = std::accumulate(numbers.begin(), numbers.end(), 0.0) / static_cast<double>(count);
        std::vector<double> sorted;
        for (double const number : numbers)
            sorted.push_back(std::abs(number - mean));
        std::sort(sorted.begin(), sorted.end());
        double const scale = 1.4826 * sorted[(count - 1) / 2];
        ASSERT_EQ(solver.suppWeights().size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            double const residual = std::abs(numbers[i] - mean);
            double const wanted = residual >= 2 * scale ? 0 : std::pow(1 + std::pow(residual / scale, 2), -2);
            EXPECT_NEAR(solver.suppWeights()[i], wanted, 1e-15);
        }
    }
}

TEST(RobustRegression, PassesCodesOnAndStopsAfterFortyNineRounds)
{
    Mean endless({1, 2, 3, 4, 100});
    endless.tolerance = 0;
    CRobustRegressionSolver solver(endless);
    EXPECT_EQ(solver.solveRegression(), 0);
    EXPECT_EQ(endless.weightedFits, 49);
    EXPECT_EQ(endless.lastWeights, &solver.suppWeights());

    endless.weightedFits = 0;
    endless.failAt = 3;
    EXPECT_EQ(solver.solveRegression(), 7);
    EXPECT_EQ(endless.weightedFits, 3);

    Mean perfect({2, 2, 2});
    CRobustRegressionSolver perfectSolver(perfect);
    EXPECT_EQ(perfectSolver.solveRegression(), 0);
    EXPECT_EQ(perfect.weightedFits, 1);
    EXPECT_THAT(perfectSolver.suppWeights(), testing::Each(0.0));

    Mean nothing({});
    EXPECT_EQ(CRobustRegressionSolver(nothing).solveRegression(), 0);
    EXPECT_EQ(nothing.weightedFits, 0);
}

TEST(RobustRegression, GivesNoWeightToSamplesWithoutDistance)
{
    /// Numbers whose NaN the first fit already leaves out.
    class Known : public Mean
    {
    public:
        using Mean::Mean;
        int fitInitial(std::vector<double> & residuals) override
        {
            mean = 2;
            for (std::size_t i = 0; i < numbers.size(); ++i)
                residuals[i] = std::abs(numbers[i] - mean);
            return 0;
        }
    } task({1, notANumber, 2, notANumber, 3, 2.5, 1.5, std::numeric_limits<double>::infinity()});
    task.tolerance = std::numeric_limits<double>::infinity();
    CRobustRegressionSolver solver(task);
    EXPECT_EQ(solver.solveRegression(), 0);
    std::vector<double> const & weights = solver.suppWeights();
    for (std::size_t i = 0; i < weights.size(); ++i)
        EXPECT_EQ(weights[i] > 0, std::isfinite(task.numbers[i])) << i;
}

TEST(RobustRegression, SecondRunOfTheSameSizeStartsAnewWithoutMemory)
{
    qz_sampling::Random random(3);
    Mean task({});
    for (int i = 0; i < 5000; ++i)
        task.numbers.push_back(random.normal() + (i % 5 == 0 ? 30 : 0));
    CRobustRegressionSolver solver(task);
    ASSERT_EQ(solver.solveRegression(), 0);
    double const first = task.mean;
    std::vector<double> const weights = solver.suppWeights();
    task.mean = 1e6;
    int const before = allocations;
    EXPECT_EQ(solver.solveRegression(), 0);
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(task.mean, first);
    EXPECT_EQ(solver.suppWeights(), weights);

    // A smaller scale after a larger one: the floor is that of the run.
    for (double & number : task.numbers)
        number /= 1000;
    task.tolerance /= 1000;
    EXPECT_EQ(solver.solveRegression(), 0);
    EXPECT_NEAR(task.mean * 1000, first, 1e-6);
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/MinMaxOptimizer.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <utility>
#include <vector>

namespace
{

using namespace REmath;
using REmath::Detail::dot;
using Formula = std::function<double(Point3D_d const &)>;

class Criterion : public CMinMaxTask::Function
{
public:
    explicit Criterion(Formula formula) : m_formula(std::move(formula)) {}
    double operator()(Point3D_d const & point) const override { return ++calls, m_formula(point); }
    mutable int calls = 0;

private:
    Formula m_formula;
};

class OntoUnitSphere : public CMinMaxTask::IProjector
{
public:
    void Project(Point3D_d & point) const override { point.normalize(); }
};

// A task over the box from -1 to 1, with the criteria that it refers to.
struct Problem
{
    explicit Problem(std::vector<Formula> const & formulas, Point3D_d start = {})
        : criteria(formulas.begin(), formulas.end())
    {
        for (Criterion const & criterion : criteria)
            task.AddFunctor(&criterion);
        task.SetLimitMin(Point3D_d(-1));
        task.SetLimitMax(Point3D_d(1));
        task.SetInitApprox(start);
    }
    Point3D_d run(int steps)
    {
        params.SetMaxIter(steps);
        Point3D_d result(77);
        CMinMaxOptimizer(task, params).Run(result);
        return result;
    }

    std::vector<Criterion> criteria;
    CMinMaxTask task;
    CMinMaxParams params;
};

} // namespace

TEST(MinMaxOptimizer, StepsToTheCrossingOrShortOfTheBox)
{
    Formula const rising = [](Point3D_d const & p) { return p.x(); };
    // The two meet at x = 1 / (1 + slope).
    for (double slope : {0.5, 1.0, 4.0}) {
        Formula const falling = [=](Point3D_d const & p) { return 1 - slope * p.x(); };
        EXPECT_NEAR(Problem({rising, falling}).run(1).x(), 1 / (1 + slope), 1e-6);
    }
    EXPECT_NEAR(Problem({rising}).run(1).x(), 0.98, 1e-9);
    // Where it has no value it does not go.
    Formula const partial = [](Point3D_d const & p) { return p.x() < 0.5 ? p.x() : std::nan(""); };
    EXPECT_NEAR(Problem({partial, [](Point3D_d const &) { return 9; }}).run(1).x(), 0.49, 1e-9);
    // On the face there is no room left.
    EXPECT_EQ(Problem({rising}, Point3D_d(1, 0.5, 0)).run(4), Point3D_d(1, 0.5, 0));
}

TEST(MinMaxOptimizer, KeepsToTheProjector)
{
    OntoUnitSphere const sphere;
    Point3D_d const pole = Point3D_d(1, 2, 2) / 3;
    Problem problem({[&](Point3D_d const & p) { return dot(p, pole); }}, Point3D_d(0, 0, 1));
    problem.task.SetProjector(&sphere);
    // The sphere must not touch the box, at which steps end.
    problem.task.SetLimitMin(Point3D_d(-2));
    problem.task.SetLimitMax(Point3D_d(2));
    problem.params.SetMaxGradientMoveAttempts(12);
    Point3D_d const result = problem.run(30);
    EXPECT_NEAR(result.length(), 1, 1e-14);
    EXPECT_GT(dot(result, pole), 0.999);
}

TEST(MinMaxOptimizer, RaisesTheMinimumWithinTheBoxOnFewEvaluations)
{
    std::mt19937 random(91);
    std::uniform_real_distribution<double> uniform(-0.9, 0.9);
    auto const point = [&] { return Point3D_d(uniform(random), uniform(random), uniform(random)); };
    double gain = 0, possible = 0;
    for (int trial = 0; trial < 200; ++trial) {
        std::vector<Formula> formulas;
        for (int i = 0; i <= trial % 5; ++i)
            formulas.emplace_back([top = point()](Point3D_d const & p) { return -dot(p - top, p - top); });
        Point3D_d const start = point();
        Problem problem(formulas, start);
        Point3D_d const result = problem.run(4);
        for (Criterion const & criterion : problem.criteria)
            EXPECT_LE(criterion.calls, 1 + 4 * (3 + 2 * 3));
        for (double coordinate : {result.x(), result.y(), result.z()})
            EXPECT_LE(std::abs(coordinate), 1);
        auto const minimum = [&](Point3D_d const & at) {
            double least = 0;
            for (Formula const & formula : formulas)
                least = std::min(least, formula(at));
            return least;
        };
        double const before = minimum(start);
        double best = before;
        for (int i = 0; i < 500; ++i)
            best = std::max(best, minimum(point()));
        EXPECT_GE(minimum(result), before);
        gain += minimum(result) - before;
        possible += best - before;
    }
    EXPECT_GT(gain, 0.7 * possible);
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/MinMaxOptimizer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace
{

using REmath::CMinMaxOptimizer;
using REmath::CMinMaxParams;
using REmath::CMinMaxTask;
using REmath::Point3D_d;

class Criterion : public CMinMaxTask::Function
{
public:
    explicit Criterion(std::function<double(Point3D_d const &)> formula) : m_formula(std::move(formula)) {}
    double operator()(Point3D_d const & point) const override
    {
        ++calls;
        return m_formula(point);
    }
    mutable int calls = 0;

private:
    std::function<double(Point3D_d const &)> m_formula;
};

double dot(Point3D_d const & a, Point3D_d const & b) { return a.x() * b.x() + a.y() * b.y() + a.z() * b.z(); }

/// A task over the box from -1 to 1, with the criteria that it refers to.
struct Problem
{
    explicit Problem(std::vector<std::function<double(Point3D_d const &)>> formulas, Point3D_d start = {})
    {
        for (auto & formula : formulas)
            criteria.emplace_back(std::move(formula));
        for (Criterion const & criterion : criteria)
            task.AddFunctor(&criterion);
        task.SetLimitMin(Point3D_d(-1));
        task.SetLimitMax(Point3D_d(1));
        task.SetInitApprox(start);
    }

    Point3D_d run()
    {
        Point3D_d result(77);
        CMinMaxOptimizer(task, params).Run(result);
        return result;
    }
    double minimum(Point3D_d const & at) const
    {
        double least = std::numeric_limits<double>::max();
        for (Criterion const & criterion : criteria)
            least = std::min(least, criterion(at));
        return least;
    }

    std::vector<Criterion> criteria;
    CMinMaxTask task;
    CMinMaxParams params;
};

class OntoUnitSphere : public CMinMaxTask::IProjector
{
public:
    void Project(Point3D_d & point) const override { point.normalize(); }
};

} // namespace

TEST(MinMaxOptimizer, StepsToTheCrossingOfTwoFunctions)
{
    // f rises with x from 0 at the start, g falls from 1: they meet at x = 1 / (1 + slope).
    for (double slope : {0.5, 1.0, 4.0}) {
        Problem problem({[](Point3D_d const & p) { return p.x(); },
                         [slope](Point3D_d const & p) { return 1 - slope * p.x(); }});
        problem.params.SetMaxIter(1);
        Point3D_d const result = problem.run();
        EXPECT_NEAR(result.x(), 1 / (1 + slope), 1e-6);
        EXPECT_NEAR(result.y(), 0, 1e-6);
    }
}

TEST(MinMaxOptimizer, StopsShortOfTheBox)
{
    Problem problem({[](Point3D_d const & p) { return 3 * p.x() + p.y(); }});
    problem.params.SetMaxIter(1);
    EXPECT_NEAR(problem.run().x(), 0.98, 1e-9);
    // On the face there is no room left.
    problem.task.SetInitApprox(Point3D_d(1, 0.5, 0));
    EXPECT_EQ(problem.run(), Point3D_d(1, 0.5, 0));
}

TEST(MinMaxOptimizer, StaysWhereNothingIsGained)
{
    Point3D_d const start(0.1, 0.2, 0.3);
    // A top, NaN, and an infinite value.
    for (double value : {5.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
        Problem problem({[value](Point3D_d const &) { return value; }}, start);
        EXPECT_EQ(problem.run(), start);
    }
    // One evaluation and no step.
    Problem idle({[](Point3D_d const & p) { return p.x(); }, [](Point3D_d const & p) { return p.y(); }},
                 start);
    idle.params.SetMaxIter(0);
    EXPECT_EQ(idle.run(), start);
    EXPECT_EQ(idle.criteria[0].calls + idle.criteria[1].calls, 2);
    EXPECT_EQ(Problem({}, start).run(), start);
    // The worst function is flat, so the next one decides the direction, but cannot raise the minimum.
    Problem flat({[](Point3D_d const &) { return 0.0; }, [](Point3D_d const & p) { return 1 + p.x(); }},
                 start);
    EXPECT_EQ(flat.run(), start);
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
    problem.params.SetMaxIter(30);
    problem.params.SetMaxGradientMoveAttempts(12);
    Point3D_d const result = problem.run();
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
        std::vector<std::function<double(Point3D_d const &)>> formulas;
        for (int i = 0; i <= trial % 5; ++i) {
            Point3D_d const top = point();
            formulas.emplace_back([top](Point3D_d const & p) { return -dot(p - top, p - top); });
        }
        Problem problem(formulas, point());
        Point3D_d const result = problem.run();
        for (Criterion const & criterion : problem.criteria)
            EXPECT_LE(criterion.calls, 1 + 4 * (3 + 2 * 3));
        double best = -std::numeric_limits<double>::max();
        for (int i = 0; i < 500; ++i)
            best = std::max(best, problem.minimum(point()));
        double const before = problem.minimum(problem.task.GetInitApprox()), after = problem.minimum(result);
        EXPECT_GE(after, before);
        gain += after - before;
        possible += best - before;
        for (double coordinate : {result.x(), result.y(), result.z()})
            EXPECT_LE(std::abs(coordinate), 1);
    }
    EXPECT_GT(gain, 0.7 * possible);
}

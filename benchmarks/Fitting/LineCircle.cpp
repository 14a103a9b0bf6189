// SPDX-License-Identifier: Apache-2.0

// Plain and robust fits of lines and circles. A tenth of the points of each set are outliers to one side.

#include <QZmath/Fitting/CircleFitting.h>
#include <QZmath/Fitting/LineFitting.h>

#include <apps/sampling/Random.h>

#include <benchmark/benchmark.h>
#include <cmath>
#include <vector>

namespace
{

using REmath::Point3D_d;

constexpr double noise = 0.02;

std::vector<Point3D_d> lineSamples(int count)
{
    qz_sampling::Random random(1);
    std::vector<Point3D_d> points;
    for (int i = 0; i < count; ++i) {
        double const x = random.uniform(-50, 50);
        double const beside = i % 10 == 0 ? random.uniform(2, 8) : noise * random.normal();
        points.emplace_back(x - beside, x + beside, 0.5 * x + noise * random.normal());
    }
    return points;
}

std::vector<Point3D_d> circleSamples(int count)
{
    qz_sampling::Random random(2);
    std::vector<Point3D_d> points;
    for (int i = 0; i < count; ++i) {
        double const angle = random.uniform(0, 4);
        double const radius = 20 + (i % 10 == 0 ? random.uniform(2, 5) : noise * random.normal());
        points.emplace_back(100 + radius * std::cos(angle), radius * std::sin(angle),
                            noise * random.normal());
    }
    return points;
}

template <class Fit>
void run(benchmark::State & state, std::vector<Point3D_d> const & points, Fit fit)
{
    for (auto _ : state) {
        if (!fit(points))
            state.SkipWithError("no fit");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void linePlain(benchmark::State & state)
{
    run(state, lineSamples(static_cast<int>(state.range(0))), [](std::vector<Point3D_d> const & points) {
        Point3D_d origin, direction;
        return FitLineToPointSet(points, origin, direction);
    });
}

void lineRobust(benchmark::State & state)
{
    run(state, lineSamples(static_cast<int>(state.range(0))), [](std::vector<Point3D_d> const & points) {
        Point3D_d origin, direction;
        return FitLineToPointSetRobust(points, origin, direction);
    });
}

void circlePlain(benchmark::State & state)
{
    run(state, circleSamples(static_cast<int>(state.range(0))), [](std::vector<Point3D_d> const & points) {
        Point3D_d center, normal;
        double radius;
        return FitCircleToPointSet(points, center, normal, radius);
    });
}

void circleRobust(benchmark::State & state)
{
    run(state, circleSamples(static_cast<int>(state.range(0))), [](std::vector<Point3D_d> const & points) {
        Point3D_d center, normal;
        double radius;
        return FitCircleToPointSetRobust(points, center, normal, radius);
    });
}

// One, two and three conditions: through a point, tangent to a direction there, through two points.
void circleConstrained(benchmark::State & state)
{
    Point3D_d const first{120, 0, 0}, second{100, 20, 0}, upwards{0, 1, 0};
    auto const constraint = state.range(1);
    run(state, circleSamples(static_cast<int>(state.range(0))), [&](std::vector<Point3D_d> const & points) {
        Point3D_d center, normal;
        double radius;
        if (constraint == 2)
            return FitCircleByPointsWithDirs(points, {first}, {upwards}, center, normal, radius);
        std::vector<Point3D_d> fixed = {first};
        if (constraint == 3)
            fixed.push_back(second);
        return FitCircleToPointSetWithFixedPointsRobust(points, fixed, center, normal, radius);
    });
}

BENCHMARK(linePlain)->Arg(100)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(lineRobust)->Arg(100)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(circlePlain)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(circleRobust)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(circleConstrained)->ArgsProduct({{10000}, {1, 2, 3}})->Unit(benchmark::kMillisecond);

} // namespace

// SPDX-License-Identifier: Apache-2.0

// Whole clouds of random points on a bumpy sphere, with a little noise. The arguments are the number of
// points and of threads; every neighbourhood has 20 points.

#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <QZsys/ParallelTasks.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D;

std::vector<Point3D> makeCloud(std::size_t size)
{
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    std::vector<Point3D> points;
    points.reserve(size);
    while (points.size() < size) {
        double const x = normal(random), y = normal(random), z = normal(random);
        double const length = std::sqrt(x * x + y * y + z * z);
        double const factor =
            (1 + 0.1 * std::sin(8 * x / length) * std::cos(6 * y / length) + 1e-4 * normal(random)) / length;
        points.emplace_back(x * factor, y * factor, z * factor);
    }
    return points;
}

void estimateNormals(benchmark::State & state, NormalOrientation orientation)
{
    std::vector<Point3D> const points = makeCloud(static_cast<std::size_t>(state.range(0)));
    std::vector<Point3D> normals(points.size());
    CEstimateNormalsPrms prms;
    prms.orientation = orientation;
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(static_cast<int>(state.range(1)));
    int made = 0;
    for (auto _ : state)
        made = EstimateNormals(static_cast<int>(points.size()), points.data(), prms, normals.data());
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
    state.counters["made"] = made;
}

void estimateCurvatures(benchmark::State & state)
{
    std::vector<Point3D> const points = makeCloud(static_cast<std::size_t>(state.range(0)));
    std::vector<CPointCurvatures> curvatures(points.size());
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(static_cast<int>(state.range(1)));
    int made = 0;
    for (auto _ : state)
        made = EstimateCurvatures(static_cast<int>(points.size()), points.data(), {}, nullptr,
                                  curvatures.data());
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
    state.counters["made"] = made;
}

BENCHMARK_CAPTURE(estimateNormals, unoriented, NormalOrientation::none)
    ->Args({100000, 1})
    ->Args({1000000, 1})
    ->Args({1000000, 2})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
BENCHMARK_CAPTURE(estimateNormals, spanningTree, NormalOrientation::spanningTree)
    ->Args({1000000, 1})
    ->Args({1000000, 2})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
BENCHMARK(estimateCurvatures)->Args({100000, 2})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

} // namespace

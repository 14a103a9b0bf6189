// SPDX-License-Identifier: Apache-2.0

// Chains of lines and arcs by turns, with noise: the whole procedure and the fit of the stored points alone.
// Arguments: segments, points.

#include <QZmath/Fitting/PolylineFitCurve.h>

#include <benchmark/benchmark.h>
#include <cmath>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D_d;

std::vector<std::vector<Point3D_d>> chain(int segments, int points)
{
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0, 0.01);
    std::vector<std::vector<Point3D_d>> result(static_cast<std::size_t>(segments));
    int const perSegment = points / segments;
    double const step = 10.0 / perSegment;
    double x = 0, y = 0, heading = 0;
    for (int k = 0; k < segments; ++k) {
        double const curvature = k % 2 == 0 ? 0 : k % 4 == 1 ? 0.2 : -0.2;
        for (int i = 0; i < perSegment; ++i) {
            result[static_cast<std::size_t>(k)].emplace_back(x + noise(random), 0.8 * y + noise(random),
                                                             0.6 * y + noise(random));
            heading += curvature * step;
            x += step * std::cos(heading);
            y += step * std::sin(heading);
        }
    }
    return result;
}

void fitPolyline(benchmark::State & state)
{
    auto const segments = chain(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    std::vector<double> curves, boundaries;
    for (auto _ : state) {
        CPolylineFitCurve fit;
        fit.setFitTolerance(0.02);
        fit.fitPolyline(segments, curves, boundaries);
        benchmark::DoNotOptimize(curves.data());
    }
}

void refitPolyline(benchmark::State & state)
{
    auto const segments = chain(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    std::vector<double> curves, boundaries;
    CPolylineFitCurve fit;
    fit.setFitTolerance(0.02);
    fit.fitPolyline(segments, curves, boundaries);
    for (auto _ : state) {
        fit.fitPolyline(curves, boundaries);
        benchmark::DoNotOptimize(curves.data());
    }
}

BENCHMARK(fitPolyline)->Args({6, 2000})->Args({6, 20000})->Args({60, 20000})->Unit(benchmark::kMillisecond);
BENCHMARK(refitPolyline)->Args({6, 2000})->Unit(benchmark::kMillisecond);

} // namespace

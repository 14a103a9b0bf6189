// SPDX-License-Identifier: Apache-2.0

// Corners and smoothing of contours. The corner search is to cost the same per point and point of a chord
// for any length of contour and chord; smoothing the same per point, pass and fixed point.

#include <QZmath/Fitting/ContourCorners.h>
#include <QZmath/Fitting/PointArrangement.h>
#include <QZmath/Fitting/PolylineSmoothing.h>

#include <apps/sampling/Random.h>

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstddef>
#include <vector>

namespace
{

using REmath::Point3D_d;

// A noisy polygon of steps of length 1, with a corner at every 200th point.
std::vector<Point3D_d> contour(int count)
{
    qz_sampling::Random random(5);
    std::vector<Point3D_d> points;
    Point3D_d corner;
    for (int i = 0; i < count; ++i) {
        double const direction = 1.3 * std::floor(i / 200.0);
        corner += Point3D_d(std::cos(direction), std::sin(direction), 0);
        points.push_back(corner + Point3D_d(0.1 * random.normal(), 0.1 * random.normal(), 0));
    }
    return points;
}

void contourCorners(benchmark::State & state)
{
    std::vector<Point3D_d> const points = contour(static_cast<int>(state.range(0)));
    auto const chord = static_cast<double>(state.range(1));
    std::vector<int> marks;
    for (auto _ : state) {
        GetContourCornerMarks(points, chord * chord, false, marks);
        benchmark::DoNotOptimize(marks.data());
    }
    state.counters["timePerPointAndChordPoint"] =
        benchmark::Counter(static_cast<double>(state.range(0) * state.range(1)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(contourCorners)
    ->Args({10000, 5})
    ->Args({10000, 20})
    ->Args({10000, 80})
    ->Args({1000000, 5})
    ->Args({1000000, 20})
    ->Unit(benchmark::kMillisecond);

void smoothing(benchmark::State & state)
{
    std::vector<Point3D_d> const points = contour(static_cast<int>(state.range(0)));
    std::vector<int> fixed;
    for (int i = 0; i < state.range(1); ++i)
        fixed.push_back(static_cast<int>(i * state.range(0) / state.range(1)));
    CPolylineSmoothParams const params(false, 0.4, 10, true, &fixed);
    for (auto _ : state) {
        std::vector<Point3D_d> smoothed = points;
        smoothPolylineWithFixedPoints(smoothed, params);
        benchmark::DoNotOptimize(smoothed.data());
    }
}
BENCHMARK(smoothing)
    ->Args({100000, 0})
    ->Args({100000, 10})
    ->Args({100000, 20})
    ->Unit(benchmark::kMillisecond);

// A list round the circle with every hundredth pair of neighbours in the wrong order.
void arrangement(benchmark::State & state)
{
    int const count = static_cast<int>(state.range(0));
    std::vector<float> values;
    for (int i = 0; i < count; ++i)
        values.push_back(2.0F * static_cast<float>(i % 100 == 50 ? i + 1 : i % 100 == 51 ? i - 1 : i));
    for (auto _ : state) {
        std::vector<float> arranged = values;
        if (!ArrangePointsOnCircle(arranged, 1, 2 * count))
            state.SkipWithError("not arranged");
    }
}
BENCHMARK(arrangement)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace

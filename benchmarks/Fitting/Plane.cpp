// SPDX-License-Identifier: Apache-2.0

// Plane fits beside one pass over the same memory: `coordinateSum` adds the coordinates up and does nothing
// else.

#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/PlaneSelection.h>

#include <benchmark/benchmark.h>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D;
using REmath::Point3D_d;

template <class Point>
std::vector<Point> noisyPlane(std::size_t count)
{
    std::mt19937 random(1);
    std::normal_distribution<double> noise;
    std::uniform_real_distribution<double> position(-100, 100);
    std::vector<Point> points(count);
    for (Point & point : points) {
        double const u = position(random), v = position(random);
        point = Point(u + 500, 0.6 * v + 0.05 * noise(random), 0.8 * v - 300);
    }
    return points;
}

template <class Point>
void coordinateSum(benchmark::State & state)
{
    std::vector<Point> const points = noisyPlane<Point>(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        double sums[3] = {};
        for (Point const & point : points) {
            sums[0] += static_cast<double>(point.x());
            sums[1] += static_cast<double>(point.y());
            sums[2] += static_cast<double>(point.z());
        }
        benchmark::DoNotOptimize(sums);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Point>
void planeFit(benchmark::State & state)
{
    std::vector<Point> const points = noisyPlane<Point>(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        double plane[4], centroid[3];
        benchmark::DoNotOptimize(FitPlaneToPointSet(points, plane, centroid));
        benchmark::DoNotOptimize(plane);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The whole recognition, with errors, smallest rectangle and limits.
void planeRecognition(benchmark::State & state)
{
    std::vector<Point3D> const points = noisyPlane<Point3D>(100000);
    Point3D_d const fixedPoint(500, 0, -300);
    Point3D_d const fixedDir(0, -0.8, 0.6);
    for (auto _ : state) {
        Point3D_d center, normal, basisU, basisV;
        double maxError = 0, meanError = 0, limitsU[2], limitsV[2];
        benchmark::DoNotOptimize(RecognizePlaneSelectionConstrained(
            points, {0, 0, 1}, static_cast<int>(state.range(0)), 30, true, 0.1, fixedPoint, fixedDir, center,
            normal, maxError, meanError, basisU, basisV, limitsU, limitsV));
        benchmark::DoNotOptimize(normal);
    }
    state.SetItemsProcessed(state.iterations() * 100000);
}

BENCHMARK_TEMPLATE(coordinateSum, Point3D)->Arg(1000000);
BENCHMARK_TEMPLATE(planeFit, Point3D)->Arg(10)->Arg(100)->Arg(1000)->Arg(1000000);
BENCHMARK_TEMPLATE(coordinateSum, Point3D_d)->Arg(1000000);
BENCHMARK_TEMPLATE(planeFit, Point3D_d)->Arg(1000000);
BENCHMARK(planeRecognition)->DenseRange(PlaneFitFree, PlaneFitAngleToAxis);

} // namespace

// SPDX-License-Identifier: Apache-2.0

// Lines, planes and circles among outliers. Each iteration takes another cloud, so that besides the time
// there is the number of clouds whose object came out wrong, by more than 0.1 degrees in direction, or by
// that share of the radius in centre and radius. Arguments: points, per cent of outliers, and the inlier
// distance in hundredths of the standard deviation of the noise, 0 to have it found.

#include <QZmath/Fitting/ConsensusFitting.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <tests/support/Frames.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace
{

using qz_sampling::Random;
using REmath::Point3D_d;

constexpr double pi = 3.14159265358979323846;
constexpr double noise = 0.02;
constexpr double circleRadius = 6;

enum Kind
{
    kindLine,
    kindPlane,
    kindCircle
};

struct Cloud
{
    qz_test::Frame frame;
    std::vector<Point3D_d> points;
};

// A cube of half side 10 with outliers evenly in it, and the object in any position.
Cloud cloudOf(Kind kind, std::uint64_t seed, std::int64_t count, double outlierShare)
{
    Random random(seed);
    Cloud cloud{qz_test::randomFrame(random, 2), {}};
    for (std::int64_t i = 0; i < count; ++i) {
        bool const isOutlier = random.uniform() < outlierShare;
        Point3D_d const place = qz_test::randomPoint(random, 10);
        Point3D_d const error(noise * random.normal(), noise * random.normal(), noise * random.normal());
        Point3D_d local(place.x(), kind == kindPlane ? place.y() : 0.0, 0);
        if (kind == kindCircle) {
            double const angle = place.x() * pi / 10;
            local = Point3D_d(std::cos(angle), std::sin(angle), 0) * circleRadius;
        }
        cloud.points.push_back(isOutlier ? place : cloud.frame.toWorld(local + error));
    }
    return cloud;
}

double sine(Point3D_d const & p, Point3D_d const & q) { return REmath::Detail::cross(p, q).length(); }

double wrongUnlessFound(bool found, double error) { return found ? error : 1; }

double findError(Kind kind, Cloud const & cloud, REmath::ConsensusOptions const & options)
{
    if (kind == kindLine) {
        auto const line = findLine(cloud.points, options);
        return wrongUnlessFound(line.found, sine(line.direction, cloud.frame.axes[0]));
    }
    if (kind == kindPlane) {
        auto const plane = findPlane(cloud.points, options);
        return wrongUnlessFound(plane.found, sine(plane.normal, cloud.frame.axes[2]));
    }
    auto const circle = findCircle(cloud.points, options);
    double const away = (circle.center - cloud.frame.origin).length(), beside = circle.radius - circleRadius;
    return wrongUnlessFound(circle.found, std::max({sine(circle.normal, cloud.frame.axes[2]),
                                                    away / circleRadius, std::abs(beside) / circleRadius}));
}

void consensus(benchmark::State & state, Kind kind)
{
    std::uint64_t seed = 0;
    int wrong = 0;
    REmath::ConsensusOptions options;
    options.inlierDistance = static_cast<double>(state.range(2)) / 100 * noise;
    for (auto _ : state) {
        state.PauseTiming();
        Cloud const cloud = cloudOf(kind, ++seed, state.range(0), static_cast<double>(state.range(1)) / 100);
        state.ResumeTiming();
        double const error = findError(kind, cloud, options);
        benchmark::DoNotOptimize(error);
        wrong += error > 0.1 * pi / 180;
    }
    state.counters["clouds"] = static_cast<double>(seed);
    state.counters["wrong"] = wrong;
}

void arguments(benchmark::internal::Benchmark * benchmark)
{
    benchmark->ArgNames({"points", "outliers", "distance"})->Unit(benchmark::kMicrosecond);
}

void manyClouds(benchmark::internal::Benchmark * benchmark)
{
    arguments(benchmark);
    benchmark->ArgsProduct({{1000}, {30, 45, 60}, {0, 250}})->Iterations(1000);
}

void largeClouds(benchmark::internal::Benchmark * benchmark)
{
    arguments(benchmark);
    benchmark->ArgsProduct({{100000}, {30, 60}, {0, 250}})->Iterations(20);
}

BENCHMARK_CAPTURE(consensus, line, kindLine)->Apply(manyClouds);
BENCHMARK_CAPTURE(consensus, plane, kindPlane)->Apply(manyClouds);
BENCHMARK_CAPTURE(consensus, circle, kindCircle)->Apply(manyClouds);
BENCHMARK_CAPTURE(consensus, line, kindLine)->Apply(largeClouds);
BENCHMARK_CAPTURE(consensus, plane, kindPlane)->Apply(largeClouds);
BENCHMARK_CAPTURE(consensus, circle, kindCircle)->Apply(largeClouds);

} // namespace

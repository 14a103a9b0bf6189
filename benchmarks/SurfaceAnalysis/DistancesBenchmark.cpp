// SPDX-License-Identifier: Apache-2.0

// Distances, intersections and projections, which run once per point of a cloud. Every job walks over the
// same random points around the unit cube; a time is that of one point.

#include <QZmath/SurfaceAnalysis/Contours.h>
#include <QZmath/SurfaceAnalysis/Distances.h>
#include <QZmath/SurfaceAnalysis/Intersections.h>
#include <QZmath/SurfaceAnalysis/NetSurface.h>
#include <QZmath/SurfaceAnalysis/ProjectorTriangle.h>
#include <QZmath/SurfaceAnalysis/Projectors.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D;
using REmath::Point3D_d;

std::vector<Point3D> const & points()
{
    static std::vector<Point3D> const cloud = [] {
        std::mt19937 random(1);
        std::uniform_real_distribution<float> coordinate(-1, 2);
        std::vector<Point3D> result(4096); // a power of 2
        for (Point3D & point : result) {
            for (float * const value : {&point.x(), &point.y(), &point.z()})
                *value = coordinate(random);
        }
        return result;
    }();
    return cloud;
}

// Runs `job(p, q)` on one pair of points after the other and keeps its result alive.
template <class Job>
void perPoint(benchmark::State & state, Job const & job)
{
    std::vector<Point3D> const & cloud = points();
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(job(cloud[next].asArray(), cloud[(next + 1) % cloud.size()].asArray()));
        next = (next + 1) % cloud.size();
    }
}

Point3D const triangle[3] = {{0.1F, 0, 0.2F}, {1, 0.3F, 0}, {0.2F, 1, 0.9F}};

void segment(benchmark::State & state)
{
    perPoint(state, [](float const * p, float const *) {
        float foot[3];
        return DistancePoint2Segment(p, triangle[0].asArray(), triangle[1].asArray(), foot);
    });
}

void triangleDistance(benchmark::State & state)
{
    perPoint(state, [](float const * p, float const *) { return distancePointTriangle2(p, triangle); });
}

void triangleDistancePrecalced(benchmark::State & state)
{
    REmath::CProjectorTriangle projector(triangle);
    projector.PreCalc();
    perPoint(state, [&](float const * p, float const *) { return projector.DistToTriangle2Precalced(p); });
}

void triangleAndLine(benchmark::State & state)
{
    perPoint(state, [](float const * p, float const * q) {
        float hit[3];
        return IntersectTriangLine(triangle[0].asArray(), triangle[1].asArray(), triangle[2].asArray(), p, q,
                                   hit);
    });
}

// Range: points of the polyline.
void polyline(benchmark::State & state)
{
    std::vector<Point3D_d> curve;
    for (int point = 0; point < state.range(0); ++point)
        curve.emplace_back(std::cos(0.1 * point), std::sin(0.1 * point), 1e-3 * point);
    CProjectorToPolyline projector(curve);
    perPoint(state, [&](float const * p, float const *) {
        Point3D_d result;
        double param = 0;
        projector.projectPoint(Point3D(p), result, param);
        return param;
    });
}

// Range: nodes along a side.
void net(benchmark::State & state)
{
    int const size = static_cast<int>(state.range(0));
    REmath::Matrix<Point3D> nodes(size, size);
    for (int node = 0; node < size * size; ++node) {
        double const x = 1.0 * (node % size) / size, y = 1.0 * (node / size) / size;
        nodes.elem(node / size, node % size) = Point3D(x, y, x * y);
    }
    perPoint(state, [&](float const * p, float const *) {
        double u = 0, v = 0;
        ProjectPointToNet(p, nodes, u, v);
        return u + v;
    });
}

// Range: points of the contour.
void contour(benchmark::State & state)
{
    std::vector<double> xy;
    for (std::int64_t point = 0; point <= state.range(0); ++point) {
        double const angle = 2 * std::acos(-1.0) * static_cast<double>(point % state.range(0)) /
                             static_cast<double>(state.range(0));
        xy.insert(xy.end(), {std::cos(angle), std::sin(angle)});
    }
    perPoint(state, [&](float const * p, float const *) { return isPointInContour(p[0], p[1], xy); });
}

BENCHMARK(segment);
BENCHMARK(triangleDistance);
BENCHMARK(triangleDistancePrecalced);
BENCHMARK(triangleAndLine);
BENCHMARK(polyline)->Arg(100);
BENCHMARK(net)->Arg(100);
BENCHMARK(contour)->Arg(1000);

} // namespace

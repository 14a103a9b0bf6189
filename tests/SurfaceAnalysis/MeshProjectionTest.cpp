// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/MeshProjection.h>

#include <QZmath/SurfaceAnalysis/Distances.h>

#include <QZsys/ParallelTasks.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

using REmath::Point3D;

// Against all triangles one by one, which include points, segments, repeated ones and such that are left out.
TEST(MeshProjector, FindsTheNearestOfAllTriangles)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> number(-1, 1);
        float const scale = std::pow(10.0f, float(int(seed % 7) - 3));
        bool const onGrid = seed % 3 == 0; // where many are equally near
        auto const point = [&](float size) {
            float coords[3];
            for (float & coord : coords)
                coord = scale * size * (onGrid ? std::round(3 * number(random)) : number(random));
            return Point3D(coords);
        };
        std::vector<Point3D> vertices(1 + random() % 60);
        for (Point3D & vertex : vertices)
            vertex = point(1);
        if (seed % 4 == 0)
            vertices.front() = Point3D(std::numeric_limits<float>::quiet_NaN(), 0.0f, 0.0f);
        std::vector<std::int32_t> corners(3 * (random() % 90));
        for (std::int32_t & corner : corners)
            corner = std::int32_t(random() % vertices.size());
        if (seed % 5 == 0 && !corners.empty())
            corners.back() = seed % 2 == 0 ? -1 : std::int32_t(vertices.size());
        int const triangles = int(corners.size() / 3);
        CMeshProjector const projector(int(vertices.size()), vertices.data(), triangles, corners.data());

        std::vector<Point3D> points(300);
        for (Point3D & one : points)
            one = point(random() % 4 == 0 ? 20.0f : 1.5f);
        points[7] = Point3D(std::numeric_limits<float>::infinity(), 0.0f, 0.0f);
        std::vector<CMeshProjector::Foot> feet[2];
        for (int const threads : {1, 4}) {
            CThreadNumberScope const scope(threads);
            auto & some = feet[threads > 1];
            some.resize(points.size());
            projector.project(int(points.size()), points.data(), some.data());
        }
        for (std::size_t i = 0; i < points.size(); ++i) {
            int expected = -1;
            float nearest = std::numeric_limits<float>::infinity();
            for (int k = 0; k < triangles && std::isfinite(points[i].asArray()[0]); ++k) {
                Point3D triangle[3];
                bool isSound = true;
                for (int corner = 0; corner < 3; ++corner) {
                    std::int32_t const vertex = corners[std::size_t(3 * k + corner)];
                    isSound = isSound && vertex >= 0 && vertex < std::int32_t(vertices.size());
                    if (isSound)
                        triangle[corner] = vertices[std::size_t(vertex)];
                    isSound = isSound && std::isfinite(triangle[corner].asArray()[0]);
                }
                float const distance = isSound ? distancePointTriangle2(points[i].asArray(), triangle) : NAN;
                if (distance < nearest) {
                    nearest = distance;
                    expected = k;
                }
            }
            for (auto const & some : feet) {
                ASSERT_EQ(some[i].triangle, expected) << seed << ' ' << i;
                if (expected < 0)
                    continue;
                ASSERT_EQ(some[i].squaredDistance, nearest) << seed << ' ' << i;
                double square = 0;
                for (int axis = 0; axis < 3; ++axis)
                    square += std::pow(double(some[i].point.asArray()[axis]) - points[i].asArray()[axis], 2);
                ASSERT_NEAR(std::sqrt(square), std::sqrt(nearest), 1e-5f * scale) << seed << ' ' << i;
            }
        }
    }
}

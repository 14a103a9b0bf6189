// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>

#include "TestPoints.h"

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

using Oriented = qz_test::OrientedPoints;
using qz_test::samplePoints;

double cosine(Point3D const & a, Point3D const & b)
{
    return Point3D_d(a.asArray()).angleCos(Point3D_d(b.asArray()));
}

std::vector<Point3D> estimate(std::vector<Point3D> const & points, NormalOrientation orientation,
                              CNeighbourhoodPrms const & neighbourhood = {})
{
    std::vector<Point3D> normals(points.size(), Point3D(9));
    CEstimateNormalsPrms prms;
    prms.orientation = orientation;
    prms.neighbourhood = neighbourhood;
    prms.viewpoint = Point3D(5, 1, 2);
    int const made = EstimateNormals(static_cast<int>(points.size()), points.data(), prms, normals.data());
    EXPECT_EQ(made, std::count_if(normals.begin(), normals.end(),
                                  [](Point3D const & n) { return n != Point3D(); }));
    return normals;
}

} // namespace

TEST(CloudNormals, TurnOutwardsOrTowardsTheViewpoint)
{
    for (char const * shape : {"sphere", "torus", "genus3", "plate", "bumpy-sphere"}) {
        for (double noise : {0.0, 0.002}) {
            Oriented const truth = samplePoints(shape, 10000, noise);
            std::vector<Point3D> const normals = estimate(truth.points, NormalOrientation::spanningTree);
            std::vector<Point3D> const towards = estimate(truth.points, NormalOrientation::viewpoint, {8, 0});
            int wrong = 0;
            double squared = 0;
            for (std::size_t i = 0; i < normals.size(); ++i) {
                EXPECT_GE(cosine(towards[i], Point3D(5, 1, 2) - truth.points[i]), -1e-6);
                double const agreement = cosine(normals[i], truth.normals[i]);
                wrong += agreement < 0;
                squared += std::pow(std::acos(std::min(1.0, std::abs(agreement))) * 57.3, 2);
            }
            EXPECT_LE(wrong, 4) << shape << noise;
            EXPECT_LT(std::sqrt(squared / truth.size()), noise == 0 ? 3.5 : 6) << shape << noise;
        }
    }
}

TEST(CloudNormals, PartsAreOrientedOneByOneAndScanLinesTogether)
{
    // Two spheres that nearly touch, and a cylinder as a line scanner sees it: steps of 0.01 along lines 0.2
    // apart.
    Oriented truth = samplePoints("sphere", 3000);
    for (std::size_t i = 0; i < 3000 + 40 * 628; ++i) {
        double const angle = 0.01 * double(i % 628);
        Point3D const radial(std::cos(angle), std::sin(angle), 0);
        truth.points.push_back(i < 3000 ? truth.points[i] + Point3D(2.15, 0, 0)
                                        : radial + Point3D(0, 5, 0.2 * double(i / 628)));
        truth.normals.push_back(i < 3000 ? truth.normals[i] : radial);
    }
    // The lines themselves have no normals.
    std::vector<Point3D> normals(truth.normals);
    Random random(1);
    for (Point3D & normal : normals)
        normal *= random.uniform() < 0.5 ? -3 : 3;
    OrientNormalsBySpanningTree(truth.size(), truth.points.data(), normals.data());
    for (std::size_t i = 0; i < normals.size(); ++i)
        ASSERT_GT(cosine(normals[i], truth.normals[i]), 0) << i;
}

TEST(CloudNormals, CurvaturesOfATorusMeetTheAnalyticOnes)
{
    for (double noise : {0.0, 0.0002}) {
        Oriented const truth = samplePoints("torus", 10000, noise);
        std::vector<CPointCurvatures> curvatures(truth.points.size());
        CNeighbourhoodPrms const prms{noise == 0 ? 25 : 50, 0};
        EXPECT_GE(EstimateCurvatures(truth.size(), truth.points.data(), prms, truth.normals.data(),
                                     curvatures.data()),
                  truth.size() * 99 / 100);
        std::vector<double> errors;
        for (std::size_t i = 0; i < curvatures.size(); ++i) {
            if (curvatures[i].method != CPointCurvatures::quadric)
                continue;
            // Tube radius 0.4 about a ring of radius 1 around z; away from the normal.
            Point3D_d const p(truth.points[i].asArray());
            double const ring = 1 / std::hypot(p.x(), p.y()) - 1;
            errors.push_back(std::max(std::abs(double(curvatures[i].minCurvature) * 0.4 + 1),
                                      std::abs(double(curvatures[i].maxCurvature) * 0.4 - ring)));
            Point3D const around(-p.y(), p.x(), 0);
            EXPECT_GT(std::abs(cosine(curvatures[i].maxDirection, around)), noise == 0 ? 0.99 : 0.5);
            EXPECT_GT(cosine(curvatures[i].normal, truth.normals[i]), 0.99);
        }
        std::sort(errors.begin(), errors.end());
        EXPECT_LT(errors[errors.size() / 2], noise == 0 ? 0.015 : 0.1);
        EXPECT_LT(errors[errors.size() * 9 / 10], noise == 0 ? 0.05 : 0.25);
    }
}

TEST(CloudNormals, SpheresHaveOneCurvature)
{
    Oriented sphere = samplePoints("sphere", 4000);
    for (Point3D & point : sphere.points)
        point *= 250;
    std::vector<CPointCurvatures> curvatures(4000);
    EXPECT_EQ(EstimateCurvatures(4000, sphere.points.data(), {}, sphere.normals.data(), curvatures.data()),
              4000);
    for (CPointCurvatures const & found : curvatures)
        EXPECT_LT(std::hypot(found.minCurvature * 250 + 1, found.maxCurvature * 250 + 1), 0.02);
}

TEST(CloudNormals, BitsDependOnNeitherThreadsNorPowersOfTwo)
{
    Oriented const cloud = samplePoints("genus3", 12000, 0.002);
    std::vector<Point3D> scaled = cloud.points;
    for (Point3D & point : scaled)
        point *= 0x1p70F;
    auto const normals = estimate(scaled, NormalOrientation::spanningTree);
    std::vector<CPointCurvatures> curvatures[3];
    for (int i : {0, 1, 2}) {
        CThreadNumberScope const scope(i + 1);
        EXPECT_EQ(estimate(cloud.points, NormalOrientation::spanningTree), normals);
        curvatures[i].resize(4000);
        EstimateCurvatures(4000, cloud.points.data(), {}, nullptr, curvatures[i].data());
        for (std::size_t k = 0; k < 4000; ++k)
            EXPECT_TRUE(curvatures[i][k].minCurvature == curvatures[0][k].minCurvature &&
                        curvatures[i][k].maxDirection == curvatures[0][k].maxDirection);
    }
    // Radii are in the unit of the points.
    EXPECT_EQ(estimate(scaled, NormalOrientation::none, {0, 0.1 * 0x1p70}),
              estimate(cloud.points, NormalOrientation::none, {0, 0.1}));
}

TEST(CloudNormals, HostileCloudsFailPointByPoint)
{
    float const nan = std::numeric_limits<float>::quiet_NaN(), huge = std::numeric_limits<float>::max();
    auto const isNone = [](std::vector<Point3D> const & normals) {
        return std::all_of(normals.begin(), normals.end(), [](Point3D const & n) { return n == Point3D(); });
    };
    std::vector<Point3D> line;
    for (int i = 0; i < 100; ++i)
        line.emplace_back(0.1F * float(i), 0.3F * float(i), 7);
    for (auto orientation :
         {NormalOrientation::none, NormalOrientation::viewpoint, NormalOrientation::spanningTree}) {
        for (std::vector<Point3D> const & points : {std::vector<Point3D>(),
                                                    {Point3D(1, 2, 3), Point3D(1, 2, 4)},
                                                    std::vector<Point3D>(30000, Point3D(1, 2, 3)),
                                                    std::vector<Point3D>(50, Point3D(1, nan, 3)),
                                                    line})
            EXPECT_TRUE(isNone(estimate(points, orientation)));
        // Two places lie on a line, whatever rounding makes of their scatter.
        Random random(9);
        auto const anywhere = [&random] {
            return Point3D(random.uniform(-4, 4), random.uniform(-4, 4), random.uniform(-4, 4));
        };
        for (int trial = 0; trial < 300; ++trial) {
            Point3D const place = anywhere();
            EXPECT_TRUE(isNone(estimate({place, place, anywhere()}, orientation)));
        }
        for (CNeighbourhoodPrms const & senseless :
             {CNeighbourhoodPrms{0, 0}, {-1, 1}, {20, -1}, {20, double(nan)}, {2, 0}})
            EXPECT_TRUE(isNone(estimate(samplePoints("sphere", 100).points, orientation, senseless)));
        // Fewer points than asked for are taken all, bad ones among them hurt nobody.
        std::vector<Point3D> few = {{0, 0, 0},   {1, 0, 0}, {0, 1, 0},
                                    {nan, 0, 0}, {1, 1, 0}, {0, -huge * 2, 0}};
        std::vector<Point3D> const normals = estimate(few, orientation);
        for (std::size_t i : {0U, 1U, 2U, 4U})
            EXPECT_EQ(std::abs(normals[i].z()), 1);
        EXPECT_TRUE(isNone({normals[3], normals[5]}));
        EXPECT_FALSE(isNone(estimate({{huge, 0, 0}, {-huge, 0, 0}, {0, huge, 0}, {0, 1, 2}}, orientation)));
    }
    EXPECT_EQ(EstimateCurvatures(0, nullptr, {}, nullptr, nullptr), 0);
    line.resize(3000, line.back());
    std::vector<CPointCurvatures> curvatures(3000);
    EXPECT_EQ(EstimateCurvatures(3000, line.data(), {}, nullptr, curvatures.data()), 0);
    Oriented sphere = samplePoints("sphere", 3000);
    for (Point3D & point : sphere.points)
        point *= 1e-39F; // the radius, whose inverse no float holds
    EXPECT_EQ(EstimateCurvatures(3000, sphere.points.data(), {}, nullptr, curvatures.data()), 0);
}

TEST(CloudNormals, InterruptionEndsTheWork)
{
    Oriented const cloud = samplePoints("sphere", 40000);
    std::vector<Point3D> normals(cloud.points.size());
    for (int threads : {1, 2}) {
        CThreadNumberScope const scope(threads);
        for (double at : {-1.0, 0.3, 0.6, 0.85}) {
            qz_test::ProgressRecorder progress;
            progress.interruptBeyond = at;
            EXPECT_THROW(EstimateNormals(cloud.size(), cloud.points.data(), {}, normals.data(), &progress),
                         CUserIntrException)
                << at;
        }
        CProgressCounter progress;
        EXPECT_EQ(EstimateNormals(cloud.size(), cloud.points.data(), {}, normals.data(), &progress), 40000);
        EXPECT_EQ(progress.getPosFloat(), 1);
    }
}

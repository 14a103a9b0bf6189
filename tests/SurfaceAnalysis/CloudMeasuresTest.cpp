// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/CloudMeasures.h>

#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <QZsys/ParallelTasks.h>

#include "TestPoints.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D;

namespace
{

struct Cloud : qz_test::OrientedPoints
{
    CCloudMeasures measure() const
    {
        return MeasureCloud(size(), points.data(), normals.empty() ? nullptr : normals.data());
    }
};

Cloud cloudOn(std::string const & shape, std::size_t count, double noise = 0.0)
{
    return {qz_test::samplePoints(shape, count, noise)};
}

TEST(CloudMeasures, SpacingIsThatOfTheSurfaceWhateverTheNumberOfPoints)
{
    for (char const * shape : {"sphere", "torus", "genus3", "block"}) {
        double const area = qz_sampling::makeShape(shape)->area();
        for (std::size_t const count : {2000u, 20000u, 100000u}) {
            double const expected = std::sqrt(area / static_cast<double>(count));
            EXPECT_NEAR(cloudOn(shape, count).measure().spacing, expected, 0.12 * expected) << shape << count;
        }
    }
    Cloud grid;
    for (int i = 0; i < 10000; ++i)
        grid.points.emplace_back(0.5 * (i % 100), 0.5 * (i / 100), 7);
    EXPECT_NEAR(grid.measure().spacing, 0.5, 0.1);
    EXPECT_NEAR(grid.measure().noise, 0.0, 1e-6);
}

TEST(CloudMeasures, RepeatedPointsCountOnce)
{
    Cloud cloud = cloudOn("sphere", 3000);
    double const spacing = cloud.measure().spacing;
    std::vector<Point3D> const once = cloud.points;
    for (int copy = 1; copy < 40; ++copy)
        cloud.points.insert(cloud.points.end(), once.begin(), once.end());
    cloud.normals.clear();
    EXPECT_NEAR(cloud.measure().spacing, spacing, 0.05 * spacing);
    EXPECT_EQ(cloud.measure().repeated, 1.0);
    std::vector<std::uint8_t> marks(cloud.points.size());
    EXPECT_EQ(FindRepeatedPoints(cloud.size(), cloud.points.data(), marks.data()), 39 * 3000);
    EXPECT_EQ(std::count(marks.begin(), marks.begin() + 3000, 1), 0);
    cloud.points.assign(500, Point3D(3e38, 2e38, 1e38)); // whose sum no float holds
    EXPECT_EQ(FindRepeatedPoints(cloud.size(), cloud.points.data(), marks.data()), 499);
    EXPECT_EQ(cloud.measure().repeated, 1.0);
    EXPECT_EQ(cloud.measure().spacing, 0.0);
    EXPECT_EQ(cloud.measure().noise, 0.0);
}

TEST(CloudMeasures, NoiseIsThatAcrossTheSurface)
{
    for (double const noise : {0.001, 0.003, 0.015}) {
        // Relative to the longest side, which is 2.
        double const found = cloudOn("sphere", 50000, noise).measure().noise;
        EXPECT_NEAR(found, 2 * noise, 0.25 * 2 * noise);
    }
}

TEST(CloudMeasures, FlawedNormalsAreCounted)
{
    Cloud cloud = cloudOn("genus3", 20000);
    EXPECT_LT(cloud.measure().normalsOffPlane, 0.01);
    EXPECT_LT(cloud.measure().normalsAgainstOthers, 0.01);
    Cloud turned = cloud;
    for (std::size_t i = 0; i < turned.normals.size(); i += 10)
        turned.normals[i] = -turned.normals[i];
    EXPECT_NEAR(turned.measure().normalsAgainstOthers, 0.1, 0.02);
    EXPECT_LT(turned.measure().normalsOffPlane, 0.01);
    for (std::size_t i = 0; i < cloud.normals.size(); i += 5)
        cloud.normals[i] = Point3D(cloud.normals[i].y(), cloud.normals[i].z(), cloud.normals[i].x());
    EXPECT_NEAR(cloud.measure().normalsOffPlane, 0.18, 0.03);
}

TEST(CloudMeasures, OutliersAreFoundAndTheSurfaceIsKept)
{
    for (char const * shape : {"sphere", "genus3", "block"}) {
        Cloud cloud = cloudOn(shape, 20000);
        auto const surface = qz_sampling::makeShape(shape);
        REmath::Point3D_d const half = surface->halfExtent();
        Random random(3);
        for (int i = 0; i < 1000; ++i)
            cloud.points.emplace_back(random.uniform(-1, 1) * half.x(), random.uniform(-1, 1) * half.y(),
                                      random.uniform(-1, 1) * half.z());
        std::vector<std::uint8_t> marks(cloud.points.size());
        int const found = FindOutliers(cloud.size(), cloud.points.data(), 20, 3.0, marks.data());
        int wronglyMarked = 0, farMissed = 0, marked = 0;
        for (std::size_t i = 0; i < marks.size(); ++i) {
            double const distance =
                std::abs(surface->signedDistance(REmath::Point3D_d(cloud.points[i].asArray())));
            wronglyMarked += i < 20000 && marks[i] != 0;
            farMissed += i >= 20000 && marks[i] == 0 && distance > 0.08;
            marked += marks[i];
        }
        EXPECT_EQ(found, marked);
        EXPECT_LT(wronglyMarked, 60) << shape;
        EXPECT_LT(farMissed, 3) << shape;
    }
}

TEST(CloudMeasures, ZeroNormalsAreCompletedFromThoseAround)
{
    Cloud cloud = cloudOn("genus3", 20000);
    std::vector<Point3D> const whole = cloud.normals;
    int zeros = 0;
    for (std::size_t i = 0; i < cloud.points.size(); ++i) {
        if (i % 3 == 0 || cloud.points[i].x() > 0.5f) { // a part without any
            cloud.normals[i] = Point3D();
            ++zeros;
        }
    }
    EXPECT_EQ(CompleteNormals(cloud.size(), cloud.points.data(), 20, cloud.normals.data()), zeros);
    int wrong = 0;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        Point3D const & a = whole[i];
        Point3D const & b = cloud.normals[i];
        wrong += a.x() * b.x() + a.y() * b.y() + a.z() * b.z() < 0.8f;
    }
    EXPECT_LT(wrong, 40);
}

TEST(CloudMeasures, HaveTheSameBitsOnAnyNumberOfThreadsAndSurviveHostileCoordinates)
{
    Cloud cloud = cloudOn("torus", 60000, 0.002);
    cloud.points[17] = Point3D(NAN, 0, 0);
    cloud.points[99] = Point3D(3e38f, -3e38f, INFINITY);
    cloud.points[400] = Point3D(1e30f, 0, 0);
    std::vector<std::uint8_t> first;
    CCloudMeasures measures;
    for (int const threads : {1, 2, 3}) {
        CThreadNumberScope const scope(threads);
        std::vector<std::uint8_t> marks(cloud.points.size());
        FindOutliers(cloud.size(), cloud.points.data(), 12, 2.0, marks.data());
        CCloudMeasures const again = cloud.measure();
        if (threads == 1) {
            first = marks;
            measures = again;
        }
        EXPECT_EQ(marks, first);
        EXPECT_EQ(again.spacing, measures.spacing);
        EXPECT_EQ(again.noise, measures.noise);
    }
    EXPECT_TRUE(first[17] != 0 && first[99] != 0 && first[400] != 0);
    EXPECT_EQ(MeasureCloud(0, nullptr, nullptr).examined, 0);
    EXPECT_EQ(MeasureCloud(1, cloud.points.data(), nullptr).spacing, 0.0);
}

} // namespace

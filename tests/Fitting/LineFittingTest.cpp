// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/LineFitting.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

double dot(Point3D_d const & a, Point3D_d const & b) { return a.x() * b.x() + a.y() * b.y() + a.z() * b.z(); }

/// Sine of the angle between two lines.
double sine(Point3D_d const & a, Point3D_d const & b) { return (a - b * dot(a, b)).length(); }

double distance(Point3D_d const & p, Point3D_d const & origin, Point3D_d const & direction)
{
    Point3D_d const offset = p - origin;
    return (offset - direction * dot(offset, direction)).length();
}

std::vector<Point3D> narrow(std::vector<Point3D_d> const & points)
{
    std::vector<Point3D> result;
    for (Point3D_d const & point : points)
        result.emplace_back(point.asArray());
    return result;
}

/// Points along the x axis of a frame with normal noise; every `outlierStep`-th lies to one side instead.
std::vector<Point3D_d> lineSamples(Random & random, qz_test::Frame const & frame, int count, double noise,
                                   int outlierStep = 0)
{
    std::vector<Point3D_d> points;
    for (int i = 0; i < count; ++i) {
        bool const isOutlier = outlierStep > 0 && i % outlierStep == 0;
        double const x = random.uniform(-10, 10);
        double const y = isOutlier ? random.uniform(3, 6) + 0.3 * x : noise * random.normal();
        points.push_back(frame.toWorld({x, y, isOutlier ? -0.5 * x : noise * random.normal()}));
    }
    return points;
}

double cost(std::vector<Point3D_d> const & points, Point3D_d const & origin, Point3D_d const & direction)
{
    double sum = 0;
    for (Point3D_d const & point : points)
        sum += std::pow(distance(point, origin, direction), 2);
    return sum;
}

TEST(LineFitting, NoLineNearbyIsBetter)
{
    Random random(1);
    for (int round = 0; round < 50; ++round) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 1000);
        std::vector<Point3D_d> const points = lineSamples(random, frame, 3 + round, 0.5);
        Point3D_d origin, direction, floatOrigin, floatDirection;
        ASSERT_TRUE(FitLineToPointSet(points, origin, direction));
        EXPECT_NEAR(direction.length(), 1, 1e-14);
        double const least = cost(points, origin, direction);
        for (int trial = 0; trial < 20; ++trial) {
            Point3D_d const shift{random.normal(), random.normal(), random.normal()};
            EXPECT_GE(cost(points, origin + shift * 1e-3, direction), least * (1 - 1e-9));
            EXPECT_GE(cost(points, origin, (direction + shift * 1e-3).unitLength()), least * (1 - 1e-9));
        }
        ASSERT_TRUE(FitLineToPointSet(narrow(points), floatOrigin, floatDirection));
        EXPECT_LT((floatOrigin - origin).length(), 1e-3);
        EXPECT_LT(sine(floatDirection, direction), 1e-3);
    }
}

TEST(LineFitting, RobustFitRecoversWhatThePlainOneLoses)
{
    Random random(2);
    double worstRobust = 0, bestPlain = 1e9;
    for (int round = 0; round < 40; ++round) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 100);
        std::vector<Point3D_d> const points = lineSamples(random, frame, 400, 0.02, 5);
        Point3D_d origin, direction;
        ASSERT_TRUE(FitLineToPointSet(points, origin, direction));
        bestPlain = std::min(bestPlain, distance(frame.origin, origin, direction));
        ASSERT_TRUE(FitLineToPointSetRobust(points, origin, direction));
        worstRobust = std::max(worstRobust, distance(frame.origin, origin, direction));
        EXPECT_LT(sine(direction, frame.axes[0]), 0.05);

        Point3D_d floatOrigin, floatDirection;
        ASSERT_TRUE(FitLineToPointSetRobust(narrow(points), floatOrigin, floatDirection));
        EXPECT_LT(distance(floatOrigin, origin, direction), 1e-3);
        EXPECT_LT(sine(floatDirection, direction), 1e-3);
    }
    EXPECT_LT(worstRobust, 0.2);
    EXPECT_GT(bestPlain, 0.5);
    EXPECT_LT(worstRobust * 5, bestPlain);
}

TEST(LineFitting, FixedPointStaysOnTheLine)
{
    Random random(3);
    for (int round = 0; round < 40; ++round) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 100);
        std::vector<Point3D_d> points = lineSamples(random, frame, 300, 0.02, 6);
        Point3D_d direction;
        ASSERT_TRUE(FitLineToPointSetThroughPointRobust(points, frame.origin, direction));
        EXPECT_LT(sine(direction, frame.axes[0]), 0.02);

        // Of a point beside the line the direction of the samples is still right, not that of a line to them.
        Point3D_d const beside = frame.toWorld({-30, 0.5, 0});
        ASSERT_TRUE(FitLineToPointSetThroughPointRobust(points, beside, direction));
        EXPECT_LT(sine(direction, (frame.origin - beside).unitLength()), 0.01);

        // Two points count both, and nothing is taken for granted about the line between them.
        points = {frame.toWorld({10, 1, 0}), frame.toWorld({10, -1, 0})};
        ASSERT_TRUE(FitLineToPointSetThroughPointRobust(points, frame.origin, direction));
        EXPECT_LT(sine(direction, frame.axes[0]), 1e-12);
    }
}

TEST(LineFitting, TwoPointsKeepTheirOrder)
{
    Point3D_d const first{1, 2, 3}, second{5, -2, 10};
    for (bool const robust : {false, true}) {
        Point3D_d origin, direction;
        ASSERT_TRUE((robust ? FitLineToPointSetRobust({first, second}, origin, direction)
                            : FitLineToPointSet({first, second}, origin, direction)));
        EXPECT_EQ(origin, (first + second) / 2);
        EXPECT_LT((direction - (second - first) / 9).length(), 1e-15);
    }
}

/// Exact samples give residuals of 0 and no weights: the first fit stands.
TEST(LineFitting, ExactLineIsFoundAnywhere)
{
    for (double const scale : {1e-100, 1e-6, 1.0, 1e6, 1e100}) {
        std::vector<Point3D_d> points;
        for (int i = 0; i < 20; ++i)
            points.push_back(Point3D_d(1 + i, 2 - i, 2 * i) * scale);
        Point3D_d origin, direction;
        ASSERT_TRUE(FitLineToPointSetRobust(points, origin, direction));
        EXPECT_LT(sine(direction, Point3D_d(1, -1, 2).unitLength()), 1e-14);
        EXPECT_LT(distance(points[0], origin, direction), 1e-13 * scale);
    }
}

TEST(LineFitting, RefusesWhatIsNoLine)
{
    Point3D_d const far{1.1e6, 0.3, -1e-7};
    double const largest = std::numeric_limits<double>::max();
    std::vector<std::vector<Point3D_d>> const cases = {
        {},
        {far},
        {far, far},
        {far, far, far},
        std::vector<Point3D_d>(7, far),
        {far, {notANumber, 0, 0}},
        {far, {0, 0, 0}, {0, notANumber, 0}, {1, 1, 1}},
        {{0, 0, 0}, {1, 0, 0}, {std::numeric_limits<double>::infinity(), 0, 0}},
        {{0, 0, 0}, {largest, 0, 0}},
        {{-largest, 0, 0}, {largest, 0, 0}, {0, 1, 0}, {0, 2, 1}},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Point3D_d origin, direction;
        EXPECT_FALSE(FitLineToPointSet(cases[i], origin, direction)) << i;
        EXPECT_FALSE(FitLineToPointSetRobust(cases[i], origin, direction)) << i;
        Point3D_d const fixed = cases[i].empty() ? far : cases[i][0];
        EXPECT_FALSE(FitLineToPointSetThroughPointRobust(cases[i], fixed, direction) && i != 8) << i;
    }
    Point3D_d direction;
    EXPECT_FALSE(FitLineToPointSetThroughPointRobust({far, {0, 0, 0}}, {notANumber, 0, 0}, direction));
}

} // namespace

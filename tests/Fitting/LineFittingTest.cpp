// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/LineFitting.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::dot;
using Points = std::vector<Point3D_d>;

namespace
{

struct Line
{
    Point3D_d origin, direction;

    double distance(Point3D_d const & p) const { return perpendicular(p - origin).length(); }
    // Sine of the angle to a unit direction.
    double sine(Point3D_d const & other) const { return perpendicular(other).length(); }
    double cost(Points const & points) const
    {
        double sum = 0;
        for (Point3D_d const & point : points)
            sum += std::pow(distance(point), 2);
        return sum;
    }
    Point3D_d perpendicular(Point3D_d const & v) const { return v - direction * dot(v, direction); }
};

std::vector<Point3D> narrow(Points const & points)
{
    std::vector<Point3D> result;
    for (Point3D_d const & point : points)
        result.emplace_back(point.asArray());
    return result;
}

// Points along the x axis of a frame with normal noise; every `outlierStep`-th lies to one side instead.
Points lineSamples(Random & random, qz_test::Frame const & frame, int count, double noise, int outlierStep)
{
    Points points;
    for (int i = 0; i < count; ++i) {
        bool const isOutlier = i % outlierStep == 1;
        double const x = random.uniform(-10, 10);
        double const y = isOutlier ? random.uniform(3, 6) + 0.3 * x : noise * random.normal();
        points.push_back(frame.toWorld({x, y, isOutlier ? -0.5 * x : noise * random.normal()}));
    }
    return points;
}

TEST(LineFitting, NoLineNearbyIsBetter)
{
    Random random(1);
    for (int round = 0; round < 50; ++round) {
        Points const points = lineSamples(random, qz_test::randomFrame(random, 1000), 3 + round, 0.5, 10);
        Line line, single;
        ASSERT_TRUE(FitLineToPointSet(points, line.origin, line.direction));
        EXPECT_NEAR(line.direction.length(), 1, 1e-14);
        double const least = line.cost(points);
        for (int trial = 0; trial < 20; ++trial) {
            Point3D_d const shift = Point3D_d(random.normal(), random.normal(), random.normal()) * 1e-3;
            EXPECT_GE((Line{line.origin + shift, line.direction}.cost(points)), least * (1 - 1e-9));
            EXPECT_GE((Line{line.origin, (line.direction + shift).unitLength()}.cost(points)),
                      least * (1 - 1e-9));
        }
        ASSERT_TRUE(FitLineToPointSet(narrow(points), single.origin, single.direction));
        EXPECT_LT((single.origin - line.origin).length() + line.sine(single.direction), 1e-3);
    }
}

TEST(LineFitting, RobustFitsRecoverWhatThePlainOneLoses)
{
    Random random(2);
    for (int round = 0; round < 40; ++round) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 100);
        Points points = lineSamples(random, frame, 400, 0.02, 5);
        Line plain, robust, single, through{frame.origin, {}};
        ASSERT_TRUE(FitLineToPointSet(points, plain.origin, plain.direction));
        EXPECT_GT(plain.distance(frame.origin), 0.5);
        ASSERT_TRUE(FitLineToPointSetRobust(points, robust.origin, robust.direction));
        ASSERT_TRUE(FitLineToPointSetRobust(narrow(points), single.origin, single.direction));
        ASSERT_TRUE(FitLineToPointSetThroughPointRobust(points, frame.origin, through.direction));
        EXPECT_LT(std::max(robust.distance(frame.origin), single.distance(frame.origin)), 0.1);
        EXPECT_LT(std::max(robust.sine(frame.axes[0]), single.sine(frame.axes[0])), 0.05);
        EXPECT_LT(through.sine(frame.axes[0]), 0.02);

        // Through a fixed point two samples count both; nothing is taken for granted about the line between
        // them.
        points = {frame.toWorld({10, 1, 0}), frame.toWorld({10, -1, 0})};
        ASSERT_TRUE(FitLineToPointSetThroughPointRobust(points, frame.origin, through.direction));
        EXPECT_LT(through.sine(frame.axes[0]), 1e-12);
    }
}

// Exact samples give residuals of 0 and no weights: the first fit stands.
TEST(LineFitting, ExactLineIsFoundAtAnyScale)
{
    for (double const scale : {1e-100, 1e-6, 1.0, 1e6, 1e100}) {
        for (Point3D_d const & step : {Point3D_d(1, 0, 0), {0, 1, 0}, {0, 0, 1}, {1, -1, 2}}) {
            Points points = {Point3D_d(1, 2, 0) * scale};
            for (int i = 1; i < 20; ++i) {
                points.push_back(points[0] + step * (scale * i));
                Line line;
                ASSERT_TRUE(FitLineToPointSetRobust(points, line.origin, line.direction));
                EXPECT_LT(line.sine(step.unitLength()), 1e-14);
                EXPECT_LT(line.distance(points[0]), 1e-13 * scale);
                EXPECT_TRUE(i > 1 || (line.direction - step).length() < 2) << "two points keep their order";
            }
        }
    }
}

TEST(LineFitting, RefusesWhatIsNoLine)
{
    Point3D_d const far{1.1e6, 0.3, -1e-7}, bad{0, NAN, 0}, origin(0), low(-1.7e308, 0, 0);
    Line line;
    for (Points const & points : {Points{},
                                  {far, far},
                                  Points(7, far),
                                  {far, bad},
                                  {far, origin, bad, {1, 1, 1}},
                                  {origin, {1, 0, 0}, {INFINITY, 0, 0}},
                                  {low, -low},
                                  {low, -low, {0, 1, 0}, {0, 2, 1}}}) {
        EXPECT_FALSE(FitLineToPointSet(points, line.origin, line.direction));
        EXPECT_FALSE(FitLineToPointSetRobust(points, line.origin, line.direction));
        EXPECT_FALSE(FitLineToPointSetThroughPointRobust(points, far, line.direction));
    }
    EXPECT_FALSE(FitLineToPointSetThroughPointRobust({far, origin}, bad, line.direction));
}

} // namespace

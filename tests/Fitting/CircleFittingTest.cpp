// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/CircleFitting.h>
#include <QZmath/Fitting/LevenbergMarquardt.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D_d;

namespace
{

constexpr double pi = 3.14159265358979323846;
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

double dot(Point3D_d const & a, Point3D_d const & b) { return a.x() * b.x() + a.y() * b.y() + a.z() * b.z(); }

struct Circle
{
    Point3D_d center, normal;
    double radius = 0;

    /// Distance of the projection of `p` from the circle.
    double distance(Point3D_d const & p) const
    {
        Point3D_d const offset = p - center;
        return std::abs((offset - normal * dot(offset, normal)).length() - radius);
    }
};

/// A circle in the x-y plane of a frame, and where on it things lie.
struct Truth
{
    Point3D_d at(double angle, double beyond = 0) const
    {
        return frame.toWorld({(radius + beyond) * std::cos(angle), (radius + beyond) * std::sin(angle), 0});
    }
    Point3D_d tangentAt(double angle) const
    {
        return frame.directionToWorld({-std::sin(angle), std::cos(angle), 0});
    }
    /// Samples of an arc with normal noise; every `outlierStep`-th lies outside instead.
    std::vector<Point3D_d> samples(Random & random, int count, double start, double arc, double noise,
                                   int outlierStep = 0) const
    {
        std::vector<Point3D_d> points;
        for (int i = 0; i < count; ++i) {
            bool const isOutlier = outlierStep > 0 && i % outlierStep == 0;
            double const angle = start + arc * (isOutlier ? 0.3 : 1) * random.uniform();
            points.push_back(at(angle, isOutlier ? random.uniform(2, 5) : noise * random.normal()));
        }
        return points;
    }
    double error(Circle const & found) const
    {
        return (found.center - frame.origin).length() + std::abs(found.radius - radius);
    }

    qz_test::Frame frame;
    double radius;
};

Truth randomTruth(Random & random) { return {qz_test::randomFrame(random, 100), random.uniform(5, 20)}; }

/// Sum of the squares that the plain fit minimises, in the plane of the circle.
double algebraicCost(std::vector<Point3D_d> const & points, Circle const & circle)
{
    double sum = 0;
    for (Point3D_d const & point : points) {
        double const height = dot(point - circle.center, circle.normal);
        double const squared = dot(point - circle.center, point - circle.center) - height * height;
        sum += std::pow(squared - circle.radius * circle.radius, 2);
    }
    return sum;
}

TEST(CircleFitting, PlainFitIsTheAlgebraicMinimum)
{
    Random random(1);
    for (int round = 0; round < 60; ++round) {
        Truth const truth = randomTruth(random);
        std::vector<Point3D_d> points =
            truth.samples(random, 4 + round, 0, random.uniform(1, 2 * pi), round % 2 * 0.3);
        Circle found;
        ASSERT_TRUE(FitCircleToPointSet(points, found.center, found.normal, found.radius));
        if (round % 2 == 0) {
            EXPECT_LT(truth.error(found), 1e-6);
            continue;
        }
        double const least = algebraicCost(points, found);
        for (int trial = 0; trial < 20; ++trial) {
            Circle other = found;
            Point3D_d const shift = truth.frame.directionToWorld({random.normal(), random.normal(), 0});
            other.center += shift * 1e-2;
            other.radius += 1e-2 * random.normal();
            EXPECT_GE(algebraicCost(points, other), least * (1 - 1e-9));
        }
    }
}

TEST(CircleFitting, RobustFitRecoversWhatThePlainOneLoses)
{
    Random random(2);
    for (int round = 0; round < 40; ++round) {
        Truth const truth = randomTruth(random);
        std::vector<Point3D_d> const points =
            truth.samples(random, 500, round, random.uniform(3, 6), 0.02, 8);
        Circle plain, robust;
        ASSERT_TRUE(FitCircleToPointSet(points, plain.center, plain.normal, plain.radius));
        ASSERT_TRUE(FitCircleToPointSetRobust(points, robust.center, robust.normal, robust.radius));
        EXPECT_LT(truth.error(robust), 0.1);
        EXPECT_LT(truth.error(robust) * 10, truth.error(plain));
        EXPECT_NEAR(std::abs(dot(robust.normal, truth.frame.axes[2])), 1, 1e-12);
    }
}

/// Each constraint holds for itself, and the rest of the circle is that of the samples. The frames of the
/// second half put tangents and chords along the axes of the plane's own coordinates.
TEST(CircleFitting, ConstraintsHold)
{
    Random random(3);
    for (int round = 0; round < 80; ++round) {
        Truth truth = randomTruth(random);
        double angle = random.uniform(0, 2 * pi);
        if (round >= 40) {
            truth.frame = {{3, 4, 5}, {Point3D_d(1, 0, 0), Point3D_d(0, 1, 0), Point3D_d(0, 0, 1)}};
            angle = round % 4 * pi / 2;
        }
        std::vector<Point3D_d> const points =
            truth.samples(random, 300, angle - 0.2, random.uniform(1.5, 6), 0.01, 10);
        double const tolerance = 0.04 * truth.radius;

        Circle through;
        Point3D_d const fixed = truth.at(angle, 0.02);
        ASSERT_TRUE(FitCircleToPointSetWithFixedPointsRobust(points, {fixed}, through.center, through.normal,
                                                             through.radius));
        EXPECT_LT(through.distance(fixed), 1e-9);
        EXPECT_LT(truth.error(through), tolerance);

        Circle tangent;
        Point3D_d const direction = truth.tangentAt(angle);
        ASSERT_TRUE(FitCircleByPointsWithDirs(points, {truth.at(angle)}, {direction * -7}, tangent.center,
                                              tangent.normal, tangent.radius));
        EXPECT_LT(tangent.distance(truth.at(angle)), 1e-9);
        EXPECT_LT(std::abs(dot(tangent.center - truth.at(angle), direction)), 1e-9);
        EXPECT_LT(truth.error(tangent), tolerance);

        // The mean distance is that of all samples, outliers too, so the truth is wanted without them.
        Circle both;
        std::vector<Point3D_d> const clean = truth.samples(random, 300, angle - 0.2, 3, 0.01);
        std::vector<Point3D_d> const ends = {truth.at(angle), truth.at(angle + pi / 2)};
        std::vector<Point3D_d> const level = {truth.at(angle + pi / 4), truth.at(angle + 3 * pi / 4)};
        for (std::vector<Point3D_d> const & pair : {ends, level}) {
            ASSERT_TRUE(
                FitCircleToPointSetWithFixedPointsRobust(clean, pair, both.center, both.normal, both.radius));
            EXPECT_LT(both.distance(pair[0]), 1e-9);
            EXPECT_LT(both.distance(pair[1]), 1e-9);
            EXPECT_LT(truth.error(both), tolerance);
        }

        Circle tangents;
        ASSERT_TRUE(FitCircleByPointsWithDirs(points, ends, {direction, truth.tangentAt(angle + pi / 2) * 3},
                                              tangents.center, tangents.normal, tangents.radius));
        EXPECT_LT(truth.error(tangents), 1e-9 * 100);
    }
}

TEST(CircleFitting, ThreePointsGiveTheCircleThroughThem)
{
    Random random(4);
    for (int round = 0; round < 50; ++round) {
        Truth const truth = randomTruth(random);
        std::vector<Point3D_d> const corners = {truth.at(round), truth.at(round + 1), truth.at(round + 4)};
        Circle found;
        for (int way = 0; way < 3; ++way) {
            found = {};
            ASSERT_TRUE((way == 0 ? FitCircleToPointSet(corners, found.center, found.normal, found.radius)
                         : way == 1
                             ? FitCircleToPointSetRobust(corners, found.center, found.normal, found.radius)
                             : FitCircleToPointSetWithFixedPointsRobust({}, corners, found.center,
                                                                        found.normal, found.radius)));
            EXPECT_LT(truth.error(found), 1e-10);
            EXPECT_NEAR(dot(found.normal, truth.frame.axes[2]), 1, 1e-12);
        }
    }
}

TEST(CircleFitting, RefusesWhatDeterminesNoCircle)
{
    double const largest = std::numeric_limits<double>::max();
    std::vector<Point3D_d> collinear, huge, withNaN = {{notANumber, 0, 0}};
    for (int i = 0; i < 12; ++i) {
        collinear.emplace_back(100 + 0.1 * i, 0.7 * i, 3 - i);
        huge.emplace_back(i % 2 ? largest : 0.0, i % 3 ? -largest : 1.0, i);
        withNaN.emplace_back(std::cos(i), std::sin(i), 0);
    }
    std::vector<Point3D_d> const four(collinear.begin(), collinear.begin() + 4),
        three(collinear.begin(), collinear.begin() + 3);
    std::vector<std::vector<Point3D_d>> const cases = {
        {},    {{1, 2, 3}}, {{1, 2, 3}, {4, 5, 6}},
        three, four,        collinear,
        huge,  withNaN,     std::vector<Point3D_d>(9, {1.1, 2.2, 3.3})};
    Circle c;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        std::vector<Point3D_d> const & points = cases[i];
        EXPECT_FALSE(FitCircleToPointSet(points, c.center, c.normal, c.radius)) << i;
        EXPECT_FALSE(FitCircleToPointSetRobust(points, c.center, c.normal, c.radius)) << i;
        EXPECT_FALSE(
            FitCircleByPointsWithDirs(points, {{0, 0, 0}}, {{0, 0, 0}}, c.center, c.normal, c.radius))
            << i;
        EXPECT_FALSE(FitCircleToPointSetWithFixedPointsRobust(points, {{1, 0, 0}, {1, 0, 0}}, c.center,
                                                              c.normal, c.radius))
            << i;
    }
    std::vector<Point3D_d> const round(withNaN.begin() + 1, withNaN.end());
    std::vector<std::vector<Point3D_d>> const badFixed = {
        {}, {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}}, {{notANumber, 0, 0}}, {{largest, largest, 0}}};
    for (std::vector<Point3D_d> const & fixed : badFixed) {
        EXPECT_FALSE(FitCircleToPointSetWithFixedPointsRobust(round, fixed, c.center, c.normal, c.radius) &&
                     fixed[0].x() != largest);
    }
    EXPECT_FALSE(FitCircleByPointsWithDirs(round, {{1, 0, 0}, {0, 1, 0}}, {{1, -1, 0}, {-3, 3, 0}}, c.center,
                                           c.normal, c.radius));
    EXPECT_FALSE(FitCircleByPointsWithDirs(round, {}, {}, c.center, c.normal, c.radius));
    EXPECT_FALSE(
        FitCircleByPointsWithDirs(round, {{1, 0, 0}, {0, 1, 0}}, {{0, 1, 0}}, c.center, c.normal, c.radius));
    EXPECT_FALSE(FitCircleByPointsWithDirs(round, {{1, 0, 0}}, {{0, 0, 1}}, c.center, c.normal, c.radius));
}

/// A sample in the centre has no direction, and is an outlier like any other.
TEST(CircleFitting, SampleInTheCentreDoesNoHarm)
{
    std::vector<Point3D_d> points(1);
    for (int i = 0; i < 64; ++i)
        points.emplace_back(10 * std::cos(i * pi / 32), 10 * std::sin(i * pi / 32), 0);
    Circle found;
    ASSERT_TRUE(FitCircleToPointSetRobust(points, found.center, found.normal, found.radius));
    EXPECT_LT(found.center.length() + std::abs(found.radius - 10), 1e-6);
}

/// Rosenbrock's valley as the sum of squares of 10 (y - x²) and 1 - x.
class Valley : public REmath::Functor7<int, int, int, double const *, double *, double *, int, int>
{
public:
    int operator()(int, int, double const * x, double * f, double * j, int stride, int iflag) const override
    {
        if (code > 1)
            throw std::runtime_error("stop");
        if (iflag == 1) {
            f[0] = 10 * (x[1] - x[0] * x[0]);
            f[1] = 1 - x[0];
        } else {
            j[0] = -20 * x[0];
            j[1] = -1;
            j[stride] = 10;
            j[stride + 1] = 0;
        }
        return code;
    }
    int code = 0;
};

TEST(LevenbergMarquardt, FindsTheMinimumAndPassesFailuresOn)
{
    Valley valley;
    double x[2] = {-1.2, 1}, f[2];
    int const info = REmath::lmder1_adapter(valley, 2, 2, x, f, 1e-12);
    EXPECT_GE(info, 1);
    EXPECT_LE(info, 4);
    EXPECT_NEAR(x[0], 1, 1e-9);
    EXPECT_NEAR(x[1], 1, 1e-9);
    EXPECT_LT(std::hypot(f[0], f[1]), 1e-9);
    EXPECT_EQ(REmath::lmder1_adapter(valley, 1, 2, x, f, 1e-12), 0);
    EXPECT_EQ(REmath::lmder1_adapter(valley, 2, 0, x, f, 1e-12), 0);
    EXPECT_EQ(REmath::lmder1_adapter(valley, 2, 2, x, f, -1), 0);
    x[0] = notANumber;
    EXPECT_EQ(REmath::lmder1_adapter(valley, 2, 2, x, f, 1e-12), 5);
    valley.code = -3;
    EXPECT_EQ(REmath::lmder1_adapter(valley, 2, 2, x, f, 1e-12), -3);
    valley.code = 2;
    EXPECT_THROW(REmath::lmder1_adapter(valley, 2, 2, x, f, 1e-12), std::runtime_error);
}

} // namespace

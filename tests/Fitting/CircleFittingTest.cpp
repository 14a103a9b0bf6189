// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/CircleFitting.h>
#include <QZmath/Fitting/LevenbergMarquardt.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D_d;
using REmath::Detail::dot;
using Points = std::vector<Point3D_d>;

namespace
{

constexpr double pi = 3.14159265358979323846;
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

struct Circle
{
    Point3D_d center, normal;
    double radius = 0;

    bool plain(Points const & points) { return FitCircleToPointSet(points, center, normal, radius); }
    bool robust(Points const & points) { return FitCircleToPointSetRobust(points, center, normal, radius); }
    bool through(Points const & points, Points const & fixed)
    {
        return FitCircleToPointSetWithFixedPointsRobust(points, fixed, center, normal, radius);
    }
    bool tangent(Points const & points, Points const & fixed, Points const & directions)
    {
        return FitCircleByPointsWithDirs(points, fixed, directions, center, normal, radius);
    }

    // Distance of the projection of `p` from the circle.
    double distance(Point3D_d const & p) const
    {
        Point3D_d const offset = p - center;
        return std::abs((offset - normal * dot(offset, normal)).length() - radius);
    }
};

// A circle in the x-y plane of a frame, and where on it things lie.
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
    // Samples of an arc with normal noise; every `outlierStep`-th lies outside instead.
    Points samples(Random & random, int count, double start, double arc, double noise,
                   int outlierStep = 0) const
    {
        Points points;
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

// Sum of the squares that the plain fit minimises, for points in the plane of the circle.
double algebraicCost(Points const & points, Circle const & circle)
{
    double sum = 0;
    for (Point3D_d const & point : points)
        sum += std::pow(std::pow((point - circle.center).length(), 2) - circle.radius * circle.radius, 2);
    return sum;
}

TEST(CircleFitting, PlainFitIsTheAlgebraicMinimum)
{
    Random random(1);
    for (int round = 0; round < 60; ++round) {
        Truth const truth = randomTruth(random);
        Points const points = truth.samples(random, 4 + round, 0, random.uniform(1, 2 * pi), round % 2 * 0.3);
        Circle found;
        ASSERT_TRUE(found.plain(points));
        EXPECT_TRUE(round % 2 == 1 || truth.error(found) < 1e-6) << truth.error(found);
        double const least = algebraicCost(points, found);
        for (int trial = 0; trial < 20; ++trial) {
            Circle other = found;
            other.center += truth.frame.directionToWorld({random.normal(), random.normal(), 0}) * 1e-2;
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
        Points points = truth.samples(random, 500, round, random.uniform(3, 6), 0.02, 8);
        points.push_back(truth.frame.origin); // has no direction from the centre
        Circle loses, recovers;
        ASSERT_TRUE(loses.plain(points));
        ASSERT_TRUE(recovers.robust(points));
        EXPECT_LT(truth.error(recovers), std::min(0.1, truth.error(loses) / 10));

        Points const corners = {truth.at(round), truth.at(round + 1), truth.at(round + 4)};
        Circle free, fixed;
        ASSERT_TRUE(free.robust(corners) && fixed.through({}, corners));
        EXPECT_LT(truth.error(free) + truth.error(fixed), 1e-9);
        EXPECT_NEAR(dot(free.normal, truth.frame.axes[2]), 1, 1e-12);
    }
}

// Each constraint holds for itself, and the rest of the circle is that of the samples. The frames of the
// second half put tangents and chords along the axes of the plane's own coordinates.
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
        Points const points = truth.samples(random, 300, angle - 0.2, random.uniform(1.5, 6), 0.01, 10);
        Point3D_d const fixed = truth.at(angle), beside = truth.at(angle, 0.02),
                        direction = truth.tangentAt(angle);
        double const tolerance = 0.04 * truth.radius;
        Circle circle;
        ASSERT_TRUE(circle.through(points, {beside}));
        EXPECT_LT(circle.distance(beside), 1e-9);
        EXPECT_LT(truth.error(circle), tolerance);

        ASSERT_TRUE(circle.tangent(points, {fixed}, {direction * -7}));
        EXPECT_LT(circle.distance(fixed) + std::abs(dot(circle.center - fixed, direction)), 1e-9);
        EXPECT_LT(truth.error(circle), tolerance);

        // The mean distance is that of all samples, outliers too, so the truth is wanted without them.
        Points const clean = truth.samples(random, 300, angle - 0.2, 3, 0.01);
        for (double const half : {0.0, pi / 4}) {
            Points const pair = {truth.at(angle + half), truth.at(angle + half + pi / 2)};
            ASSERT_TRUE(circle.through(clean, pair));
            EXPECT_LT(circle.distance(pair[0]) + circle.distance(pair[1]), 1e-9);
            EXPECT_LT(truth.error(circle), tolerance);
        }
        ASSERT_TRUE(circle.tangent(points, {fixed, truth.at(angle + 2)},
                                   {direction, truth.tangentAt(angle + 2) * 3}));
        EXPECT_LT(truth.error(circle), 1e-7);
    }
}

TEST(CircleFitting, RefusesWhatDeterminesNoCircle)
{
    double const largest = std::numeric_limits<double>::max();
    Points collinear, huge, round, withNaN = {{notANumber, 0, 0}};
    for (int i = 0; i < 12; ++i) {
        collinear.emplace_back(100 + 0.1 * i, 0.7 * i, 3 - i);
        huge.emplace_back(i % 2 ? largest : 0.0, i % 3 ? -largest : 1.0, i);
        round.emplace_back(std::cos(i), std::sin(i), 0);
    }
    withNaN.insert(withNaN.end(), round.begin(), round.end());
    Points const same(9, {1.1, 2.2, 3.3}), three(collinear.begin(), collinear.begin() + 3);
    Points const four(collinear.begin(), collinear.begin() + 4), single = {{1, 2, 3}},
                                                                 two = {{1, 2, 3}, {4, 5, 6}};
    std::vector<Points> const cases = {{}, single, two, three, four, collinear, huge, withNaN, same};
    Circle c;
    for (Points const & points : cases) {
        EXPECT_FALSE(c.plain(points) || c.robust(points) || c.through(points, {{1, 1, 0}, {1, 0, 0}}) ||
                     c.tangent(points, {{0, 0, 0}}, {{1, 2, 0}}))
            << &points - cases.data();
    }
    Points const pair = {{1, 0, 0}, {0, 1, 0}};
    for (Points const & fixed : {Points(), Points(2, {1, 0, 0}), Points{{notANumber, 0, 0}}})
        EXPECT_FALSE(c.through(round, fixed) || c.tangent(round, fixed, fixed));
    EXPECT_FALSE(c.through(round, Points(4, {1, 0, 0})));
    EXPECT_FALSE(c.tangent(round, pair, {{0, 1, 0}}));
    EXPECT_FALSE(c.tangent(round, {pair[0]}, {{0, 0, 1}})) << "across the plane";
    EXPECT_FALSE(c.tangent(round, {{1, 0.1, 0}}, {{0, 1e200, 0}})) << "of infinite length";
    EXPECT_FALSE(c.tangent(round, pair, {{1, -1, 0}, {-3, 3, 0}})) << "along the chord";
}

// Rosenbrock's valley as the sum of squares of 10 (y - x²) and 1 - x.
class Valley : public REmath::Functor7<int, int, int, double const *, double *, double *, int, int>
{
public:
    int operator()(int, int, double const * x, double * f, double * j, int stride, int iflag) const override
    {
        if (code > 1)
            throw std::runtime_error("stop");
        double const values[] = {10 * (x[1] - x[0] * x[0]), 1 - x[0]};
        if (iflag == 1)
            std::copy_n(values, 2, f);
        double const slopes[] = {-20 * x[0], -1, 10, 0};
        for (int i = 0; i < 4 && iflag != 1; ++i)
            j[i / 2 * stride + i % 2] = slopes[i];
        return code;
    }
    int code = 0;
};

TEST(LevenbergMarquardt, FindsTheMinimumAndPassesFailuresOn)
{
    Valley valley;
    double x[2] = {-1.2, 1}, f[2];
    auto const solve = [&](int m, int n, double tol) {
        return REmath::lmder1_adapter(valley, m, n, x, f, tol);
    };
    int const info = solve(2, 2, 1e-12);
    EXPECT_TRUE(info >= 1 && info <= 4) << info;
    EXPECT_LT(std::hypot(x[0] - 1, x[1] - 1) + std::hypot(f[0], f[1]), 1e-9);
    EXPECT_EQ(solve(1, 2, 1e-12) + solve(2, 0, 1e-12) + solve(2, 2, -1), 0);
    x[0] = notANumber;
    EXPECT_EQ(solve(2, 2, 1e-12), 5);
    valley.code = -3;
    EXPECT_EQ(solve(2, 2, 1e-12), -3);
    valley.code = 2;
    EXPECT_THROW(solve(2, 2, 1e-12), std::runtime_error);
}

} // namespace

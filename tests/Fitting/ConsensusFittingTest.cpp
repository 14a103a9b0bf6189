// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/ConsensusFitting.h>
#include <QZmath/Fitting/LineFitting.h>
#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <thread>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::dot;
using namespace REmath;
using Points = std::vector<Point3D_d>;
using PlanarPoints = std::vector<std::array<double, 2>>;

namespace
{

#ifdef QZ_SLOW_TESTS
constexpr int seedCount = 1000;
#else
constexpr int seedCount = 40;
#endif
constexpr double pi = 3.14159265358979323846;
constexpr double allowedAngle = 0.1 * pi / 180;
constexpr double noise = 0.02;
constexpr double circleRadius = 6;

enum Kind
{
    kindLine,
    kindPlane,
    kindCircle
};

// A cube of half side 10 filled with outliers, and in it, mixed with them, the object: the x axis of a frame,
// its plane of x and y, or a circle in that plane.
struct Scene
{
    Scene(Kind objectKind, std::uint64_t seed, int count, double outlierShare, bool isPlanar = false)
        : kind(objectKind), random(seed * 7919 + 1), frame(qz_test::randomFrame(random, 2))
    {
        if (isPlanar) {
            double const angle = random.uniform(0, 2 * pi), c = std::cos(angle), s = std::sin(angle);
            frame.axes = {Point3D_d(c, s, 0), {-s, c, 0}, {0, 0, 1}};
            frame.origin.z() = 0;
        }
        for (int i = 0; i < count; ++i) {
            bool const isOutlier = random.uniform() < outlierShare;
            Point3D_d const place = qz_test::randomPoint(random, 10);
            points.push_back(isOutlier ? place : onObject(place));
            planar.push_back({points.back().x(), points.back().y()});
            single.emplace_back(points.back().asArray());
        }
    }

    Point3D_d onObject(Point3D_d const & place)
    {
        Point3D_d const error(noise * random.normal(), noise * random.normal(), noise * random.normal());
        if (kind == kindLine)
            return frame.toWorld(Point3D_d(place.x(), 0, 0) + error);
        if (kind == kindPlane)
            return frame.toWorld(Point3D_d(place.x(), place.y(), 0) + error);
        double const angle = place.x() * pi / 10;
        return frame.toWorld(Point3D_d(std::cos(angle), std::sin(angle), 0) * circleRadius + error);
    }

    Kind kind;
    Random random;
    qz_test::Frame frame;
    Points points;
    PlanarPoints planar;
    std::vector<Point3D> single;
};

double angleBetween(Point3D_d const & p, Point3D_d const & q)
{
    return std::asin(std::min(1.0, REmath::Detail::cross(p, q).length()));
}

double circleError(Point3D_d const & center, Point3D_d const & wanted, double radius)
{
    return std::max((center - wanted).length(), std::abs(radius - circleRadius)) / circleRadius;
}

// Error as an angle; far too large when nothing was found.
template <class Found>
double errorUnlessLost(Found const & found, double error)
{
    return found.found ? error : 10;
}

double sceneError(Scene const & scene, ConsensusOptions const & options, bool isSingle)
{
    qz_test::Frame const & frame = scene.frame;
    if (scene.kind == kindLine) {
        LineConsensus const line =
            isSingle ? findLine(scene.single, options) : findLine(scene.points, options);
        return errorUnlessLost(line, angleBetween(line.direction, frame.axes[0]));
    }
    if (scene.kind == kindPlane) {
        PlaneConsensus const plane =
            isSingle ? findPlane(scene.single, options) : findPlane(scene.points, options);
        return errorUnlessLost(plane, angleBetween(plane.normal, frame.axes[2]));
    }
    CircleConsensus const circle =
        isSingle ? findCircle(scene.single, options) : findCircle(scene.points, options);
    return errorUnlessLost(circle, std::max(angleBetween(circle.normal, frame.axes[2]),
                                            circleError(circle.center, frame.origin, circle.radius)));
}

double planarError(Scene const & scene, ConsensusOptions const & options)
{
    if (scene.kind == kindLine) {
        PlanarLineConsensus const line = findLine(scene.planar, options);
        return errorUnlessLost(line,
                               angleBetween({line.direction[0], line.direction[1], 0}, scene.frame.axes[0]));
    }
    PlanarCircleConsensus const circle = findCircle(scene.planar, options);
    return errorUnlessLost(
        circle, circleError({circle.center[0], circle.center[1], 0}, scene.frame.origin, circle.radius));
}

template <class Test>
void forEachScene(Test test)
{
    for (Kind const kind : {kindLine, kindPlane, kindCircle}) {
        for (double const distance : {0.0, 2.5 * noise}) {
            ConsensusOptions options;
            options.inlierDistance = distance;
            test(kind, options);
        }
    }
}

TEST(ConsensusFitting, IsRightAmongManyOutliers)
{
    forEachScene([](Kind kind, ConsensusOptions options) {
        for (double const outliers : {0.0, 0.3, 0.45, 0.6}) {
            int wrong = 0, wrongInPlane = 0;
            for (int seed = 0; seed < seedCount; ++seed) {
                auto const number = static_cast<std::uint64_t>(seed);
                options.seed = number;
                wrong += sceneError({kind, number, 1000, outliers}, options, seed % 2 == 1) > allowedAngle;
                if (kind != kindPlane)
                    wrongInPlane += planarError({kind, number, 1000, outliers, true}, options) > allowedAngle;
            }
            EXPECT_LE(wrong, seedCount / 1000) << kind << ", outliers " << outliers;
            EXPECT_LE(wrongInPlane, seedCount / 1000) << kind << ", outliers " << outliers;
        }
    });
}

TEST(ConsensusFitting, FindsNothingInPointsAtRandom)
{
    forEachScene([](Kind kind, ConsensusOptions options) {
        int found = 0;
        for (int seed = 0; seed < seedCount; ++seed) {
            Scene const scene(kind, static_cast<std::uint64_t>(seed), seed % 3 == 0 ? 50 : 1000, 1);
            found += sceneError(scene, options, false) < 10;
            found += kind != kindPlane && planarError(scene, options) < 10;
        }
        EXPECT_LE(found, seedCount / 100) << kind;
    });
}

double distanceFrom(CircleConsensus const & circle, Point3D_d const & point)
{
    Point3D_d const offset = point - circle.center;
    double const height = dot(offset, circle.normal);
    return std::hypot(height, (offset - circle.normal * height).length() - circle.radius);
}

double distanceFrom(LineConsensus const & line, Point3D_d const & point)
{
    return REmath::Detail::cross(point - line.origin, line.direction).length();
}

double distanceFrom(PlaneConsensus const & plane, Point3D_d const & point)
{
    return std::abs(dot(point - plane.origin, plane.normal));
}

// Compares the report with the distances of all points, and hands out the inliers.
template <class Found>
Points checkedInliers(Found const & found, Points const & points)
{
    EXPECT_TRUE(found.found);
    Points inliers;
    double sum = 0;
    auto next = found.inliers.begin();
    for (std::size_t i = 0; i < points.size(); ++i) {
        double const distance = distanceFrom(found, points[i]);
        bool const isListed = next != found.inliers.end() && *next == i;
        EXPECT_TRUE(isListed ? distance <= found.inlierDistance * (1 + 1e-9)
                             : distance >= found.inlierDistance * (1 - 1e-9));
        if (!isListed)
            continue;
        ++next;
        sum += distance * distance;
        inliers.push_back(points[i]);
    }
    EXPECT_EQ(next, found.inliers.end()) << "ascending numbers of points";
    double const count = static_cast<double>(inliers.size());
    EXPECT_NEAR(found.rms, std::sqrt(sum / count), 1e-9 * found.inlierDistance);
    EXPECT_EQ(found.support, count / static_cast<double>(points.size()));
    EXPECT_GT(found.trials, 0);
    return inliers;
}

TEST(ConsensusFitting, InliersAreThePointsNearbyAndTheObjectFitsThemBest)
{
    for (double const distance : {0.0, 0.05}) {
        ConsensusOptions options;
        options.inlierDistance = distance;
        for (int count : {300, 5000}) {
            Points const onLine = Scene(kindLine, 3, count, 0.5).points;
            LineConsensus const line = findLine(onLine, options);
            Point3D_d origin, direction;
            ASSERT_TRUE(FitLineToPointSet(checkedInliers(line, onLine), origin, direction));
            EXPECT_LT(angleBetween(direction, line.direction) + distanceFrom(line, origin), 1e-4);

            Points const onPlane = Scene(kindPlane, 3, count, 0.5).points;
            PlaneConsensus const plane = findPlane(onPlane, options);
            double coefficients[4], centroid[3];
            ASSERT_TRUE(FitPlaneToPointSet(checkedInliers(plane, onPlane), coefficients, centroid));
            EXPECT_LT(angleBetween(coefficients, plane.normal) + distanceFrom(plane, centroid), 1e-4);

            Points const onCircle = Scene(kindCircle, 3, count, 0.5).points;
            CircleConsensus const circle = findCircle(onCircle, options);
            Points const inliers = checkedInliers(circle, onCircle);
            auto const cost = [&inliers](CircleConsensus const & other) {
                return std::accumulate(inliers.begin(), inliers.end(), 0.0,
                                       [&other](double sum, Point3D_d const & point) {
                                           return sum + std::pow(distanceFrom(other, point), 2);
                                       });
            };
            for (int side = 0; side < 8; ++side) {
                CircleConsensus other = circle;
                double const step = side % 2 == 0 ? 2e-3 : -2e-3;
                if (side < 6)
                    other.center += Point3D_d(side / 2 == 0, side / 2 == 1, side / 2 == 2) * step;
                else
                    other.radius += step;
                EXPECT_GT(cost(other), cost(circle)) << side;
            }
        }
    }
}

template <class Found>
bool haveSameBits(Found const & a, Found const & b)
{
    return a.inliers == b.inliers && a.rms == b.rms && a.trials == b.trials &&
           a.inlierDistance == b.inlierDistance;
}

TEST(ConsensusFitting, SameInputGivesTheSameBitsAtAnyScaleAndOnAnyThread)
{
    Scene const scene(kindCircle, 5, 2000, 0.6);
    CircleConsensus const circle = findCircle(scene.points);
    ASSERT_TRUE(circle.found);
    CircleConsensus again[3];
    std::vector<std::thread> threads;
    for (CircleConsensus & other : again)
        threads.emplace_back([&scene, &other] { other = findCircle(scene.points); });
    for (std::thread & thread : threads)
        thread.join();
    for (CircleConsensus const & other : again)
        EXPECT_TRUE(haveSameBits(circle, other));

    for (int const exponent : {-900, -3, 10, 900}) {
        Points scaled = scene.points;
        for (Point3D_d & point : scaled)
            point *= std::ldexp(1.0, exponent);
        CircleConsensus const other = findCircle(scaled);
        ASSERT_TRUE(other.found);
        EXPECT_EQ(other.inliers, circle.inliers);
        EXPECT_EQ(other.radius, std::ldexp(circle.radius, exponent));
    }
}

// Scans come in order, with far outliers, far from the origin, and with more than one object.
TEST(ConsensusFitting, OrderFarOutliersAndOtherObjectsDoNotMatter)
{
    Random random(9);
    qz_test::Frame const frame = qz_test::randomFrame(random, 1e5);
    Points points;
    for (int i = 0; i < 20000; ++i) {
        double const x = random.uniform(-10, 10), error = noise * random.normal();
        if (i < 8000)
            points.push_back(frame.toWorld({x, error, noise * random.normal()}));
        else if (i < 13000)
            points.push_back(frame.toWorld({3 + noise * random.normal(), x, error}));
        else if (i < 18000)
            points.push_back(frame.toWorld(qz_test::randomPoint(random, 10)));
        else
            points.push_back(qz_test::randomPoint(random, 1e12));
    }
    for (std::size_t const axis : {0u, 1u}) {
        LineConsensus const line = findLine(points);
        ASSERT_TRUE(line.found);
        EXPECT_LT(angleBetween(line.direction, frame.axes[axis]), allowedAngle);
        EXPECT_NEAR(line.inlierDistance, 2.5 * noise, noise);
        for (auto number = line.inliers.rbegin(); number != line.inliers.rend(); ++number)
            points.erase(points.begin() + static_cast<std::ptrdiff_t>(*number));
    }
}

TEST(ConsensusFitting, ExactPointsAreFoundExactly)
{
    Points points;
    for (int i = 0; i < 40; ++i)
        points.emplace_back(3 + std::cos(0.3 * i), 4 + std::sin(0.3 * i), 5);
    CircleConsensus const circle = findCircle(points);
    ASSERT_TRUE(circle.found);
    EXPECT_EQ(circle.inliers.size(), points.size());
    EXPECT_NEAR(circle.radius, 1, 1e-13);
    EXPECT_LT((circle.center - Point3D_d(3, 4, 5)).length(), 1e-13);
    PlaneConsensus const plane = findPlane(points);
    ASSERT_TRUE(plane.found);
    EXPECT_LT(angleBetween(plane.normal, {0, 0, 1}), 1e-13);
    EXPECT_FALSE(findLine(points).found);
}

void expectNothing(Points const & points, ConsensusOptions const & options = {})
{
    EXPECT_FALSE(findLine(points, options).found);
    EXPECT_FALSE(findPlane(points, options).found);
    EXPECT_FALSE(findCircle(points, options).found);
    PlanarPoints planar;
    for (Point3D_d const & point : points)
        planar.push_back({point.x(), point.y()});
    EXPECT_FALSE(findLine(planar, options).found);
    EXPECT_FALSE(findCircle(planar, options).found);
}

TEST(ConsensusFitting, HostilePointsAndOptionsFindNothing)
{
    double const greatest = std::numeric_limits<double>::max(),
                 least = std::numeric_limits<double>::denorm_min();
    expectNothing({});
    expectNothing({{1, 2, 3}});
    expectNothing({{1, 2, 3}, {4, 5, 6}});
    expectNothing(Points(1000, {7, 8, 9}));
    expectNothing(Points(1000, {greatest, -greatest, greatest}));
    for (double const bad : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        Points points = Scene(kindLine, 1, 1000, 0).points;
        points[999].y() = bad;
        expectNothing(points);
        ConsensusOptions options;
        options.inlierDistance = bad;
        expectNothing(Scene(kindLine, 1, 100, 0).points, options);
        options = {};
        options.confidence = bad;
        expectNothing(Scene(kindLine, 1, 100, 0).points, options);
    }
    for (double const step : {greatest / 4, least}) {
        Points points;
        for (int i = -2; i <= 2; ++i)
            points.emplace_back(step * i, 0, 0);
        expectNothing(points);
    }
    for (int const trials : {0, -1}) {
        ConsensusOptions options;
        options.mostTrials = trials;
        expectNothing(Scene(kindLine, 1, 100, 0).points, options);
    }
}

// Many points in one spot or on one line support any object through them; the few others decide by chance.
TEST(ConsensusFitting, UndeterminedObjectsAreNotFound)
{
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        Scene spot(kindLine, seed, 500, 1), line(kindLine, seed, 500, 0);
        for (int i = 0; i < 300; ++i) {
            Point3D_d const error(spot.random.normal(), spot.random.normal(), spot.random.normal());
            spot.points.push_back(Point3D_d(1, 2, 3) + error * noise);
            spot.planar.push_back({spot.points.back().x(), spot.points.back().y()});
        }
        Points repeated(300, {1, 2, 3});
        repeated.insert(repeated.end(), spot.points.begin(), spot.points.begin() + 300);
        for (double const distance : {0.0, 3 * noise}) {
            ConsensusOptions options;
            options.inlierDistance = distance;
            EXPECT_FALSE(findLine(repeated, options).found) << seed;
            EXPECT_FALSE(findPlane(repeated, options).found) << seed;
            EXPECT_FALSE(findLine(spot.points, options).found) << seed;
            EXPECT_FALSE(findLine(spot.planar, options).found) << seed;
            EXPECT_FALSE(findPlane(spot.points, options).found) << seed;
        }
        ConsensusOptions options;
        options.inlierDistance = 3 * noise;
        EXPECT_FALSE(findPlane(line.points, options).found) << seed;
        EXPECT_FALSE(findCircle(line.points, options).found) << seed;
        line.points.insert(line.points.end(), spot.points.begin(), spot.points.begin() + 20);
        EXPECT_FALSE(findPlane(line.points, options).found) << seed;
    }
}

} // namespace

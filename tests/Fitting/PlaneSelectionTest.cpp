// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneApproximator.h>
#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/PlaneLimits.h>
#include <QZmath/Fitting/PlaneSelection.h>
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <QZsys/Exceptions.h>

#include <apps/sampling/Random.h>
#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;
using REmath::Detail::widen;

namespace
{

using Points = std::vector<Point3D>;
using Refs = REmath::CPtVecAdapder<Points>;

double const pi = std::acos(-1.0);

Point3D_d randomDirection(qz_sampling::Random & random) { return qz_test::randomFrame(random, 1).axes[0]; }

// Noisy patch of a plane, the thickness up to its size.
Points randomPatch(qz_sampling::Random & random, qz_test::Frame const & frame, int count)
{
    double const sizes[3] = {random.uniform(1, 5), random.uniform(1, 5), std::pow(10, random.uniform(-3, 0))};
    Points points;
    for (int i = 0; i < count; ++i) {
        Point3D_d const local(random.uniform(-1, 1) * sizes[0], random.uniform(-1, 1) * sizes[1],
                              random.normal() * sizes[2]);
        points.emplace_back(frame.toWorld(local).asArray());
    }
    return points;
}

// Sum of the squared distances from a plane.
double energy(Points const & points, Point3D_d const & center, Point3D_d const & normal)
{
    double sum = 0;
    for (Point3D const & point : points)
        sum += std::pow(dot(widen(point) - center, normal), 2);
    return sum;
}

struct Recognition
{
    int constraint = PlaneFitFree;
    double angle = 0;
    bool useDistance = false;
    double distance = 0;
    Point3D viewDir{0, 0, 1};
    Point3D_d fixedPoint, fixedDir{0, 0, 1};

    Point3D_d center{7}, normal{7}, basisU{7}, basisV{7};
    double maxError = 7, meanError = 7, limitsU[2] = {7, 7}, limitsV[2] = {7, 7};

    bool run(Points const & points)
    {
        return RecognizePlaneSelectionConstrained(points, viewDir, constraint, angle, useDistance, distance,
                                                  fixedPoint, fixedDir, center, normal, maxError, meanError,
                                                  basisU, basisV, limitsU, limitsV);
    }
    bool isUntouched() const
    {
        return center == Point3D_d(7) && normal == center && basisU == center && basisV == center &&
               maxError == 7 && meanError == 7 && limitsU[0] == 7 && limitsV[1] == 7;
    }
    // 0 when the plane contains the point.
    double heightOf(Point3D_d const & point) const { return dot(point - center, normal); }
};

// The least and the greatest coordinate along a direction.
std::vector<double> extent(Points const & points, Point3D_d const & direction)
{
    std::vector<double> limits = {1e300, -1e300};
    for (Point3D const & point : points) {
        limits[0] = std::min(limits[0], dot(widen(point), direction));
        limits[1] = std::max(limits[1], dot(widen(point), direction));
    }
    return limits;
}

// The first direction of the smallest rectangle, with every point looked at in every step.
Point3D_d smallestRectangle(Points const & points, Point3D_d const & normal, int steps)
{
    double e1[3], e2[3];
    BuildUCSbyVector(normal.asArray(), e1, e2);
    double least = 1e30;
    Point3D_d best = e1;
    for (int i = 0; i < steps; ++i) {
        double const angle = i * pi / steps;
        Point3D_d const a = Point3D_d(e1) * std::cos(angle) + Point3D_d(e2) * std::sin(angle);
        auto const u = extent(points, a), v = extent(points, cross(normal, a));
        if ((u[1] - u[0]) * (v[1] - v[0]) < least) {
            least = (u[1] - u[0]) * (v[1] - v[0]);
            best = a;
        }
    }
    return best;
}

// What holds for every recognised plane: errors, frame, limits, side.
void expectReport(Recognition const & found, Points const & points)
{
    double greatest = 0, mean = 0;
    for (Point3D const & point : points) {
        greatest = std::max(greatest, std::abs(found.heightOf(widen(point))));
        mean += std::abs(found.heightOf(widen(point))) / static_cast<double>(points.size());
    }
    EXPECT_LT(std::hypot(found.maxError - greatest, found.meanError - mean), 1e-12);
    EXPECT_NEAR(found.normal.length(), 1, 1e-12);
    EXPECT_NEAR((cross(found.normal, found.basisU) - found.basisV).length(), 0, 1e-12);
    EXPECT_NEAR((cross(found.basisV, found.normal) - found.basisU).length(), 0, 1e-12);
    EXPECT_EQ(std::vector<double>(found.limitsU, found.limitsU + 2), extent(points, found.basisU));
    EXPECT_EQ(std::vector<double>(found.limitsV, found.limitsV + 2), extent(points, found.basisV));
    EXPECT_GE(dot(found.normal, widen(found.viewDir)), -1e-6);
    EXPECT_TRUE(found.constraint == PlaneFitAngleToAxis ||
                found.basisU == smallestRectangle(points, found.normal, 120));
}

class PlaneSelection : public testing::TestWithParam<int>
{};

} // namespace

TEST_P(PlaneSelection, SatisfiesItsConstraintAndNoOtherPlaneDoesBetter)
{
    qz_sampling::Random random(100 + static_cast<unsigned>(GetParam()));
    for (int trial = 0; trial < 40; ++trial) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 10);
        Points const points = randomPatch(random, frame, trial < 5 ? 3 : 60);
        Recognition found;
        found.constraint = GetParam();
        found.angle = random.uniform(-10, 190);
        found.useDistance = trial % 3 != 0;
        found.distance = random.uniform(-3, 3);
        found.viewDir = Point3D(randomDirection(random).asArray());
        found.fixedPoint =
            frame.toWorld({random.uniform(-3, 3), random.uniform(-3, 3), random.uniform(-3, 3)});
        found.fixedDir = randomDirection(random);
        ASSERT_TRUE(found.run(points));
        expectReport(found, points);

        Point3D_d centroid;
        for (Point3D const & point : points)
            centroid += widen(point) / static_cast<double>(points.size());
        double const least = energy(points, found.center, found.normal) - 1e-9;
        bool const isFixedNormal = GetParam() == PlaneFitNormal || GetParam() == PlaneFitNormalAndDist;
        EXPECT_TRUE(!isFixedNormal || ((found.normal == found.fixedDir || found.normal == -found.fixedDir) &&
                                       cross(found.center - centroid, found.normal).length() < 1e-12));
        if (GetParam() == PlaneFitThroughPoint || GetParam() == PlaneFitThroughLine) {
            EXPECT_EQ(found.center, found.fixedPoint);
        } else if (GetParam() == PlaneFitNormalAndDist && found.useDistance) {
            double const side = dot(centroid - found.fixedPoint, found.normal) > 0 ? 1 : -1;
            EXPECT_NEAR(-found.heightOf(found.fixedPoint), side * found.distance, 1e-12);
        } else {
            EXPECT_NEAR(found.heightOf(centroid), 0, 1e-12);
        }
        double u[3], v[3];
        BuildUCSbyVector(found.fixedDir.asArray(), u, v);
        double const slope = found.angle * pi / 180;
        double const cosine = GetParam() == PlaneFitThroughLine ? 0 : std::abs(std::cos(slope));
        if (GetParam() == PlaneFitThroughLine || GetParam() == PlaneFitAngleToAxis) {
            EXPECT_NEAR(std::abs(dot(found.normal, found.fixedDir)), cosine, 1e-12);
        }
        EXPECT_TRUE(GetParam() != PlaneFitAngleToAxis || std::abs(dot(found.basisU, found.fixedDir)) < 1e-9);
        // The freedom that remains.
        for (int i = 0; i < 720 && !isFixedNormal; ++i) {
            double const psi = i * pi / 360;
            Point3D_d const around = Point3D_d(u) * std::cos(psi) + Point3D_d(v) * std::sin(psi);
            Point3D_d const normal =
                GetParam() == PlaneFitThroughLine ? around
                : GetParam() == PlaneFitAngleToAxis
                    ? around * std::sin(slope) + found.fixedDir * std::cos(slope)
                    : (found.normal + randomDirection(random) * std::pow(10, -i / 180.)).unitLength();
            EXPECT_LE(least, energy(points, found.center, normal));
        }
    }
}

TEST_P(PlaneSelection, RefusesWhatGivesNoPlane)
{
    Points const good = {{0, 0, 0}, {1, 0, 0.1}, {0, 1, 0}, {1, 1, -0.1}};
    for (bool useDistance : {false, true}) {
        Recognition found;
        found.constraint = GetParam();
        found.useDistance = useDistance;
        found.angle = 30;
        EXPECT_FALSE(found.run({}));
        for (float bad : {NAN, INFINITY, -INFINITY}) {
            Points points = good;
            points.emplace_back(1, bad, 1);
            EXPECT_FALSE(found.run(points)) << bad;
        }
        if (GetParam() == PlaneFitFree || GetParam() == PlaneFitThroughPoint)
            continue;
        for (Point3D_d const & direction :
             {Point3D_d(NAN, 0, 0), Point3D_d(0, INFINITY, 0), Point3D_d(), Point3D_d(0.1, 0, 0)}) {
            found.fixedDir = direction;
            EXPECT_FALSE(found.run(good));
        }
        EXPECT_TRUE(found.isUntouched());
    }
    Recognition found;
    found.constraint = GetParam() == 0 ? -1 : 5 + GetParam();
    EXPECT_FALSE(found.run(good));
    found.constraint = GetParam();
    found.angle = 30;
    // One point is enough where the rest is given, and coincident points are no worse.
    EXPECT_EQ(found.run(Points(1, {1, 2, 3})), GetParam() != PlaneFitFree);
    EXPECT_EQ(found.isUntouched(), GetParam() == PlaneFitFree);
    EXPECT_TRUE(found.run(Points(5, {1, 2, 3})));
}

INSTANTIATE_TEST_SUITE_P(Constraints, PlaneSelection, testing::Range(0, 6));

// Points deep inside are left out of the search; that must not change a bit of the result.
TEST(PlaneSelectionLimits, SmallestRectangleIsThatOfAllPoints)
{
    qz_sampling::Random random(8);
    for (int trial = 0; trial < 60; ++trial) {
        Point3D_d const normal = randomDirection(random), along = cross(normal, randomDirection(random));
        Points points;
        for (int i = 0; i < 300; ++i) {
            double const a = random.uniform(-1, 1), b = random.uniform(-1, 1);
            Point3D_d const inPlane = along * std::round(4 * a) + cross(normal, along) * std::round(9 * b);
            Point3D_d const kinds[] = {inPlane, normal * (1e5 * a) + inPlane * b, along * a,
                                       Point3D_d(1, 2, 3),
                                       (along * a + cross(normal, along) * std::sqrt(1 - a * a)) * 1e-3};
            points.emplace_back(kinds[trial % 5].asArray());
        }
        int const steps = trial % 4 == 0 ? 7 : 120;
        double e1[3], e2[3], defaultE1[3], defaultE2[3];
        REmath::DefinePointsLimitsBasis(Refs(points), normal.asArray(), e1, e2, steps);
        BuildUCSbyVector(normal.asArray(), defaultE1, defaultE2);
        EXPECT_EQ(Point3D_d(e1), smallestRectangle(points, normal, steps)) << trial;
        points.emplace_back(NAN);
        REmath::DefinePointsLimitsBasis(Refs(points), normal.asArray(), e1, e2, steps);
        EXPECT_EQ(Point3D_d(e2), Point3D_d(defaultE2));
        REmath::DefinePointsLimitsBasis(Refs({}), normal.asArray(), e1, e2, steps);
        EXPECT_EQ(Point3D_d(e1), Point3D_d(defaultE1));
    }

    Points const points = {{1, 1, 5}, {4, 1, 5}, {1, 3, 5}};
    REmath::CPlaneEquation plane;
    plane.SetNormalDir(Point3D_d(0, 0, 1).asArray());
    REmath::CPlaneLimits limits;
    limits.DefineAuto(Refs(points), plane);
    for (int i : {0, 1})
        EXPECT_EQ(std::vector<double>(limits.GetLimitsInDir(i), limits.GetLimitsInDir(i) + 2),
                  extent(points, limits.GetBasisVector(i)));
    limits.DefineAuto(Refs({}), plane);
    EXPECT_TRUE(limits.GetLimitsInDir(1)[0] == -1 && limits.GetLimitsInDir(1)[1] == 1);
}

// When everything is gone, a tiny patch must not feel what was there before.
TEST(PlaneApproximator, AgreesWithTheBatchAfterAnyAddsAndRemoves)
{
    qz_sampling::Random random(21);
    for (int trial = 0; trial < 30; ++trial) {
        std::unique_ptr<REmath::IPlaneAppoximator> const approximator(
            REmath::IPlaneAppoximator::CreateByConstraint(PlaneFitFree));
        qz_test::Frame const frame = qz_test::randomFrame(random, 20);
        Point3D const outwards((frame.axes[2] * (trial % 2 == 0 ? 1 : -1)).asArray());
        std::vector<Points> inside;
        REmath::CPlaneEquation plane;
        auto const change = [&](Points const & points, bool isAdding) {
            Points const normals(points.size(), outwards);
            Refs const pointRefs(points), normalRefs(normals);
            isAdding ? approximator->addPoints(&pointRefs, &normalRefs)
                     : approximator->removePoints(&pointRefs, &normalRefs);
            Points all;
            for (Points const & portion : inside)
                all.insert(all.end(), portion.begin(), portion.end());
            approximator->getPlane(plane);
            double batch[4], centroid[3];
            bool const isPlane = FitPlaneToPointSet(all, batch, centroid);
            ASSERT_EQ(plane.IsValid(), isPlane);
            Point3D_d const normal = plane.NormalDir();
            double const best = isPlane ? energy(all, centroid, batch) : 0;
            EXPECT_NEAR(isPlane ? energy(all, centroid, normal) : 0, best, 1e-9 * (1 + best));
            EXPECT_NEAR(plane.FreeTerm(), isPlane ? -dot(normal, centroid) : 0, 1e-7);
            EXPECT_GE(dot(normal, widen(outwards)), 0);
        };
        auto const removeAny = [&] {
            auto const portion = inside.begin() + static_cast<std::ptrdiff_t>(random.next() % inside.size());
            Points const points = *portion;
            inside.erase(portion);
            change(points, false);
        };
        for (int step = 0; step < 40; ++step) {
            // Portions lie apart from each other, and some are single points or none.
            qz_test::Frame const apart = {frame.toWorld({random.uniform(-20, 20), 0, 0}), frame.axes};
            if (inside.empty() || random.uniform() < 0.55) {
                inside.push_back(randomPatch(random, apart, step % 3 == 0 ? step % 2 : 1 + step));
                change(inside.back(), true);
            } else {
                removeAny();
            }
        }
        while (!inside.empty())
            removeAny();
        for (Points const & points : {Points{{1e7, 2e7, 3e6}, {-4e6, 1e6, 7e7}, {1, 2, 3}},
                                      Points{{0, 0, 1e-4}, {1e-4, 0, 1e-4}, {0, 1e-4, 1e-4}}}) {
            inside.push_back(points);
            change(points, true);
            EXPECT_NEAR(energy(points, points[0].asArray(), plane.NormalDir()), 0,
                        points[0].x() > 0 ? 1e-4 : 1e-24);
            removeAny();
        }
        inside.push_back(Points(3, NAN));
        change(inside.back(), true);
    }
    EXPECT_THROW(delete REmath::IPlaneAppoximator::CreateByConstraint(PlaneFitAngleToAxis),
                 CVescaTextException);
}

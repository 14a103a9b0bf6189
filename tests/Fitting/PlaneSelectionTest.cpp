// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneApproximator.h>
#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/PlaneLimits.h>
#include <QZmath/Fitting/PlaneSelection.h>
#include <QZmath/Foundation/VectorGeometry.h>

#include <apps/sampling/Random.h>
#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

using Points = std::vector<Point3D>;
using Refs = REmath::CPtVecAdapder<Points>;

double const pi = std::acos(-1.0);

double dot(Point3D_d const & a, Point3D_d const & b) { return a.x() * b.x() + a.y() * b.y() + a.z() * b.z(); }
Point3D_d cross(Point3D_d const & a, Point3D_d const & b)
{
    return {a.y() * b.z() - a.z() * b.y(), a.z() * b.x() - a.x() * b.z(), a.x() * b.y() - a.y() * b.x()};
}
Point3D_d wide(Point3D const & point) { return point.asArray(); }
Point3D_d randomDirection(qz_sampling::Random & random) { return qz_test::randomFrame(random, 1).axes[0]; }

/// Noisy patch of a plane, the thickness up to its size.
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

double energy(Points const & points, Point3D_d const & center, Point3D_d const & normal)
{
    double sum = 0;
    for (Point3D const & point : points)
        sum += std::pow(dot(wide(point) - center, normal), 2);
    return sum;
}

Point3D_d centroidOf(Points const & points)
{
    Point3D_d sum;
    for (Point3D const & point : points)
        sum += wide(point);
    return sum / static_cast<double>(points.size());
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
        Point3D_d const mark(7);
        return center == mark && normal == mark && basisU == mark && basisV == mark && maxError == 7 &&
               meanError == 7 && limitsU[0] == 7 && limitsU[1] == 7 && limitsV[0] == 7 && limitsV[1] == 7;
    }
    /// 0 when the plane contains the point.
    double heightOf(Point3D_d const & point) const { return dot(point - center, normal); }
};

struct Extent
{
    double least = 1e300, greatest = -1e300;

    Extent(Points const & points, Point3D_d const & direction)
    {
        for (Point3D const & point : points) {
            least = std::min(least, dot(wide(point), direction));
            greatest = std::max(greatest, dot(wide(point), direction));
        }
    }
    double length() const { return greatest - least; }
};

/// The first direction of the smallest rectangle, with every point looked at in every step.
Point3D_d smallestRectangle(Points const & points, Point3D_d const & normal, int steps)
{
    double e1[3], e2[3];
    BuildUCSbyVector(normal.asArray(), e1, e2);
    double least = 1e30;
    Point3D_d best = e1;
    for (int i = 0; i < steps; ++i) {
        double const angle = i * pi / steps;
        Point3D_d const a = Point3D_d(e1) * std::cos(angle) + Point3D_d(e2) * std::sin(angle);
        double const area = Extent(points, a).length() * Extent(points, cross(normal, a)).length();
        if (area < least) {
            least = area;
            best = a;
        }
    }
    return best;
}

/// What holds for every recognised plane: errors, frame, limits, side.
void expectReport(Recognition const & found, Points const & points)
{
    double greatest = 0, sum = 0;
    for (Point3D const & point : points) {
        greatest = std::max(greatest, std::abs(found.heightOf(wide(point))));
        sum += std::abs(found.heightOf(wide(point)));
    }
    EXPECT_NEAR(found.maxError, greatest, 1e-12);
    EXPECT_NEAR(found.meanError, sum / static_cast<double>(points.size()), 1e-12);
    EXPECT_NEAR(found.normal.length(), 1, 1e-12);
    EXPECT_NEAR(found.basisU.length(), 1, 1e-12);
    EXPECT_NEAR(dot(found.basisU, found.normal), 0, 1e-12);
    EXPECT_NEAR((cross(found.normal, found.basisU) - found.basisV).length(), 0, 1e-12);
    Extent const alongU(points, found.basisU), alongV(points, found.basisV);
    EXPECT_EQ(found.limitsU[0], alongU.least);
    EXPECT_EQ(found.limitsU[1], alongU.greatest);
    EXPECT_EQ(found.limitsV[0], alongV.least);
    EXPECT_EQ(found.limitsV[1], alongV.greatest);
    EXPECT_GE(dot(found.normal, wide(found.viewDir)), -1e-6);
    if (found.constraint != PlaneFitAngleToAxis) {
        EXPECT_EQ(found.basisU, smallestRectangle(points, found.normal, 120));
    }
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

        Point3D_d const centroid = centroidOf(points);
        double const least = energy(points, found.center, found.normal) - 1e-9;
        bool const isFixedNormal = GetParam() == PlaneFitNormal || GetParam() == PlaneFitNormalAndDist;
        if (isFixedNormal) {
            EXPECT_TRUE(found.normal == found.fixedDir || found.normal == -found.fixedDir);
            EXPECT_NEAR(cross(found.center - centroid, found.normal).length(), 0, 1e-12);
        }
        if (GetParam() == PlaneFitNormalAndDist && found.useDistance) {
            double const height = dot(found.center - found.fixedPoint, found.normal);
            double const side = dot(centroid - found.fixedPoint, found.normal) > 0 ? 1 : -1;
            EXPECT_NEAR(height, side * found.distance, 1e-12);
        } else if (GetParam() == PlaneFitThroughPoint || GetParam() == PlaneFitThroughLine) {
            EXPECT_EQ(found.center, found.fixedPoint);
        } else {
            EXPECT_NEAR(found.heightOf(centroid), 0, 1e-12);
        }
        double u[3], v[3];
        BuildUCSbyVector(found.fixedDir.asArray(), u, v);
        double const slope = found.angle * pi / 180;
        if (GetParam() == PlaneFitThroughLine) {
            EXPECT_NEAR(dot(found.normal, found.fixedDir), 0, 1e-12);
        }
        if (GetParam() == PlaneFitAngleToAxis) {
            EXPECT_NEAR(std::abs(dot(found.normal, found.fixedDir)), std::abs(std::cos(slope)), 1e-12);
            EXPECT_NEAR(dot(found.basisU, found.fixedDir), 0, 1e-9);
        }
        // The freedom that remains.
        for (int i = 0; i < 720 && !isFixedNormal; ++i) {
            double const psi = i * pi / 360;
            Point3D_d const around = Point3D_d(u) * std::cos(psi) + Point3D_d(v) * std::sin(psi);
            Point3D_d normal = randomDirection(random);
            if (GetParam() == PlaneFitThroughLine)
                normal = around;
            if (GetParam() == PlaneFitAngleToAxis)
                normal = around * std::sin(slope) + found.fixedDir * std::cos(slope);
            EXPECT_LE(least, energy(points, found.center, normal));
        }
    }
}

TEST_P(PlaneSelection, RefusesWhatGivesNoPlane)
{
    float const nan = std::numeric_limits<float>::quiet_NaN(),
                infinity = std::numeric_limits<float>::infinity();
    Points const good = {{0, 0, 0}, {1, 0, 0.1}, {0, 1, 0}, {1, 1, -0.1}};
    for (bool useDistance : {false, true}) {
        Recognition found;
        found.constraint = GetParam();
        found.useDistance = useDistance;
        found.angle = 30;
        EXPECT_FALSE(found.run({}));
        for (float bad : {nan, infinity, -infinity}) {
            Points points = good;
            points.emplace_back(1, bad, 1);
            EXPECT_FALSE(found.run(points)) << bad;
        }
        if (GetParam() != PlaneFitFree && GetParam() != PlaneFitThroughPoint) {
            for (Point3D_d const & direction : {Point3D_d(nan, 0, 0), Point3D_d(0, infinity, 0)}) {
                found.fixedDir = direction;
                EXPECT_FALSE(found.run(good));
            }
        }
        EXPECT_TRUE(found.isUntouched());
    }
    // One point is enough where the rest is given, and coincident points are no worse.
    for (Points const & points : {Points(1, {1, 2, 3}), Points(5, {1, 2, 3})}) {
        Recognition found;
        found.constraint = GetParam();
        found.angle = 30;
        bool const isEnough = points.size() >= 3 || GetParam() != PlaneFitFree;
        EXPECT_EQ(found.run(points), isEnough);
        EXPECT_EQ(found.isUntouched(), !isEnough);
    }
}

INSTANTIATE_TEST_SUITE_P(Constraints, PlaneSelection, testing::Range(0, 6));

TEST(PlaneSelectionLimits, UnknownConstraintAndAxisParallelNormal)
{
    Points const points = {{0, 0, 0}, {2, 0, 0}, {0, 1, 0}, {2, 1, 0}};
    Recognition found;
    for (int constraint : {-1, 6, 1000}) {
        found.constraint = constraint;
        EXPECT_FALSE(found.run(points));
    }
    EXPECT_TRUE(found.isUntouched());
    // The axis is no help for the basis here, so that the rectangle decides.
    found.constraint = PlaneFitAngleToAxis;
    ASSERT_TRUE(found.run(points));
    EXPECT_EQ(found.normal, Point3D_d(0, 0, 1));
    EXPECT_NEAR((found.limitsU[1] - found.limitsU[0]) * (found.limitsV[1] - found.limitsV[0]), 2, 1e-12);
}

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
        if (trial % 7 == 0)
            points.emplace_back(std::numeric_limits<float>::quiet_NaN());
        int const steps = trial % 4 == 0 ? 7 : 120;
        double e1[3], e2[3], defaultE1[3], defaultE2[3];
        REmath::DefinePointsLimitsBasis(Refs(points), normal.asArray(), e1, e2, steps);
        BuildUCSbyVector(normal.asArray(), defaultE1, defaultE2);
        if (points.size() == 300) {
            EXPECT_EQ(Point3D_d(e1), smallestRectangle(points, normal, steps)) << trial;
        }
        EXPECT_EQ(Point3D_d(e2), Point3D_d(defaultE2));
        REmath::DefinePointsLimitsBasis(Refs({}), normal.asArray(), e1, e2, steps);
        EXPECT_EQ(Point3D_d(e1), Point3D_d(defaultE1));
    }

    Points const points = {{1, 1, 5}, {4, 1, 5}, {1, 3, 5}};
    REmath::CPlaneEquation plane;
    EXPECT_FALSE(plane.IsValid());
    double const up[3] = {0, 0, 1};
    plane.SetNormalDir(up);
    EXPECT_TRUE(plane.IsValid());
    REmath::CPlaneLimits limits;
    limits.DefineAuto(Refs(points), plane);
    for (int i : {0, 1}) {
        Extent const extent(points, limits.GetBasisVector(i));
        EXPECT_EQ(limits.GetLimitsInDir(i)[0], extent.least);
        EXPECT_EQ(limits.GetLimitsInDir(i)[1], extent.greatest);
    }
    EXPECT_EQ(limits.GetLimitsInDir(0)[1] - limits.GetLimitsInDir(0)[0], 2);
    limits.DefineAuto(Refs({}), plane);
    EXPECT_EQ(limits.GetLimitsInDir(1)[0], -1);
    EXPECT_EQ(limits.GetLimitsInDir(1)[1], 1);
}

TEST(PlaneApproximator, AgreesWithTheBatchAfterAnyAddsAndRemoves)
{
    qz_sampling::Random random(21);
    for (int trial = 0; trial < 30; ++trial) {
        std::unique_ptr<REmath::IPlaneAppoximator> const approximator(
            REmath::IPlaneAppoximator::CreateByConstraint(PlaneFitFree));
        qz_test::Frame const frame = qz_test::randomFrame(random, 20);
        Point3D_d const outwards = frame.axes[2] * (trial % 2 == 0 ? 1 : -1);
        std::vector<Points> inside;
        REmath::CPlaneEquation plane;
        for (int step = 0; step < 40; ++step) {
            if (inside.empty() || random.uniform() < 0.55) {
                // Portions lie apart from each other, and some are single points.
                Points portion = randomPatch(random, frame, step % 3 == 0 ? 1 : 1 + step);
                Point3D const apart((frame.axes[0] * random.uniform(-20, 20)).asArray());
                for (Point3D & point : portion)
                    point += apart;
                inside.push_back(portion);
                Points const normals(portion.size(), Point3D(outwards.asArray()));
                Refs const pointRefs(inside.back()), normalRefs(normals);
                approximator->addPoints(&pointRefs, &normalRefs);
            } else {
                auto const victim =
                    inside.begin() + static_cast<std::ptrdiff_t>(random.next() % inside.size());
                Points const normals(victim->size(), Point3D(outwards.asArray()));
                Refs const pointRefs(*victim), normalRefs(normals);
                approximator->removePoints(&pointRefs, &normalRefs);
                inside.erase(victim);
            }
            Points all;
            for (Points const & portion : inside)
                all.insert(all.end(), portion.begin(), portion.end());
            approximator->getPlane(plane);
            EXPECT_EQ(plane.IsValid(), all.size() >= 3);
            if (!plane.IsValid())
                continue;
            double batch[4], centroid[3];
            ASSERT_TRUE(FitPlaneToPointSet(all, batch, centroid));
            double const best = energy(all, centroid, batch);
            Point3D_d const normal = plane.NormalDir();
            EXPECT_NEAR(normal.length(), 1, 1e-14);
            EXPECT_NEAR(energy(all, centroid, normal), best, 1e-9 * (1 + best));
            EXPECT_NEAR(plane.FreeTerm(), -dot(normal, centroid), 1e-9);
            EXPECT_GE(dot(normal, outwards), 0);
        }
    }
}

TEST(PlaneApproximator, KeepsNothingOfWhatIsGone)
{
    std::unique_ptr<REmath::IPlaneAppoximator> const approximator(
        REmath::IPlaneAppoximator::CreateByConstraint(PlaneFitFree));
    Points const huge = {{1e7, 2e7, 3e6}, {-4e6, 1e6, 7e7}, {1, 2, 3}}, empty;
    Points const flat = {{0, 0, 1e-4}, {1e-4, 0, 1e-4}, {0, 1e-4, 1e-4}};
    Refs const hugeRefs(huge), flatRefs(flat), emptyRefs(empty);
    REmath::CPlaneEquation plane;
    approximator->addPoints(&hugeRefs, nullptr);
    approximator->addPoints(&emptyRefs, nullptr);
    approximator->addPoints(nullptr, nullptr);
    approximator->getPlane(plane);
    EXPECT_TRUE(plane.IsValid());
    approximator->removePoints(&hugeRefs, nullptr);
    approximator->getPlane(plane);
    EXPECT_FALSE(plane.IsValid());
    EXPECT_EQ(plane.FreeTerm(), 0);
    approximator->addPoints(&flatRefs, nullptr);
    approximator->getPlane(plane);
    ASSERT_TRUE(plane.IsValid());
    EXPECT_NEAR(std::abs(plane.NormalDir()[2]), 1, 1e-12);
    Points const bad(1, std::numeric_limits<float>::quiet_NaN());
    Refs const badRefs(bad);
    approximator->addPoints(&badRefs, nullptr);
    approximator->getPlane(plane);
    EXPECT_FALSE(plane.IsValid());

    for (int type : {1, 5, 6}) {
        try {
            delete REmath::IPlaneAppoximator::CreateByConstraint(static_cast<PlaneFitConstraintType>(type));
            FAIL();
        } catch (std::exception const & error) {
            EXPECT_STREQ(error.what(), "bad allocation");
        }
    }
}

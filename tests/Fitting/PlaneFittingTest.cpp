// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneFitting.h>

#include <apps/sampling/Random.h>
#include <support/Frames.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

template <class Point>
class PlaneFitting : public testing::Test
{};
using PointTypes = testing::Types<Point3D, Point3D_d>;
TYPED_TEST_SUITE(PlaneFitting, PointTypes, );

// Sum of squared distances from the plane n·p = n·c, in extended precision.
template <class Point>
long double energy(std::vector<Point> const & points, Point3D_d const & n, long double const * c)
{
    long double sum = 0;
    for (Point const & p : points) {
        long double const height = n.x() * (p.x() - c[0]) + n.y() * (p.y() - c[1]) + n.z() * (p.z() - c[2]);
        sum += height * height;
    }
    return sum;
}

} // namespace

// The block size of the summation is met, passed by one, and passed many times. Flat, thick and needle-like
// clouds lie far from the origin, every third so far that a sum of squares without a shift would lose them.
// Some have their points sorted along the longest direction, so that blocks lie far apart. No other direction
// through the exact centroid may have a smaller energy.
TYPED_TEST(PlaneFitting, NoOtherPlaneIsBetter)
{
    qz_sampling::Random random(11);
    for (unsigned trial = 0; trial < 24; ++trial) {
        std::size_t const count = std::vector<std::size_t>{3, 4, 10, 511, 512, 513, 1024, 5003}[trial % 8];
        double const range = trial % 3 == 0 ? 1e6 : 50;
        qz_test::Frame const frame = qz_test::randomFrame(random, range);
        double const width = std::pow(10, random.uniform(-2, 1)), thickness = width * random.uniform(0, 0.5);
        std::vector<TypeParam> points;
        for (std::size_t i = 0; i < count; ++i) {
            double const along = trial < 12 ? random.uniform(-10, 10)
                                            : 20 * static_cast<double>(i) / static_cast<double>(count);
            Point3D_d const world =
                frame.toWorld({along, width * random.normal(), thickness * random.normal()});
            points.push_back(TypeParam(world.asArray()));
        }
        double plane[4], centroid[3];
        ASSERT_TRUE(FitPlaneToPointSet(points, plane, centroid));

        long double exact[3] = {};
        for (TypeParam const & p : points) {
            for (int axis = 0; axis < 3; ++axis)
                exact[axis] += static_cast<long double>(p.asArray()[axis]) / static_cast<long double>(count);
        }
        for (int axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(centroid[axis], static_cast<double>(exact[axis]), 2e-15 * range) << count;
        Point3D_d const normal(plane);
        EXPECT_NEAR(normal.length(), 1, 1e-14);
        EXPECT_NEAR(plane[3], plane[0] * centroid[0] + plane[1] * centroid[1] + plane[2] * centroid[2],
                    2e-15 * range);
        long double const least = energy(points, normal, exact);
        for (int other = 0; other < 60; ++other) {
            double const tilt = std::pow(10, -other / 10.);
            Point3D_d const direction(random.normal(), random.normal(), random.normal());
            EXPECT_LE(least, energy(points, (normal + direction * tilt).unitLength(), exact) * (1 + 1e-12L) +
                                 1e-24L * static_cast<long double>(count));
        }
    }
}

TYPED_TEST(PlaneFitting, DegenerateInput)
{
    double plane[4] = {7, 7, 7, 7}, centroid[3] = {7, 7, 7};
    TypeParam const zero(0, 0, 0), one(1, 2, 3), other(5, -1, 2);
    float const huge = 3e18F; // all eigenvalues beyond 1e30
    for (std::vector<TypeParam> const & points :
         {std::vector<TypeParam>{},
          {zero, one},
          {zero, one, TypeParam(NAN, 1, 1), other},
          {zero, one, TypeParam(1, INFINITY, 1), other},
          {zero, one, TypeParam(1, 1, NAN), other},
          {TypeParam(huge, 0, 0), TypeParam(0, huge, 0), TypeParam(0, 0, huge), TypeParam(-huge)}})
        EXPECT_FALSE(FitPlaneToPointSet(points, plane, centroid));
    for (double value : {plane[0], plane[1], plane[2], plane[3], centroid[0], centroid[1], centroid[2]})
        EXPECT_EQ(value, 7);

    ASSERT_TRUE(FitPlaneToPointSet(std::vector<TypeParam>{zero, one, TypeParam(3, 6, 9)}, plane, centroid));
    EXPECT_NEAR(plane[0] + 2 * plane[1] + 3 * plane[2], 0, 1e-14);
    EXPECT_TRUE(FitPlaneToPointSet(std::vector<TypeParam>(3, one), plane, centroid));
}

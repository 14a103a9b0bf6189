// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Distances.h>
#include <QZmath/SurfaceAnalysis/Intersections.h>

#include "TestPoints.h"

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

using namespace qz_test;
using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

template <class Coord>
class LinePairs : public testing::Test
{};
using Coords = testing::Types<float, double>;
TYPED_TEST_SUITE(LinePairs, Coords, );

} // namespace

// Two lines in parallel planes, crossing at a known angle over a known gap.
TYPED_TEST(LinePairs, AreMeasuredWhereTheyAreNearest)
{
    double const tolerance = 1000 * static_cast<double>(std::numeric_limits<TypeParam>::epsilon());
    Random random(1);
    for (int repetition = 0; repetition < 500; ++repetition) {
        Frame const frame = randomFrame(random, 1);
        double const angle = random.uniform(0.1, 3), gap = random.uniform(0, 1);
        double const t1 = random.uniform(-2, 2), t2 = random.uniform(-2, 2);
        TypeParam p1[3], p2[3], d1[3], d2[3], delta[3], params[2], middle[3];
        Point3D_d const first = frame.axes[0] * random.uniform(0.5, 2);
        Point3D_d const second = frame.directionToWorld({std::cos(angle), std::sin(angle), 0}) * 3;
        first.toArray(d1);
        second.toArray(d2);
        (frame.origin - first * t1).toArray(p1);
        (frame.toWorld({0, 0, gap}) - second * t2).toArray(p2);
        ASSERT_TRUE(MakeMinDist2Lines(p1, d1, p2, d2, params));
        EXPECT_LE(std::hypot(params[0] - t1, params[1] - t2), tolerance);
        for (bool const wide : {false, true}) {
            auto const limit = static_cast<TypeParam>(gap * gap + (wide ? tolerance : -tolerance));
            (Point3D_d(p2) - Point3D_d(p1)).toArray(delta);
            EXPECT_EQ(meetTwoVectors(d1, d2, delta, params, limit), wide);
            EXPECT_LE(std::hypot(params[0] - t1, params[1] - t2), tolerance);
            EXPECT_LE((Point3D_d(delta) - frame.axes[2] * gap).length(), tolerance);
        }
        makeTwoVectorsMediumPoint(p1, p2, d1, d2, params, middle);
        EXPECT_LE((Point3D_d(middle) - frame.toWorld({0, 0, gap / 2})).length(), tolerance);
    }
    // The least squared sine of the angle, for each function.
    for (double const factor : {0.999, 1.001, 0.0}) {
        for (double const least : {1e-6, 0.0076}) {
            TypeParam const origin[3] = {}, d1[3] = {2, 0, 0};
            TypeParam const d2[3] = {static_cast<TypeParam>(-std::sqrt(1 - least * factor)),
                                     static_cast<TypeParam>(std::sqrt(least * factor)), 0};
            TypeParam params[2] = {5, 5}, delta[3] = {0, 0, 1};
            EXPECT_EQ(least == 1e-6 ? MakeMinDist2Lines(origin, d1, origin, d2, params)
                                    : meetTwoVectors(d1, d2, delta, params, TypeParam(2)),
                      factor > 1);
            EXPECT_FALSE(MakeMinDist2Lines(origin, origin, origin, d2, params));
            EXPECT_TRUE(factor > 1 || params[0] == 5);
        }
    }
}

TEST(TriangleAndLine, HitIsWhereItWasAimed)
{
    Random random(2);
    for (int repetition = 0; repetition < 4000; ++repetition) {
        // Corners, target and direction on a lattice make hits on sides and corners exact.
        bool const exact = repetition % 2 == 0;
        auto const vector = [&] { return exact ? latticePoint(random, 4) : randomPoint(random); };
        auto const share = [&] {
            return exact ? static_cast<double>(random.next() % 7) / 4 - 0.25 : random.uniform(-1, 2);
        };
        Point3D_d const a = vector(), u = vector(), v = vector(), dir = vector();
        double const s = share(), t = share();
        Point3D_d const target = a + u * s + v * t;
        double const rise = REmath::Detail::dot(dir, REmath::Detail::cross(u, v));
        if (!exact && std::abs(rise) < 0.05)
            continue;
        float corners[3][3], origin[3], direction[3], hit[3], freeHit[3], found = 7, dist2 = 7;
        a.toArray(corners[0]);
        (a + u).toArray(corners[1]);
        (a + v).toArray(corners[2]);
        dir.toArray(direction);
        (target - dir * (exact ? 2 : random.uniform(-3, 3))).toArray(origin);
        bool inside = false;
        auto const hitFree = [&](double margin) {
            return IntersectTriangLineFree(corners[0], corners[1], corners[2], origin, direction, freeHit,
                                           static_cast<float>(margin), inside, &found, &dist2);
        };
        double const tolerance = exact ? 0 : 1e-4;
        double const overshoot = std::max({0.0, -s, -t, -s - t, s - 1, t - 1, s + t - 1});
        bool const isHit = IntersectTriangLine(corners[0], corners[1], corners[2], origin, direction, hit);
        if (rise == 0) { // parallel, without area or without direction
            EXPECT_FALSE(isHit || hitFree(1e9));
            continue;
        }
        EXPECT_TRUE(isHit == (overshoot == 0) || (!exact && overshoot < 1e-5)) << s << " " << t;
        EXPECT_LE((Point3D_d(hit) - target).length(), tolerance);
        // Too small a margin refuses the hit but tells it.
        EXPECT_FALSE(overshoot > 0.001 && hitFree(overshoot - 0.0005));
        EXPECT_TRUE(overshoot <= 0.001 || Point3D(freeHit) == Point3D(hit));
        EXPECT_TRUE(hitFree(overshoot + tolerance));
        EXPECT_TRUE(inside == isHit && Point3D(freeHit) == Point3D(hit));
        EXPECT_NEAR(found, overshoot, tolerance);
        Point3D const vertices[3] = {corners[0], corners[1], corners[2]};
        EXPECT_NEAR(dist2, distancePointTriangle2(hit, vertices), 1e-6);
    }
    for (int repetition = 0; repetition < 20000; ++repetition) {
        float p[15], hit[3], overshoot = 0;
        std::generate(std::begin(p), std::end(p), [&] { return hostileNumber(random); });
        bool inside = false;
        bool const isHit =
            IntersectTriangLineFree(p, p + 3, p + 6, p + 9, p + 12, hit, 0.5F, inside, &overshoot, nullptr);
        EXPECT_TRUE(!isHit || (overshoot >= 0 && overshoot <= 0.5F && (!inside || overshoot == 0)));
    }
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Distances.h>
#include <QZmath/SurfaceAnalysis/ProjectorTriangle.h>

#include "TestPoints.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <type_traits>

using namespace qz_test;
using qz_sampling::Random;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;

namespace
{

// The nearest point of a convex set is the one from which no corner of the set lies towards `p`.
void expectNearest(Point3D_d const & p, Point3D_d const & foot, std::initializer_list<Point3D_d> corners,
                   double tolerance)
{
    for (Point3D_d const & corner : corners)
        EXPECT_LE(dot(p - foot, corner - foot), tolerance);
}

template <class Coord>
class SegmentDistance : public testing::Test
{};
using Coords = testing::Types<float, double>;
TYPED_TEST_SUITE(SegmentDistance, Coords, );

} // namespace

TYPED_TEST(SegmentDistance, FootIsNearestInEveryForm)
{
    double const epsilon = std::numeric_limits<TypeParam>::epsilon();
    Random random(1);
    for (int repetition = 0; repetition < 3000; ++repetition) {
        double const scale = repetition % 2 ? 1 : repetition % 4 ? 1e-15 : 1e15;
        double const tolerance = 20 * epsilon * scale * scale;
        TypeParam p[3], a[3], b[3], foot[3], footInPlane[2], t = 0;
        for (TypeParam * const point : {p, a, b}) {
            (repetition % 2 ? randomPoint(random) : latticePoint(random, scale)).toArray(point);
            point[2] *= static_cast<TypeParam>(repetition % 3 > 0); // in the plane at times
        }
        TypeParam const squared = DistancePoint2Segment(p, a, b);
        EXPECT_EQ(DistancePoint2Segment(p, a, b, t), squared);
        EXPECT_EQ(DistancePoint2Segment(p, a, b, foot), squared);
        Point3D_d const start(a), end(b), found(foot), offset = Point3D_d(p) - found;
        EXPECT_NEAR(squared, dot(offset, offset), tolerance);
        EXPECT_LE((start + (end - start) * t - found).length(), 4 * epsilon * scale);
        expectNearest(Point3D_d(p), found, {start, end}, tolerance);
        EXPECT_TRUE(start != end || t == 0);
        EXPECT_TRUE((t > 0 && t < 1) || found == (t == 0 ? start : end));

        int const feature = t == 0 ? segmentStart : t == 1 ? segmentEnd : segmentInterior;
        int where = 7;
        if (repetition % 3 == 0) {
            TypeParam tInPlane = 0, *const none = nullptr;
            p[2] = 5; // not read
            EXPECT_EQ(DistancePoint2Segment2D(p, a, b, tInPlane, &where, footInPlane), squared);
            EXPECT_TRUE(tInPlane == t && where == feature && std::equal(footInPlane, footInPlane + 2, foot));
            EXPECT_EQ(DistancePoint2Segment2D(p, a, b, t, nullptr, none), squared);
        } else if constexpr (std::is_same_v<TypeParam, float>) {
            float again[3];
            EXPECT_EQ(DistancePoint2Segment(p, a, b, again, where), squared);
            EXPECT_TRUE(where == feature && std::equal(again, again + 3, foot));
            EXPECT_EQ(static_cast<float>(DistancePoint2Segment(p, start.asArray(), end.asArray())), squared);
            Point3D const direction(((end - start) * 3).asArray());
            float const fromLine = DistancePoint2Line(p, a, direction.asArray());
            EXPECT_LE(fromLine, squared + tolerance);
            EXPECT_TRUE(feature != segmentInterior || fromLine >= squared - tolerance);
            EXPECT_EQ(DistancePoint2Line(p, a, Point3D(0).asArray()), DistancePoint2Segment(p, a, a));
        }
    }
    // Too far away for the ends to differ: the second end is told.
    TypeParam const p[3] = {-1e9, 0, 0}, a[3] = {0, 0, 0}, b[3] = {static_cast<TypeParam>(1e-9), 0, 0};
    TypeParam t = 0;
    DistancePoint2Segment(p, a, b, t);
    EXPECT_EQ(t, 1);
}

TEST(TriangleDistance, FootIsNearestAndOnTheFeatureTold)
{
    Random random(4);
    for (int repetition = 0; repetition < 6000; ++repetition) {
        bool const onLattice = repetition % 3 == 0;
        double const scale = repetition % 6 ? 1 : 1e-12;
        double const tolerance = 1e-6 * scale * scale;
        Point3D vertices[3];
        for (Point3D & vertex : vertices)
            vertex = Point3D((onLattice ? latticePoint(random, scale) : randomPoint(random)).asArray());
        if (repetition % 3 == 1) // a sliver, from narrow to flat in `float`
            vertices[2] = (vertices[0] + vertices[1]) / 2 +
                          Point3D(randomPoint(random, std::pow(10, random.uniform(-9, -1))).asArray());
        Point3D const p((onLattice ? latticePoint(random, scale) : randomPoint(random, 2)).asArray());
        float const * pointers[3] = {vertices[0].asArray(), vertices[1].asArray(), vertices[2].asArray()};
        float foot[3];
        int where = 7;
        float const squared = distancePointTriangle2(p.asArray(), pointers, where, foot);
        EXPECT_EQ(distancePointTriangle2(p.asArray(), vertices), squared);

        Point3D_d const a(pointers[0]), b(pointers[1]), c(pointers[2]), found(foot), wide(p.asArray());
        EXPECT_NEAR(squared, dot(wide - found, wide - found), tolerance);
        expectNearest(wide, found, {a, b, c}, tolerance);
        ASSERT_TRUE(where >= triangleInterior && where <= triangleEdge20);
        if (where == triangleInterior) {
            Point3D_d const u = a - found, v = b - found, w = c - found;
            EXPECT_NEAR(cross(u, v).length() + cross(v, w).length() + cross(w, u).length(),
                        cross(b - a, c - a).length(), tolerance);
        } else if (where <= triangleVertex2) {
            EXPECT_EQ(found, Point3D_d(pointers[where]));
        } else {
            int const side = where - triangleEdge01;
            float t = 0;
            EXPECT_LE(DistancePoint2Segment(foot, pointers[side], pointers[(side + 1) % 3], t), 1e-13F);
            EXPECT_TRUE(t > 0 && t < 1);
        }

        REmath::CProjectorTriangle triangle(vertices);
        double const fromFrame = triangle.DistToTriangle2(p.asArray());
        // Of the tolerance 1e-6 are for a lost height.
        EXPECT_NEAR(std::sqrt(fromFrame), std::sqrt(squared), 4e-6 * scale);
        EXPECT_EQ(triangle.DistToTriangle2Precalced(p.asArray()), fromFrame);
        triangle.PreCalc();
        EXPECT_EQ(triangle.DistToTriangle2Precalced(p.asArray()), fromFrame);
        EXPECT_EQ(triangle.GetMaxSideLen2(),
                  std::max({dot(b - a, b - a), dot(c - b, c - b), dot(a - c, a - c)}));
    }
}

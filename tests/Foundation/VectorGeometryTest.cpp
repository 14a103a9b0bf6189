// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/CircumscribeCircle.h>
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>
#include <QZmath/Foundation/VectorRotation.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using qz_sampling::Random;
using qz_test::randomPoint;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::st_NoValueMark;
using REmath::Detail::cross;
using REmath::Detail::dot;

namespace
{

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

Point3D narrow(Point3D_d const & point) { return {point.x(), point.y(), point.z()}; }

void expectNear(Point3D_d const & found, Point3D_d const & wanted, double tolerance)
{
    EXPECT_LE((found - wanted).length(), tolerance);
}

// A triple in the precision under test.
template <class Coord>
struct Triple
{
    Triple() = default;
    Triple(Point3D_d const & point) { point.toArray(c); }
    operator Point3D_d() const { return {c}; }
    Coord c[3] = {};
};

template <class Coord>
class VectorGeometry : public testing::Test
{
public:
    static constexpr double epsilon = std::numeric_limits<Coord>::epsilon();
};
using Coords = testing::Types<float, double>;
TYPED_TEST_SUITE(VectorGeometry, Coords, );

} // namespace

TYPED_TEST(VectorGeometry, FootOnALineIsPerpendicular)
{
    Random random(1);
    for (int repetition = 0; repetition < 200; ++repetition) {
        Triple<TypeParam> const a(randomPoint(random)), b(randomPoint(random)), p(randomPoint(random));
        Triple<TypeParam> out = p;
        Vector_Line2Point(a.c, b.c, out.c, out.c); // in place
        Point3D_d const direction = (Point3D_d(b) - Point3D_d(a)).unitLength();
        EXPECT_NEAR(dot(out, direction), 0, 8 * this->epsilon);
        // What is left lies on the line.
        expectNear(cross(Point3D_d(p) - Point3D_d(a) - Point3D_d(out), direction), {0, 0, 0},
                   8 * this->epsilon);
    }
}

TYPED_TEST(VectorGeometry, FramesByAVectorAreRightHanded)
{
    Random random(2);
    for (int repetition = 0; repetition < 300; ++repetition) {
        // Also near z, where the branch changes.
        Point3D_d const direction = randomPoint(random) + Point3D_d(0, 0, repetition % 3 == 0 ? 1.5 : 0);
        Triple<TypeParam> const v(direction.unitLength());
        Triple<TypeParam> p, q;
        BuildUCSbyVector(v.c, p.c, q.c);
        expectNear(cross(Point3D_d(p), Point3D_d(q)), v, 4 * this->epsilon);
        expectNear(cross(Point3D_d(v), Point3D_d(p)), q, 4 * this->epsilon);
    }
    auto const perpendicular = [](double x, double y, double z) {
        Triple<TypeParam> v(Point3D_d(x, y, z));
        BuildDefPerpendicular(v.c, v.c);
        return Point3D_d(v);
    };
    EXPECT_EQ(perpendicular(0, 0, 1), Point3D_d(0, -1, 0));
    EXPECT_EQ(perpendicular(1, 0, 0), Point3D_d(0, 1, 0));
    // Across the threshold at a squared length of 0.1 in x and y; short vectors go by z and y.
    EXPECT_EQ(perpendicular(0, 0.3, 5).x(), 0);
    EXPECT_EQ(perpendicular(0, 0.33, 5).z(), 0);
    EXPECT_TRUE(std::isnan(perpendicular(0.3, 0, 0).y()));
}

TEST(VectorGeometry, RotatesWhatIsAcrossTheAxis)
{
    auto const rotate = [](Point3D_d const & v, double angle, Point3D_d const & axis = Point3D_d(0, 0, 1)) {
        double out[3];
        RotateVector(out, axis.asArray(), v.asArray(), angle);
        return Point3D_d(out);
    };
    Random random(3);
    REmath::Matrix<double> matrix(5, 2), identity(3, 3);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 0);
        double const angle = random.uniform(-7, 7), c = std::cos(angle), s = std::sin(angle);
        Point3D_d const axis = frame.axes[2] * random.uniform(0.1, 9), local = randomPoint(random, 3);
        double const x = local.x(), y = local.y(), z = local.z();
        Point3D_d const v = frame.directionToWorld(local);
        Triple<double> overV(v), overAxis(axis);
        // The part along the axis is scaled by cos + sin.
        Point3D_d const wanted = frame.directionToWorld({x * c - y * s, x * s + y * c, z * (c + s)});
        expectNear(rotate(v, angle, axis), wanted, 1e-13);
        RotateVector(overAxis.c, overAxis.c, v.asArray(), angle);
        RotateVector(overV.c, axis.asArray(), overV.c, angle);
        EXPECT_TRUE(Point3D_d(overV) == rotate(v, angle, axis) && Point3D_d(overAxis) == Point3D_d(overV));
        // The matrix has the images of the coordinate axes as rows.
        MakeRotationMatrix(matrix, axis.asArray(), angle);
        for (int row = 0; row < 3; ++row)
            EXPECT_EQ(rotate(Point3D_d(row == 0, row == 1, row == 2), angle, axis),
                      Point3D_d(matrix.elem(row, 0), matrix.elem(row, 1), matrix.elem(row, 2)));
    }
    // Within 1 in 100 of the axis nothing is turned.
    EXPECT_EQ(rotate({0.00999, 0, 1}, 1), Point3D_d(0.00999, 0, 1));
    EXPECT_NE(rotate({0.01001, 0, 1}, 1), Point3D_d(0.01001, 0, 1));
    EXPECT_EQ(rotate({0, 0, 0}, 1), Point3D_d(0));
    EXPECT_TRUE(std::isnan(rotate({1, 0, 0}, 1, {0, 0, 0}).x()));
    MakeRotationMatrix(matrix, Point3D_d(0).asArray(), 1);
    identity.diag(1);
    EXPECT_EQ(matrix, identity);
}

TEST(VectorGeometry, PlanesAndParallels)
{
    Random random(5);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 10);
        double const distance = random.uniform(0.2, 5), slope = random.uniform(-0.2, 0.2);
        Point3D_d const p = frame.toWorld({distance * std::cos(slope), 0, distance * std::sin(slope)});
        double const squaredSine = std::sin(slope) * std::sin(slope);
        EXPECT_TRUE(PointInPlane(p, frame.origin, frame.axes[2], squaredSine + 1e-12));
        EXPECT_EQ(PointInPlane(p, frame.origin, frame.axes[2], squaredSine - 1e-12),
                  squaredSine >= distance - 1e-12);
        EXPECT_TRUE(PointInPlane(p, frame.origin, frame.axes[2], distance * 1.001));
        Point3D_d const scaled = (p - frame.origin) * random.uniform(-8, 8);
        EXPECT_TRUE(VectorsAreParallel(scaled, frame.axes[0], squaredSine + 1e-12));
        EXPECT_FALSE(VectorsAreParallel(scaled, frame.axes[0], squaredSine - 1e-12));
    }
    EXPECT_FALSE(PointInPlane({1, 2, 3}, {1, 2, 3}, {0, 0, 1}, 0));
    EXPECT_FALSE(VectorsAreParallel({0, 0, 0}, {1, 0, 0}, 1));
}

TEST(VectorGeometry, AnglesAtAPointAndAroundALine)
{
    Random random(6);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 1);
        double const angle = random.uniform(0.05, 3.1), turn = random.uniform(-3, 3);
        double const lengthA = random.uniform(0.1, 3), lengthC = random.uniform(0.1, 3),
                     cosine = std::cos(angle);
        auto const around = [&](double length, double at, double height) {
            return narrow(frame.toWorld({length * std::cos(at), length * std::sin(at), height}));
        };
        Point3D const centre = narrow(frame.origin);
        EXPECT_NEAR(cos_ABC(around(lengthA, turn, 0), centre, around(lengthC, turn + angle, 0)), cosine,
                    1e-5);
        // The same angle between half planes: heights along the line do not matter.
        Point3D const lineEnd = around(0, 0, 2);
        Point3D const p = around(lengthA, turn, random.uniform(-2, 2));
        Point3D const q = around(lengthC, turn + angle, random.uniform(-2, 2));
        EXPECT_NEAR(SemiPlanarScalarProd(centre, lineEnd, p, q), lengthA * lengthC * cosine, 2e-5);
        EXPECT_NEAR(SemiPlanarCos2(centre, lineEnd, p, q), cosine * std::abs(cosine), 1e-4);
    }
    Point3D const a(1, 2, 3), b(4, 5, 6), c(0, 1, 0), onLine(3, 4, 5);
    EXPECT_TRUE(cos_ABC(a, a, b) == st_NoValueMark && cos_ABC(a, Point3D(NAN), b) == st_NoValueMark);
    // Coincidence is judged on each axis by the size of the coordinates.
    Point3D const nearA(1, std::nextafter(2.0F, 3.0F), 3);
    EXPECT_TRUE(SemiPlanarScalarProd(a, nearA, b, c) == 0 &&
                SemiPlanarCos2(a, nearA, b, c) == st_NoValueMark);
    EXPECT_NE(SemiPlanarScalarProd({0, 0, 0}, {1e-20, 0, 0}, b, c), 0);
    EXPECT_EQ(SemiPlanarCos2(a, b, c, onLine), st_NoValueMark);
}

TEST(VectorGeometry, CoordinatesInASkewPair)
{
    Random random(7);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 0);
        double const scale = std::pow(10.0, random.uniform(-5, 5));
        double const wantedU = random.uniform(-2, 2), wantedV = random.uniform(-2, 2);
        Point3D_d const e1 = frame.directionToWorld({scale, 0.1 * scale, 0});
        Point3D_d const e2 = frame.directionToWorld({-0.3 * scale, 0.8 * scale, 0});
        Point3D_d const p = e1 * wantedU + e2 * wantedV + frame.axes[2] * (3 * scale);
        double u = 7, v = 7;
        auto const find = [&](Point3D_d const & second, double tolerance) {
            return CoordinateRelativeForPlaneReperDbl(p.asArray(), e1.asArray(), second.asArray(), u, v,
                                                      tolerance);
        };
        // A hardly longer, hardly turned second vector is too parallel for a large tolerance.
        EXPECT_FALSE(find(e1 * 1.01 + e2 * 1e-3, 1e-5) || find(Point3D_d(notANumber), 0));
        EXPECT_TRUE(u == 7 && v == 7);
        ASSERT_TRUE(find(e2, 1e-6));
        EXPECT_LE(std::hypot(u - wantedU, v - wantedV), 1e-12);
    }
}

TYPED_TEST(VectorGeometry, CirclesPassThroughTheirPoints)
{
    using Point = std::conditional_t<std::is_same_v<TypeParam, float>, Point3D, Point3D_d>;
    Random random(8);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 4);
        double const radius = random.uniform(0.1, 5), tolerance = 100 * this->epsilon * (1 + radius);
        Point points[3];
        for (int i = 0; i < 3; ++i) {
            double const angle = 2.1 * i + random.uniform(-0.7, 0.7);
            points[i] =
                Triple<TypeParam>(frame.toWorld({radius * std::cos(angle), radius * std::sin(angle), 0})).c;
        }
        TypeParam const * const p[3] = {points[0].asArray(), points[1].asArray(), points[2].asArray()};
        TypeParam centre[3], squared = 0, squaredOfPoints = 0;
        double wideCentre[3], wideSquared = 0;
        ASSERT_TRUE(CircumscribeCircle(p[0], p[1], p[2], centre, squared));
        ASSERT_TRUE(CircumscribeCircle(p[0], p[1], p[2], wideCentre, wideSquared));
        expectNear(centre, frame.origin, tolerance);
        EXPECT_NEAR(squared, radius * radius, tolerance * (1 + radius));
        EXPECT_EQ(Point(Triple<TypeParam>(Point3D_d(wideCentre)).c), Point(centre));
        EXPECT_TRUE(CircumscribeCircle(points, points[0], squaredOfPoints)); // into one of them
        EXPECT_TRUE(points[0] == Point(centre) && squaredOfPoints == squared);
    }
    // Flat triangles fail: the ratio of the largest weight to the sum grows with the inverse square of the
    // height.
    bool const isFloat = std::is_same_v<TypeParam, float>;
    for (double height : {1.0, 0.025, 0.02, 2.5e-5, 2e-5, 0.0, notANumber, double(INFINITY)}) {
        Point const points[3] = {Point(-1, 0, 0), Point(0, height, 0), Point(1, 0, 0)};
        TypeParam const * const p[3] = {points[0].asArray(), points[1].asArray(), points[2].asArray()};
        Point centre(5);
        TypeParam squared = 5, tripleSquared = 5, triple[3] = {5, 5, 5};
        double wideSquared = 5, wide[3] = {5, 5, 5};
        bool const isWide = height >= 2.5e-5 && height <= 1, isFound = isWide && (!isFloat || height > 0.02);
        EXPECT_EQ(CircumscribeCircle(points, centre, squared), isFound) << height;
        EXPECT_EQ(CircumscribeCircle(p[0], p[1], p[2], triple, tripleSquared), isFound) << height;
        EXPECT_EQ(CircumscribeCircle(p[0], p[1], p[2], wide, wideSquared), isWide) << height;
        EXPECT_TRUE(isFound || (centre == Point(5) && squared == TypeParam(st_NoValueMark) &&
                                Point(triple) == Point(5) && tripleSquared == 5));
        EXPECT_TRUE(isWide || (Point3D_d(wide) == Point3D_d(5) && wideSquared == 5));
    }
}

TEST(VectorGeometry, BulgesOfTriangles)
{
    Random random(9);
    for (int repetition = 0; repetition < 100; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 1);
        float const xs[4] = {9, 0, float(random.uniform(-2, 2)), float(random.uniform(0.5, 2))};
        float const ys[4] = {9, 0, float(random.uniform(0, 3)), 0};
        auto const corner = [&](int i) { return narrow(frame.toWorld({xs[i], ys[i], 0})); };
        double const wanted = std::pow(double(ys[2] / xs[3]), 2), tolerance = 1e-5 * (1 + wanted);
        EXPECT_NEAR(GetTriangleBulge(corner(2).asArray(), corner(1).asArray(), corner(3).asArray()), wanted,
                    tolerance);
        EXPECT_NEAR(GetTriangleBulge2(xs, ys, 2), wanted, tolerance);
    }
    float const point[3] = {1, 1, 1}, other[3] = {};
    EXPECT_TRUE(std::isnan(GetTriangleBulge(other, point, point)));
}

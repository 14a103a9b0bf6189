// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/CircumscribeCircle.h>
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>
#include <QZmath/Foundation/VectorRotation.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

using qz_sampling::Random;
using qz_test::randomPoint;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::st_NoValueMark;
using REmath::Detail::dot;

namespace
{

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

Point3D narrow(Point3D_d const & point) { return {point.x(), point.y(), point.z()}; }

void expectNear(Point3D_d const & found, Point3D_d const & wanted, double tolerance)
{
    EXPECT_LE((found - wanted).length(), tolerance)
        << found.x() << " " << found.y() << " " << found.z() << " instead of " << wanted.x() << " "
        << wanted.y() << " " << wanted.z();
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
        Triple<TypeParam> out, alias = p;
        Vector_Line2Point(a.c, b.c, p.c, out.c);
        Point3D_d const direction = (Point3D_d(b) - Point3D_d(a)).unitLength();
        EXPECT_NEAR(dot(out, direction), 0, 8 * this->epsilon);
        // What is left lies on the line.
        Point3D_d const alongLine = Point3D_d(p) - Point3D_d(a) - Point3D_d(out);
        expectNear(alongLine, direction * dot(alongLine, direction), 8 * this->epsilon);
        Vector_Line2Point(a.c, b.c, alias.c, alias.c);
        EXPECT_EQ(Point3D_d(alias), Point3D_d(out));
    }
}

TYPED_TEST(VectorGeometry, FramesByAVectorAreRightHanded)
{
    Random random(2);
    for (int repetition = 0; repetition < 300; ++repetition) {
        // Also near z, where the branch changes.
        Point3D_d direction = randomPoint(random);
        if (repetition % 3 == 0)
            direction += Point3D_d(0, 0, 1.5);
        Triple<TypeParam> const v(direction.unitLength());
        Triple<TypeParam> p, q;
        BuildUCSbyVector(v.c, p.c, q.c);
        double const tolerance = 4 * this->epsilon;
        EXPECT_NEAR(Point3D_d(p).length(), 1, tolerance);
        EXPECT_NEAR(Point3D_d(q).length(), 1, tolerance);
        EXPECT_NEAR(dot(p, q), 0, tolerance);
        expectNear(REmath::Detail::cross(Point3D_d(p), Point3D_d(q)), v, tolerance);
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
    Random random(3);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 0);
        double const angle = random.uniform(-7, 7);
        Point3D_d const axis = frame.axes[2] * random.uniform(0.1, 9);
        double const x = random.uniform(-3, 3), y = random.uniform(-3, 3), z = random.uniform(-3, 3);
        Point3D_d const v = frame.directionToWorld({x, y, z});
        double const c = std::cos(angle), s = std::sin(angle);
        double out[3];
        RotateVector(out, axis.asArray(), v.asArray(), angle);
        // The part along the axis is scaled by cos + sin.
        expectNear(Point3D_d(out), frame.directionToWorld({x * c - y * s, x * s + y * c, z * (c + s)}),
                   1e-13);
        double alias[3];
        v.toArray(alias);
        RotateVector(alias, axis.asArray(), alias, angle);
        EXPECT_EQ(Point3D_d(alias), Point3D_d(out));
        axis.toArray(alias);
        RotateVector(alias, alias, v.asArray(), angle);
        EXPECT_EQ(Point3D_d(alias), Point3D_d(out));
    }
    auto const rotate = [](Point3D_d const & v, double angle, Point3D_d const & axis = Point3D_d(0, 0, 1)) {
        double out[3];
        RotateVector(out, axis.asArray(), v.asArray(), angle);
        return Point3D_d(out);
    };
    // Within 1 in 100 of the axis nothing is turned.
    EXPECT_EQ(rotate({0.00999, 0, 1}, 1), Point3D_d(0.00999, 0, 1));
    EXPECT_NE(rotate({0.01001, 0, 1}, 1), Point3D_d(0.01001, 0, 1));
    EXPECT_EQ(rotate({0, 0, 0}, 1), Point3D_d(0));
    EXPECT_TRUE(std::isnan(rotate({1, 0, 0}, 1, {0, 0, 0}).x()));
}

TEST(VectorGeometry, RotationMatrixHasTheImagesOfTheAxesAsRows)
{
    Random random(4);
    REmath::Matrix<double> matrix(5, 2);
    for (int repetition = 0; repetition < 100; ++repetition) {
        Point3D_d const axis = randomPoint(random, 2);
        double const angle = random.uniform(-4, 4);
        MakeRotationMatrix(matrix, axis.asArray(), angle);
        ASSERT_EQ(matrix.rows() * 10 + matrix.cols(), 33);
        for (int row = 0; row < 3; ++row) {
            Point3D_d const unit(row == 0, row == 1, row == 2);
            double image[3];
            RotateVector(image, axis.asArray(), unit.asArray(), angle);
            for (int col = 0; col < 3; ++col)
                EXPECT_EQ(matrix.elem(row, col), image[col]);
        }
    }
    double const noAxis[3] = {};
    MakeRotationMatrix(matrix, noAxis, 1);
    REmath::Matrix<double> identity(3, 3);
    identity.diag(1);
    EXPECT_TRUE(matrix == identity);
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
        if (squaredSine < distance - 1e-12) {
            EXPECT_FALSE(PointInPlane(p, frame.origin, frame.axes[2], squaredSine - 1e-12));
        }
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
        double const lengthA = random.uniform(0.1, 3), lengthC = random.uniform(0.1, 3);
        auto const around = [&](double length, double at, double height) {
            return narrow(frame.toWorld({length * std::cos(at), length * std::sin(at), height}));
        };
        Point3D const centre = narrow(frame.origin);
        Point3D const a = around(lengthA, turn, 0), c = around(lengthC, turn + angle, 0);
        EXPECT_NEAR(cos_ABC(a, centre, c), std::cos(angle), 1e-5);
        // The same angle between half planes: heights along the line do not matter.
        Point3D const lineEnd = around(0, 0, 2);
        Point3D const p = around(lengthA, turn, random.uniform(-2, 2));
        Point3D const q = around(lengthC, turn + angle, random.uniform(-2, 2));
        EXPECT_NEAR(SemiPlanarScalarProd(centre, lineEnd, p, q), lengthA * lengthC * std::cos(angle), 2e-5);
        EXPECT_NEAR(SemiPlanarCos2(centre, lineEnd, p, q), std::cos(angle) * std::abs(std::cos(angle)), 1e-4);
    }
    Point3D const a(1, 2, 3), b(4, 5, 6), c(0, 1, 0), onLine(3, 4, 5);
    EXPECT_EQ(cos_ABC(a, a, b), st_NoValueMark);
    EXPECT_EQ(cos_ABC(a, Point3D(notANumber), b), st_NoValueMark);
    // Coincidence is judged on each axis by the size of the coordinates.
    Point3D const nearA(1, std::nextafter(2.0F, 3.0F), 3);
    EXPECT_EQ(SemiPlanarScalarProd(a, nearA, b, c), 0);
    EXPECT_EQ(SemiPlanarCos2(a, nearA, b, c), st_NoValueMark);
    EXPECT_NE(SemiPlanarScalarProd({0, 0, 0}, {1e-20, 0, 0}, b, c), 0);
    EXPECT_EQ(SemiPlanarCos2(a, b, c, onLine), st_NoValueMark);
}

TEST(VectorGeometry, CoordinatesInASkewPair)
{
    Random random(7);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 0);
        double const scale = std::pow(10.0, random.uniform(-5, 5));
        Point3D_d const e1 = frame.directionToWorld({scale, 0.1 * scale, 0});
        Point3D_d const e2 = frame.directionToWorld({-0.3 * scale, 0.8 * scale, 0});
        double const wantedU = random.uniform(-2, 2), wantedV = random.uniform(-2, 2);
        Point3D_d const p = e1 * wantedU + e2 * wantedV + frame.axes[2] * (3 * scale);
        double u = 7, v = 7;
        ASSERT_TRUE(CoordinateRelativeForPlaneReperDbl(p.asArray(), e1.asArray(), e2.asArray(), u, v, 1e-6));
        EXPECT_NEAR(u, wantedU, 1e-12);
        EXPECT_NEAR(v, wantedV, 1e-12);
        // A hardly longer, hardly turned second vector is too parallel for a large tolerance.
        Point3D_d const almost = e1 * 1.01 + e2 * 1e-3;
        u = v = 7;
        EXPECT_FALSE(
            CoordinateRelativeForPlaneReperDbl(p.asArray(), e1.asArray(), almost.asArray(), u, v, 1e-5));
        EXPECT_FALSE(CoordinateRelativeForPlaneReperDbl(p.asArray(), e1.asArray(),
                                                        Point3D_d(notANumber).asArray(), u, v, 0));
        EXPECT_EQ(u + v, 14);
    }
}

TYPED_TEST(VectorGeometry, CirclesPassThroughTheirPoints)
{
    Random random(8);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 4);
        double const radius = random.uniform(0.1, 5);
        std::array<Triple<TypeParam>, 3> points;
        for (int i = 0; i < 3; ++i) {
            double const angle = 2.1 * i + random.uniform(-0.7, 0.7);
            points[static_cast<std::size_t>(i)] =
                frame.toWorld({radius * std::cos(angle), radius * std::sin(angle), 0});
        }
        Triple<TypeParam> centre;
        TypeParam squared = 0;
        ASSERT_TRUE(CircumscribeCircle(points[0].c, points[1].c, points[2].c, centre.c, squared));
        double const tolerance = 100 * this->epsilon * (1 + radius);
        expectNear(centre, frame.origin, tolerance);
        EXPECT_NEAR(squared, radius * radius, tolerance * (1 + radius));

        using Point = std::conditional_t<std::is_same_v<TypeParam, float>, Point3D, Point3D_d>;
        Point asPoints[3] = {points[0].c, points[1].c, points[2].c};
        TypeParam squaredOfPoints = 0;
        EXPECT_TRUE(CircumscribeCircle(asPoints, asPoints[0], squaredOfPoints)); // into one of them
        EXPECT_EQ(asPoints[0], Point(centre.c));
        EXPECT_EQ(squaredOfPoints, squared);

        double wideCentre[3], wideSquared = 0;
        ASSERT_TRUE(CircumscribeCircle(points[0].c, points[1].c, points[2].c, wideCentre, wideSquared));
        EXPECT_EQ(Point3D_d(Triple<TypeParam>(Point3D_d(wideCentre))), Point3D_d(centre));
    }
}

TYPED_TEST(VectorGeometry, CirclesFailByTheirTolerance)
{
    // The ratio of the largest weight to the sum grows with the inverse square of the height.
    bool const isFloat = std::is_same_v<TypeParam, float>;
    double const infinity = std::numeric_limits<double>::infinity();
    for (double height : {1.0, 0.025, 0.02, 2.5e-5, 2e-5, 0.0, notANumber, infinity}) {
        using Point = std::conditional_t<std::is_same_v<TypeParam, float>, Point3D, Point3D_d>;
        Point const points[3] = {Point(-1, 0, 0), Point(0, height, 0), Point(1, 0, 0)};
        TypeParam const * const p[3] = {points[0].asArray(), points[1].asArray(), points[2].asArray()};
        Point centre(5);
        TypeParam squared = 5, tripleSquared = 5, triple[3] = {5, 5, 5};
        double wideSquared = 5, wide[3] = {5, 5, 5};
        bool const isWide = height >= 2.5e-5 && height <= 1;
        bool const isFound = isFloat ? height >= 0.025 && height <= 1 : isWide;
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
        double const base = random.uniform(0.5, 2), height = random.uniform(0, 3),
                     foot = random.uniform(-2, 2);
        Point3D const a = narrow(frame.toWorld({foot, height, 0}));
        Point3D const b = narrow(frame.origin), c = narrow(frame.toWorld({base, 0, 0}));
        double const wanted = height * height / (base * base);
        EXPECT_NEAR(GetTriangleBulge(a.asArray(), b.asArray(), c.asArray()), wanted, 1e-5 * (1 + wanted));
        float const xs[4] = {9, 0, static_cast<float>(foot), static_cast<float>(base)};
        float const ys[4] = {9, 0, static_cast<float>(height), 0};
        EXPECT_NEAR(GetTriangleBulge2(xs, ys, 2), wanted, 1e-5 * (1 + wanted));
    }
    float const point[3] = {1, 1, 1}, other[3] = {};
    EXPECT_TRUE(std::isnan(GetTriangleBulge(other, point, point)));
}

TEST(VectorGeometry, FloatFormsComputeInDouble)
{
    // The squares of these coordinates leave the range of float.
    for (float scale : {1e25F, 1e-25F}) {
        Point3D const a(0, 0, 0), b(scale, 0, 0), c(scale, scale, 0), d(0, scale, scale);
        float out[3], other[3];
        Vector_Line2Point(a.asArray(), b.asArray(), c.asArray(), out);
        EXPECT_EQ(Point3D(out), Point3D(0, scale, 0));
        BuildDefPerpendicular(d.asArray(), out);
        EXPECT_NEAR(out[0] + out[1] + out[2], scale > 1 ? -1 : 0, 1e-6);
        if (scale > 1) {
            BuildUCSbyVector(b.asArray(), out, other);
            EXPECT_EQ(Point3D(other), Point3D(0, 0, scale));
        }
        EXPECT_FLOAT_EQ(cos_ABC(b, a, c), std::sqrt(0.5F));
        EXPECT_FLOAT_EQ(SemiPlanarCos2(a, b, c, d), 0.5F);
        EXPECT_FLOAT_EQ(GetTriangleBulge(c.asArray(), a.asArray(), b.asArray()), 1);
        float centre[3], radius = 0;
        ASSERT_TRUE(CircumscribeCircle(a.asArray(), b.asArray(), c.asArray(), centre, radius));
        EXPECT_FLOAT_EQ(centre[1], scale / 2);
    }
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/EulerAngles.h>
#include <QZmath/Foundation/LinearTransform.h>
#include <QZmath/Foundation/RotationMatrix.h>

#include "Rotations.h"

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

using qz_sampling::Random;
using qz_test::randomPoint;
using REmath::Point3D_d;

namespace
{

double const pi = std::acos(-1.0);
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
static_assert(sizeof(CRotationMatrix) == 9 * sizeof(double) && std::is_trivially_copyable_v<CRotationMatrix>);
static_assert(sizeof(RElinearTransform) == 12 * sizeof(double));

CRotationMatrix randomMatrix(Random & random)
{
    CRotationMatrix matrix;
    for (auto & row : matrix.m) {
        for (double & element : row)
            element = random.uniform(-1, 1);
    }
    return matrix;
}

CRotationMatrix randomRotation(Random & random)
{
    qz_test::Frame const frame = qz_test::randomFrame(random, 0);
    return CRotationMatrix::buildFromColumns(frame.axes[0], frame.axes[1], frame.axes[2]);
}

// Rotation of column vectors about a coordinate axis.
CRotationMatrix rotationAbout(int axis, double angle)
{
    CRotationMatrix matrix;
    int const next = (axis + 1) % 3, last = (axis + 2) % 3;
    matrix.m[next][next] = matrix.m[last][last] = std::cos(angle);
    matrix.m[last][next] = std::sin(angle);
    matrix.m[next][last] = -std::sin(angle);
    return matrix;
}

} // namespace

TEST(RotationMatrix, SymmetryIsJudgedInThreeWays)
{
    auto const with = [](double upper, double lower) {
        CRotationMatrix matrix = CRotationMatrix::Zero();
        matrix.m[0][2] = upper;
        matrix.m[2][0] = lower;
        return 4 * matrix.isSelfAdjoint() + 2 * matrix.isSelfAdjointAsFloats() + IsSelfAdjoint(matrix);
    };
    EXPECT_EQ(with(0, 0), 7);
    EXPECT_EQ(with(1, std::nextafter(1, 2)), 7);
    EXPECT_EQ(with(1, 1.0000001), 3);
    EXPECT_EQ(with(1, 1.0000002), 2);
    EXPECT_EQ(with(1e-9, 0), 1);
    EXPECT_EQ(with(1e9, 1e9 + 1), 2);
    EXPECT_EQ(with(notANumber, notANumber), 0);
}

TEST(RotationMatrix, InverseOfMatricesAndTransforms)
{
    Random random(1);
    for (int repetition = 0; repetition < 300; ++repetition) {
        CRotationMatrix const matrix = randomMatrix(random);
        CRotationMatrix inverse;
        ASSERT_TRUE(invertMatrix(matrix, inverse));
        double const condition =
            distance(matrix, CRotationMatrix::Zero()) * distance(inverse, CRotationMatrix::Zero());
        EXPECT_LT(distance(product(matrix, inverse), CRotationMatrix::Identity()), 1e-14 * condition);

        RElinearTransform const transform(matrix, randomPoint(random, 5));
        RElinearTransform back;
        ASSERT_TRUE(invertTransform(transform, back));
        Point3D_d const point = randomPoint(random, 5);
        EXPECT_LT((back.apply(transform.apply(point)) - point).length(), 1e-13 * condition);
        RElinearTransform inPlace(transform);
        ASSERT_TRUE(invertTransform(inPlace, inPlace));
        EXPECT_EQ(inPlace.apply(point), back.apply(point));
    }
    CRotationMatrix out = CRotationMatrix::Identity() * 3;
    RElinearTransform transformOut(out, {1, 2, 3});
    EXPECT_FALSE(invertMatrix(CRotationMatrix::Zero(), out));
    EXPECT_FALSE(invertMatrix(CRotationMatrix::buildFromRows({1, 2, 3}, {2, 4, 6}, {1, 0, 0}), out));
    EXPECT_FALSE(invertTransform(RElinearTransform::Zero(), transformOut));
    EXPECT_EQ(distance(out, CRotationMatrix::Identity() * 3), 0);
    EXPECT_EQ(transformOut.apply({1, 1, 1}), Point3D_d(4, 5, 6));
}

TEST(RotationMatrix, EigenvectorsAreColumnsOfUnitLength)
{
    Random random(2);
    Point3D_d vectors[3];
    double values[3];
    CRotationMatrix const half = randomMatrix(random), matrix = half + half.getTransposed();
    GetEigenVectorsSA(matrix, vectors, values, true);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(vectors[i].isUnitLength());
        Point3D_d const image = RElinearTransform(matrix, {0, 0, 0}).apply(vectors[i]);
        EXPECT_LT((image - vectors[i] * values[i]).length(), 1e-14);
    }
    EXPECT_THROW(GetEigenVectorsSA(CRotationMatrix::Identity() * notANumber, vectors, values, true),
                 std::runtime_error);
}

TEST(EulerAngles, AreRotationsAboutZYZ)
{
    Random random(3);
    for (int repetition = 0; repetition < 300; ++repetition) {
        double const angles[3] = {random.uniform(-3.1, 3.1), random.uniform(0.001, 3.14),
                                  random.uniform(-3.1, 3.1)};
        CRotationMatrix matrix, again;
        makeEulerMatrix(matrix, angles);
        CRotationMatrix const wanted = product(
            product(rotationAbout(2, angles[0]), rotationAbout(1, angles[1])), rotationAbout(2, angles[2]));
        EXPECT_LT(distance(matrix, wanted), 1e-15);
        double found[3];
        getEulerAnglesFromMatrix(matrix, found[0], found[1], found[2]);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(found[i], angles[i], 1e-9);
        CRotationMatrix const any = randomRotation(random);
        getEulerAnglesFromMatrix(any, found[0], found[1], found[2]);
        makeEulerMatrix(again, found);
        EXPECT_LT(distance(again, any), 1e-11);
    }
}

TEST(EulerAngles, DegenerateFramesHaveNoThirdAngle)
{
    for (double tilt : {0.0, 5e-6, pi - 5e-6, pi}) {
        double const angles[3] = {0.4, tilt, 0.3};
        CRotationMatrix matrix, again;
        makeEulerMatrix(matrix, angles);
        double found[3];
        getEulerAnglesFromMatrix(matrix, found[0], found[1], found[2]);
        EXPECT_EQ(found[2], 0);
        EXPECT_NEAR(found[0], tilt < 1 ? 0.7 : 0.1, 1e-5);
        makeEulerMatrix(again, found);
        EXPECT_LT(distance(again, matrix), 2e-5);
    }
    // Cosines that rounding has carried past 1 are taken back.
    double a0 = 9, a1 = 9, a2 = 9;
    getEulerAnglesFromMatrix(CRotationMatrix::Identity() * 1.0000001, a0, a1, a2);
    EXPECT_EQ(a0 + a1 + a2, 0);
    getEulerAnglesFromMatrix(rotationAbout(0, pi), a0, a1, a2);
    EXPECT_EQ(a1, pi);
    EXPECT_EQ(a2, 0);
}

TEST(LinearTransform, AxisRotationsFormAGroup)
{
    Random random(4);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 5);
        double const angle = random.uniform(-7, 7), other = random.uniform(-7, 7);
        RElinearTransform turn, turnOther, both;
        setAxisRotationTransform(turn, frame.origin, frame.axes[2], angle);
        // Another point of the same line gives the same rotation.
        setAxisRotationTransform(turnOther, frame.toWorld({0, 0, 3}), frame.axes[2], other);
        setAxisRotationTransform(both, frame.origin, frame.axes[2], angle + other);
        Point3D_d const local = randomPoint(random, 4);
        Point3D_d const point = frame.toWorld(local);
        double const c = std::cos(angle), s = std::sin(angle);
        Point3D_d const wanted =
            frame.toWorld({local.x() * c - local.y() * s, local.x() * s + local.y() * c, local.z()});
        EXPECT_LT((turn.apply(point) - wanted).length(), 1e-13);
        EXPECT_LT((turn.apply(turnOther.apply(point)) - both.apply(point)).length(), 1e-13);
        EXPECT_TRUE(turn.isOrtho());
        EXPECT_LT((turn.getInvertedOrtho().apply(turn.apply(point)) - point).length(), 1e-13);
    }
}

TEST(LinearTransform, OrthogonalityHasTheToleranceOfFloat)
{
    Random random(5);
    CRotationMatrix const rotation = randomRotation(random);
    EXPECT_TRUE(RElinearTransform(rotation, {1, 2, 3}).isOrtho());
    EXPECT_TRUE(RElinearTransform(rotation * -1, {1, 2, 3}).isOrtho()); // a reflection
    EXPECT_TRUE(RElinearTransform(rotation * (1 + 5e-8), {0, 0, 0}).isOrtho());
    EXPECT_FALSE(RElinearTransform(rotation * (1 + 2e-7), {0, 0, 0}).isOrtho());
    EXPECT_FALSE(RElinearTransform(rotation * notANumber, {0, 0, 0}).isOrtho());
    EXPECT_FALSE(RElinearTransform::Zero().isOrtho());
    // The map comes after its inverse, so a large shift does not cancel exactly.
    EXPECT_FALSE(RElinearTransform(rotation, {1e10, 2e10, 3e10}).isOrtho());
    EXPECT_TRUE(RElinearTransform(CRotationMatrix::Identity(), {1e10, 2e10, 3e10}).isOrtho());
}

TEST(LinearTransform, AddsTheShiftAfterTheFirstProduct)
{
    // What x and a large shift cancel does not swallow y.
    double const elements[3][3] = {{1, 1, 0}, {1, 0, 1}, {0, 1, 1}};
    double const shift[3] = {-1e16, -1e16, 1e16};
    Point3D_d const image = RElinearTransform(elements, shift).apply({1e16, 1, -1e16});
    EXPECT_EQ(image, Point3D_d(1, -1e16, 0));
}

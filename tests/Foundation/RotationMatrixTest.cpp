// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/EulerAngles.h>
#include <QZmath/Foundation/LinearTransform.h>
#include <QZmath/Foundation/RotationMatrix.h>

#include "Rotations.h"

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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
    return CRotationMatrix::buildFromRows(randomPoint(random), randomPoint(random), randomPoint(random));
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
    EXPECT_TRUE(with(0, 0) == 7 && with(1, std::nextafter(1, 2)) == 7);
    EXPECT_TRUE(with(1, 1.0000001) == 3 && with(1, 1.0000002) == 2);
    EXPECT_TRUE(with(1e-9, 0) == 1 && with(1e9, 1e9 + 1) == 2 && with(notANumber, notANumber) == 0);
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
        EXPECT_EQ(((matrix + matrix) / 49).m[1][2], 2 * matrix.m[1][2] / 49); // no product with 1 / 49

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
    for (CRotationMatrix const & singular :
         {CRotationMatrix::Zero(), CRotationMatrix::buildFromRows({1, 2, 3}, {2, 4, 6}, {1, 0, 0})})
        EXPECT_FALSE(invertMatrix(singular, out) || invertTransform({singular, {0, 0, 0}}, transformOut));
    EXPECT_EQ(distance(out, CRotationMatrix::Identity() * 3), 0);
    EXPECT_EQ(transformOut.apply({1, 1, 1}), Point3D_d(4, 5, 6));
}

TEST(EulerAngles, AreRotationsAboutZYZ)
{
    Random random(3);
    for (int repetition = 0; repetition < 300; ++repetition) {
        double const angles[3] = {random.uniform(-3.1, 3.1), random.uniform(0.001, 3.14),
                                  random.uniform(-3.1, 3.1)};
        CRotationMatrix matrix;
        makeEulerMatrix(matrix, angles);
        CRotationMatrix const wanted = product(
            product(rotationAbout(2, angles[0]), rotationAbout(1, angles[1])), rotationAbout(2, angles[2]));
        EXPECT_LT(distance(matrix, wanted), 1e-15);
        double found[3];
        getEulerAnglesFromMatrix(matrix, found[0], found[1], found[2]);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(found[i], angles[i], 1e-9);
    }
    // Degenerate frames have no third angle.
    double a0, a1, a2;
    for (double tilt : {0.0, 5e-6, pi - 5e-6, pi}) {
        double const angles[3] = {0.4, tilt, 0.3};
        CRotationMatrix matrix;
        makeEulerMatrix(matrix, angles);
        getEulerAnglesFromMatrix(matrix, a0, a1, a2);
        EXPECT_NEAR(a0, tilt < 1 ? 0.7 : 0.1, 1e-5);
        EXPECT_NEAR(a1, tilt, 1e-5);
        EXPECT_EQ(a2, 0);
    }
    // Cosines that rounding has carried past 1 are taken back.
    getEulerAnglesFromMatrix(CRotationMatrix::Identity() * 1.0000001, a0, a1, a2);
    EXPECT_TRUE(a0 == 0 && a1 == 0 && a2 == 0);
    getEulerAnglesFromMatrix(rotationAbout(0, pi), a0, a1, a2);
    EXPECT_TRUE(a1 == pi && a2 == 0);
}

TEST(LinearTransform, AxisRotationsTurnAboutTheirLine)
{
    Random random(4);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame const frame = qz_test::randomFrame(random, 5);
        double const angle = random.uniform(-7, 7), c = std::cos(angle), s = std::sin(angle);
        RElinearTransform turn;
        // Any point of the line will do.
        setAxisRotationTransform(turn, frame.toWorld({0, 0, random.uniform(-3, 3)}), frame.axes[2], angle);
        Point3D_d const local = randomPoint(random, 4), point = frame.toWorld(local);
        Point3D_d const wanted =
            frame.toWorld({local.x() * c - local.y() * s, local.x() * s + local.y() * c, local.z()});
        EXPECT_LT((turn.apply(point) - wanted).length(), 1e-13);
        EXPECT_TRUE(turn.isOrtho());
        EXPECT_LT((turn.getInvertedOrtho().apply(wanted) - point).length(), 1e-13);
    }
    // What x and a large shift cancel does not swallow y: the shift comes after the first product.
    double const elements[3][3] = {{1, 1, 0}, {1, 0, 1}, {0, 1, 1}}, shift[3] = {-1e16, -1e16, 1e16};
    EXPECT_EQ(RElinearTransform(elements, shift).apply({1e16, 1, -1e16}), Point3D_d(1, -1e16, 0));
}

TEST(LinearTransform, OrthogonalityHasTheToleranceOfFloat)
{
    Random random(5);
    CRotationMatrix const rotation = randomRotation(random);
    for (double factor : {1.0, -1.0, 1 + 5e-8, 1 + 2e-7, 0.0, notANumber}) // one is a reflection
        EXPECT_EQ(RElinearTransform(rotation * factor, {0, 0, 0}).isOrtho(),
                  std::abs(factor) - 1 < 1e-7 && factor != 0)
            << factor;
    // The map comes after its inverse, so a large shift does not cancel exactly.
    EXPECT_FALSE(RElinearTransform(rotation, {1e10, 2e10, 3e10}).isOrtho());
    EXPECT_TRUE(RElinearTransform(CRotationMatrix::Identity(), {1e10, 2e10, 3e10}).isOrtho());
}

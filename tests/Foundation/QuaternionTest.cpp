// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/EulerAngles.h>
#include <QZmath/Foundation/LinearTransform.h>
#include <QZmath/Foundation/Quaternion.h>

#include "Rotations.h"

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using qz_sampling::Random;

namespace
{

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

Quaternion randomQuaternion(Random & random)
{
    Quaternion quaternion(random.normal(), random.normal(), random.normal(), random.normal());
    quaternion.normalize();
    return quaternion;
}

Quaternion negated(Quaternion const & q) { return {-q.getScalar(), -q.getX(), -q.getY(), -q.getZ()}; }

CRotationMatrix matrixOf(Quaternion const & quaternion)
{
    CRotationMatrix matrix;
    quaternion.getRotationMatrix(matrix);
    return matrix;
}

bool isNear(CRotationMatrix const & a, CRotationMatrix const & b) { return distance(a, b) <= 2e-15; }

} // namespace

TEST(Quaternion, ProductsBelongToProductsOfMatrices)
{
    Random random(1);
    for (int repetition = 0; repetition < 300; ++repetition) {
        Quaternion const a = randomQuaternion(random), b = randomQuaternion(random);
        CRotationMatrix const left = matrixOf(a), right = matrixOf(b);
        EXPECT_TRUE(isNear(matrixOf(a * b), product(left, right)));
        Quaternion const inverse(a.getScalar(), -a.getX(), -a.getY(), -a.getZ());
        EXPECT_TRUE((a * inverse).areEqualTo(Quaternion(), 1e-15));
        EXPECT_TRUE(isNear(matrixOf(inverse), left.getTransposed()));
    }
}

TEST(Quaternion, MatricesAndEulerAnglesComeBack)
{
    Random random(2);
    for (int repetition = 0; repetition < 500; ++repetition) {
        // Half of them near a turn by pi, where the scalar is too small to divide by.
        Quaternion q = randomQuaternion(random);
        if (repetition % 2 == 0)
            q = Quaternion(q.getScalar() * 1e-9, q.getX(), q.getY(), q.getZ());
        q.normalize();
        Quaternion found;
        getQuaternionFromMatrix(matrixOf(q), found);
        EXPECT_TRUE(found.areEqualTo(q, 1e-15) || found.areEqualTo(negated(q), 1e-15));

        double const angles[3] = {random.uniform(-3, 3), random.uniform(0.01, 3.1), random.uniform(-3, 3)};
        Quaternion const fromAngles(angles[0], angles[1], angles[2]);
        CRotationMatrix wanted;
        makeEulerMatrix(wanted, angles);
        EXPECT_TRUE(isNear(matrixOf(fromAngles), wanted));
        double back[3];
        fromAngles.getEulerAngle(back[0], back[1], back[2]);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(back[i], angles[i], 1e-12);
    }
    Quaternion q(5, 5, 5, 5);
    getQuaternionFromMatrix(CRotationMatrix::Identity(), q);
    EXPECT_EQ(q, Quaternion());
    // A half turn about (1, 1, 0): x and y are equally large, x is taken.
    getQuaternionFromMatrix(CRotationMatrix::buildFromRows({0, 1, 0}, {1, 0, 0}, {0, 0, -1}), q);
    EXPECT_TRUE(q.areEqualTo({0, std::sqrt(0.5), std::sqrt(0.5), 0}, 1e-15));
}

TEST(Quaternion, TurnsColumnVectorsBackwardsAndIsTheIdentityWithoutALength)
{
    for (double angle : {0.3, -2.0, 3.0}) {
        Quaternion about[3];
        about[0].setToRotateAboutX(angle);
        about[1].setToRotateAboutY(angle);
        about[2].setToRotateAboutZ(angle);
        for (int axis = 0; axis < 3; ++axis) {
            RElinearTransform turn;
            setAxisRotationTransform(turn, {0, 0, 0}, {axis == 0, axis == 1, axis == 2}, -angle);
            EXPECT_TRUE(isNear(matrixOf(about[axis]), turn.matrix));
        }
    }
    // Only the form about x normalises, which shows on a NaN.
    Quaternion x, y, zero(0, 0, 0, 0), broken(1, notANumber, 0, 0), tiny(0, 1e-150, 0, 0);
    x.setToRotateAboutX(notANumber);
    y.setToRotateAboutY(notANumber);
    EXPECT_TRUE(x == Quaternion() && std::isnan(y.getScalar()));
    EXPECT_TRUE(broken != broken && !broken.areEqualTo(broken, 1));
    for (Quaternion * each : {&zero, &broken, &tiny})
        each->normalize();
    EXPECT_TRUE(zero == Quaternion() && broken == Quaternion() && std::abs(tiny.getX() - 1) < 1e-15);
}

TEST(Quaternion, SlerpHasConstantSpeedOnTheShorterArc)
{
    Random random(3);
    for (int repetition = 0; repetition < 200; ++repetition) {
        Quaternion const a = randomQuaternion(random), b = randomQuaternion(random);
        double const t = random.uniform(0.01, 0.99),
                     angle = std::acos(std::abs(Quaternion::dotProduct(a, b)));
        Quaternion const between = Quaternion::slerp(a, b, t);
        EXPECT_NEAR(Quaternion::dotProduct(a, between), std::cos(t * angle), 1e-13);
        EXPECT_NEAR(std::abs(Quaternion::dotProduct(b, between)), std::cos((1 - t) * angle), 1e-13);
        EXPECT_EQ(Quaternion::slerp(a, negated(b), t), between);
        // The ends are exact, and the last one is b itself, not the nearer -b.
        EXPECT_TRUE(Quaternion::slerp(a, b, -1) == a && Quaternion::slerp(a, b, 1) == b &&
                    Quaternion::slerp(a, negated(b), 2) == negated(b));
    }
    Quaternion a, b;
    b.setToRotateAboutZ(0.028); // cosine 0.99990200
    Quaternion const blend = Quaternion::slerp(a, b, 0.25);
    EXPECT_EQ(blend.getScalar(), 0.75 * 1 + 0.25 * b.getScalar());
    EXPECT_LT(blend.length(), 1 - 1e-6);
    b.setToRotateAboutZ(0.0284); // cosine 0.99989918
    EXPECT_NEAR(Quaternion::slerp(a, b, 0.25).length(), 1, 1e-15);
    EXPECT_TRUE(std::isnan(Quaternion::slerp(a, b, notANumber).getZ()));
}

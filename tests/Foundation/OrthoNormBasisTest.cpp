// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/OrthoNormBasis.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <support/Frames.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using qz_sampling::Random;
using qz_test::randomPoint;
using REmath::Point3D_d;
using REmath::Detail::dot;

TEST(OrthoNormBasis, BuildersKeepTheirFirstDirectionAndTheSideOfTheSecond)
{
    Random random(1);
    for (int repetition = 0; repetition < 300; ++repetition) {
        Point3D_d const first = randomPoint(random, 4), second = randomPoint(random, 4);
        Point3D_d const origin = randomPoint(random, 1000);
        COrthoNormBasis const byV0V1 = COrthoNormBasis::buildRightHandByV0V1AndOrigin(first, second, origin);
        COrthoNormBasis const byV2V0 = COrthoNormBasis::buildRightHandByV2V0AndOrigin(first, second, origin);
        COrthoNormBasis const byV2 = COrthoNormBasis::buildAnyRightHandByV2AndOrigin(first, origin);
        COrthoNormBasis const byE0E1 =
            COrthoNormBasis::buildRightHandByE0E1AndOrigin(byV2.getE0(), byV2.getE1(), origin);
        for (COrthoNormBasis const & basis : {byV0V1, byV2V0, byV2, byE0E1}) {
            EXPECT_TRUE(basis.isOrthoNormRightHand());
            EXPECT_EQ(basis.getOrigin(), origin);
        }
        for (Point3D_d const & along : {byV0V1.getE0(), byV2V0.getE2(), byV2.getE2()})
            EXPECT_NEAR(dot(along, first), first.length(), 1e-14);
        EXPECT_NEAR(std::hypot(dot(byV0V1.getE2(), second), dot(byV2V0.getE1(), second)), 0, 1e-14);
        EXPECT_GT(std::min(dot(byV0V1.getE1(), second), dot(byV2V0.getE0(), second)), 0);
        bool const isNearX = std::abs(first.x()) > 0.9 * first.length();
        EXPECT_NEAR(isNearX ? byV2.getE0().y() : byV2.getE0().x(), 0, 1e-15);
        EXPECT_LT((byE0E1.getE2() - byV2.getE2()).length(), 1e-15);
    }
}

TEST(OrthoNormBasis, CoordinatesGoInAndOutOfAnyFrame)
{
    Random random(3);
    for (int repetition = 0; repetition < 200; ++repetition) {
        qz_test::Frame frame = qz_test::randomFrame(random, 10);
        bool const isSkew = repetition % 2 == 0;
        for (Point3D_d & axis : frame.axes)
            axis = isSkew ? axis * 3 + randomPoint(random, 1) : axis;
        Point3D_d const * const e = frame.axes.data();
        COrthoNormBasis basis = COrthoNormBasis::buildByOrthsAndOrigin(
            e[0], e[1], e[2], isSkew ? frame.origin : Point3D_d(7, 7, 7));
        if (!isSkew)
            basis.setOrigin(frame.origin);
        Point3D_d const local = randomPoint(random, 9), world = basis.transformCoordsFromBasis(local);
        EXPECT_LT((basis.transformCoordsToBasis(world) - local).length(), 1e-12);
        if (isSkew)
            basis.setOrigin(world);
        double const * const shift = basis.getForthCoordTransform().shift;
        for (int i = 0; i < 3; ++i) {
            // The axes that are read are the reciprocal ones.
            EXPECT_NEAR(dot(basis.getE(0), e[i]), i == 0, 1e-14);
            // A new origin goes by the transposed axes, even though they are no inverse of skew ones.
            EXPECT_NEAR(shift[i], -dot(e[i], basis.getOrigin()), 1e-11);
        }
        if (isSkew)
            continue;
        EXPECT_LT((frame.toWorld(local) - world).length(), 1e-13);
        EXPECT_LT((basis.projectPointToXYPlane(world) - frame.toWorld({local.x(), local.y(), 0})).length(),
                  1e-13);
        EXPECT_EQ(basis.getWorldBasisInLocalCoords().transformCoordsToBasis(local), world);
        // Moving keeps the axes and takes the origin along.
        COrthoNormBasis const moved = basis.getMovedTo(world);
        EXPECT_TRUE(moved.getE1() == basis.getE1() && moved.isOrthoNorm());
        EXPECT_LT(moved.transformCoordsToBasis(world).length(), 1e-13);
    }
}

TEST(OrthoNormBasis, JudgesUnitLengthMoreStrictlyThanTheInverse)
{
    Point3D_d const zero(0), far(1e12, -3e12, 7e12), x = COrthoNormBasis::IdentityE0();
    Point3D_d const y = COrthoNormBasis::IdentityE1(), z = COrthoNormBasis::IdentityE2();
    auto const build = [&](Point3D_d const & e0, Point3D_d const & e1) {
        return COrthoNormBasis::buildByOrthsAndOrigin(e0, e1, z, far);
    };
    auto const turned = [](double angle) { return Point3D_d(std::cos(angle), std::sin(angle), 0); };
    // Angles have the tolerance of float; the origin does not matter, however far it is.
    EXPECT_TRUE(build(x, y).isOrthoNorm() && build(turned(1e-8), y).isOrthoNorm());
    EXPECT_FALSE(build(x * (1 + 1e-15), y).isOrthoNorm() || build(turned(3e-7), y).isOrthoNorm());
    EXPECT_TRUE(build(y, x).isOrthoNorm() && !build(y, x).isOrthoNormRightHand());
    EXPECT_TRUE(COrthoNormBasis::Identity().isOrthoNormRightHand());
    EXPECT_EQ(COrthoNormBasis::Identity().transformCoordsToBasis({1, 2, 3}), x + y * 2 + z * 3);
    // Degenerate directions give no frame.
    for (COrthoNormBasis const & basis : {COrthoNormBasis::buildAnyRightHandByV2AndOrigin(zero, far),
                                          COrthoNormBasis::buildRightHandByV0V1AndOrigin(x, x * 2, far),
                                          COrthoNormBasis::buildRightHandByV2V0AndOrigin(x, zero, far),
                                          COrthoNormBasis::buildRightHandByE0E1AndOrigin(x, x, far),
                                          COrthoNormBasis::buildByOrthsAndOrigin(x, x, x, far)}) {
        EXPECT_FALSE(basis.isOrthoNorm());
        EXPECT_EQ(basis.getOrigin(), far);
    }
}

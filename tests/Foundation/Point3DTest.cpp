// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Point3D.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using REmath::HPoint3D;
using REmath::HPoint3D_d;
using REmath::Point3D;
using REmath::Point3D_d;

static_assert(sizeof(Point3D) == 3 * sizeof(float) && std::is_trivially_copyable_v<Point3D>);
static_assert(sizeof(Point3D_d) == 3 * sizeof(double) && std::is_trivially_copyable_v<Point3D_d>);
static_assert(sizeof(HPoint3D) == 4 * sizeof(float) && std::is_trivially_copyable_v<HPoint3D>);
static_assert(sizeof(HPoint3D_d) == 4 * sizeof(double) && std::is_trivially_copyable_v<HPoint3D_d>);

TEST(Point3D, ScalingKeepsThePrecisionOfItsFactor)
{
    // 2^24 + 2 times 1.5: exact in double, rounded once; the float factor 0.1 and the double 0.1 differ.
    float const large = 16777218.0F;
    EXPECT_EQ((Point3D(large) * 0.1).x(), static_cast<float>(static_cast<double>(large) * 0.1));
    EXPECT_EQ((0.1F * Point3D(large)).y(), large * 0.1F);
    EXPECT_NE((Point3D(large) * 0.1).x(), (Point3D(large) * 0.1F).x());
    // A float factor would round 2^24 + 1 to 2^24.
    EXPECT_EQ((Point3D(1) * 16777217LL).x(), 16777216.0F);
    EXPECT_EQ((Point3D(3) * 16777217).x(), 50331652.0F);
    // True division: 5 / 49 differs from 5 * (1 / 49).
    EXPECT_EQ((Point3D_d(5) / 49).z(), 5.0 / 49.0);
    EXPECT_NE(5.0 / 49.0, 5.0 * (1.0 / 49.0));
    EXPECT_EQ(HPoint3D(1, 2, 3, 4) * 2 - HPoint3D(1), HPoint3D(1, 3, 5, 7));
    EXPECT_EQ(-HPoint3D_d(1, 2, 3, 4) / 2, HPoint3D_d(-0.5, -1, -1.5, -2));
    EXPECT_TRUE(std::signbit((-Point3D(0)).x()));
}

TEST(Point3D, NormalizedVectorsHaveUnitLengthAndDirection)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(-1, 1);
    for (int round = 0; round < 200; ++round) {
        Point3D_d const vector = Point3D_d(coordinate(random), coordinate(random), coordinate(random)) *
                                 std::pow(10.0, round / 10 - 9);
        Point3D_d unit = vector.unitLength();
        EXPECT_NEAR(unit.angleCos(vector), 1, 1e-14);
        EXPECT_TRUE(unit.isUnitLength() && !(unit * (1 + 1e-14)).isUnitLength());

        Point3D const single(vector.asArray());
        double widened[3];
        single.unitLength().toArray(widened);
        EXPECT_NEAR(Point3D_d(widened).length(), 1, 3e-7);

        double raw[3];
        vector.toArray(raw);
        NormalizeVector(raw);
        EXPECT_EQ(Point3D_d(raw), unit);
    }
    for (float const scale : {1e-30F, 3e20F, std::numeric_limits<float>::denorm_min()}) {
        float extreme[] = {scale, 0, -scale};
        NormalizeVectorNoZeroCheck(extreme);
        EXPECT_NEAR(extreme[0], std::sqrt(0.5), 1e-7);
        EXPECT_NEAR(extreme[2], -std::sqrt(0.5), 1e-7);
    }
    float zero[3] = {};
    double zeroDouble[3] = {};
    NormalizeVector(zero);
    NormalizeVectorNoZeroCheck(zeroDouble);
    EXPECT_TRUE(Point3D(zero) == Point3D(0) && Point3D_d(zeroDouble) == Point3D_d(0));
    EXPECT_TRUE(std::isnan(Point3D(0).normalize().x()));
    EXPECT_TRUE(std::isnan(Point3D_d(0).angleCos(Point3D_d(1, 0, 0))));
}

TEST(Point3D, HomogeneousOrderIgnoresWAndDirection)
{
    auto const check = [](auto const & left, auto const & right, auto const & farther) {
        EXPECT_TRUE(!(left < right) && !(right < left) && left <= right && left >= right && left != right);
        EXPECT_TRUE(farther > left && farther >= left && left < farther && !(farther <= left));
        EXPECT_TRUE(left.norm() == 3 && farther.norm2() == 16);
    };
    check(HPoint3D(1, 2, 2, 9), HPoint3D(3, 0, 0, 0), HPoint3D(0, 4, 0, -100));
    check(HPoint3D_d(1, 2, 2, 9), HPoint3D_d(3, 0, 0, 0), HPoint3D_d(0, 4, 0, -100));
    // A point comes back from its homogeneous form, which no w scales.
    HPoint3D single(Point3D(1, 2, 3));
    HPoint3D_d wide(Point3D_d(1, 2, 3));
    single.w() = 7;
    wide /= 0.5;
    EXPECT_TRUE(single.projectW() == Point3D(1, 2, 3) && wide == HPoint3D_d(2, 4, 6, 2));
    EXPECT_EQ((wide -= HPoint3D_d(1, 1, 1, 0)).projectW(), Point3D_d(1, 3, 5));
    // Each square overflows nothing and is rounded to float; their sum is not.
    EXPECT_EQ(HPoint3D(4097, 4096, 0, 0).norm2(), static_cast<double>(4097.0F * 4097.0F) + 16777216.0);
}

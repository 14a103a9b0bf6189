// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Colors.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace
{

// Packed channels as `std::tuple`, so that one comparison shows all.
auto bytesOf(unsigned long c) { return std::make_tuple(c & 255, c >> 8 & 255, c >> 16 & 255, c >> 24); }

TEST(Colors, EveryPackedColorSurvivesAllForms)
{
    for (unsigned long packed = 0; packed < 1ul << 24; ++packed) {
        QZ_rgb_color asDouble;
        float asFloat[4], back[3], h, s, v;
        colorI2RGB(asDouble, packed);
        colorI2F(packed, asFloat);
        ASSERT_EQ(colorRGB2I(asDouble), packed);
        QZ_rgb_color const ofBytes(int(packed & 255), int(packed >> 8 & 255), int(packed >> 16));
        ASSERT_EQ(colorRGB2I({ofBytes.red(), ofBytes.green(), ofBytes.blue()}), packed);
        ASSERT_EQ(colorF2I(asFloat), packed);
        RGBtoHSV(asFloat, h, s, v);
        ASSERT_TRUE(h >= -1 && h <= 360 && s >= 0 && s <= 1 && v >= 0 && v <= 1) << std::hex << packed;
        HSVtoRGB(h, s, v, back);
        ASSERT_EQ(colorF2I(back), packed) << h << ' ' << s << ' ' << v;
    }
}

TEST(Colors, PackingTruncatesAndWraps)
{
    double const nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(colorRGB2I(QZ_rgb_color(nan, -1.0, -0.1)), 0xE702u << 8); // -254.5 and -25 truncated
    float const channels[4] = {2, -0.5f, 1, -1.0f / 255};
    EXPECT_EQ(bytesOf(colorF2I_4(channels)), std::make_tuple(254u, 0x81u, 255u, 0u));
    QZ_rgb_color widened;
    // The product in `float` may reach a half that the one in `double` stays below.
    int differences = 0;
    for (int k = 0; k < 255; ++k) {
        float const half[3] = {(float(k) + 0.5f) / 255, 0, 0};
        colorF2RGB(widened, half);
        EXPECT_EQ(colorF2I(half), (unsigned long)(half[0] * 255.0f + 0.5));
        differences += colorF2I(half) != colorRGB2I(widened);
    }
    EXPECT_GT(differences, 0);
}

TEST(Colors, ScaleRunsFromBlueOverGreenToRed)
{
    EXPECT_EQ(ColorMap(-std::numeric_limits<float>::infinity()), ColorMap(0));
    EXPECT_EQ(ColorMap(std::numeric_limits<float>::quiet_NaN()), ColorMap(0));
    EXPECT_EQ(ColorMap(std::numeric_limits<float>::infinity()), ColorMap(1));
    for (int k = 0; k <= 100000; ++k) {
        double const t = k / 100000.0;
        auto const [red, green, blue, fourth] = bytesOf(ColorMap(float(t)));
        EXPECT_EQ(fourth, 0u);
        EXPECT_NEAR(double(red), std::max(0.0, 510 * (t - 0.5)) - 0.5, 0.51) << t;
        EXPECT_NEAR(double(green), 255 - 510 * std::abs(t - 0.5) - 0.5, 0.51) << t;
        EXPECT_NEAR(double(blue), std::max(0.0, 510 * (0.5 - t)) - 0.5, 0.51) << t;
    }
}

TEST(Colors, HuesStandAtTheirDegrees)
{
    float const wheel[6][3] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, {1, 0, 1}};
    for (int k = 0; k < 6; ++k) {
        float h, s, v;
        RGBtoHSV(wheel[k], h, s, v);
        EXPECT_EQ(std::make_tuple(h, s, v), std::make_tuple(60.0f * float(k), 1.0f, 1.0f));
    }
    float h, s, v, rgb[3] = {0.2f, 0.2f, 0.2f};
    RGBtoHSV(rgb, rgb[0], rgb[1], rgb[2]); // in place
    EXPECT_EQ(std::make_tuple(rgb[0], rgb[1], rgb[2]), std::make_tuple(0.0f, 0.0f, 0.2f));
    float const black[3] = {0, 0, 0};
    RGBtoHSV(black, h, s, v);
    EXPECT_EQ(std::make_tuple(h, s, v), std::make_tuple(-1.0f, 0.0f, 0.0f));
    for (float outside : {360.0f, 1e30f, -60.0f}) { // all on a border of the last sector
        HSVtoRGB(outside, 1, 1, rgb);
        EXPECT_EQ(std::make_tuple(rgb[0], rgb[1], rgb[2]), std::make_tuple(1.0f, 0.0f, 1.0f)) << outside;
    }
}

} // namespace

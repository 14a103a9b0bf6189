// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Colours in three forms: three `double`, three or four `float`, and one integer. In the first two a channel
/// runs from 0 to 1.
///
/// The integer is 0x00bbggrr, a byte for each channel; only `colorF2I_4` uses the top byte. The byte of a
/// channel c is the whole part of 255 c + 0.5. What lies outside 0 to 1 is not held back but wraps: 2, which
/// makes 510, has the byte 254. NaN has the byte 0.
///
/// Nothing here fails or checks its arguments; all functions can be called from any thread.

/// Red, green and blue.
class QZ_rgb_color
{
public:
    /// Black.
    QZ_rgb_color() = default;
    /// Channels from 0 to 1, taken as they are.
    QZ_rgb_color(double red, double green, double blue) : m_red(red), m_green(green), m_blue(blue) {}
    /// Channels from 0 to 255.
    QZ_rgb_color(int red, int green, int blue)
        : m_red(red * colCoef), m_green(green * colCoef), m_blue(blue * colCoef)
    {}

    double red() const { return m_red; }
    double green() const { return m_green; }
    double blue() const { return m_blue; }
    double & red() { return m_red; }
    double & green() { return m_green; }
    double & blue() { return m_blue; }
    void set_red(double red) { m_red = red; }
    void set_green(double green) { m_green = green; }
    void set_blue(double blue) { m_blue = blue; }

private:
    static constexpr double colCoef = 1.0 / 255;

    double m_red = 0;
    double m_green = 0;
    double m_blue = 0;
};

/// From a packed colour; each channel is rounded to `float`.
QZMATH_API void colorI2RGB(QZ_rgb_color & out, unsigned long c);
/// To a packed colour.
QZMATH_API unsigned long colorRGB2I(QZ_rgb_color const & c);
/// From three `float`.
QZMATH_API void colorF2RGB(QZ_rgb_color & out, float const * c);
/// Three `float` to a packed colour, multiplied in `float`.
QZMATH_API unsigned long colorF2I(float const * c);
/// Four `float` to a packed colour, the fourth in the top byte.
QZMATH_API unsigned long colorF2I_4(float const * c);
/// A packed colour to three `float`.
QZMATH_API void colorI2F(unsigned long c, float * out);

/// The packed colour of a value on a scale from blue at 0 over green at 0.5 to red at 1. What lies outside
/// takes the colour of the nearer end, NaN that of 0.
QZMATH_API unsigned long ColorMap(float v);

/// Hue in degrees from 0 to 360, saturation and value from 0 to 1, of three channels. Black has a hue of -1
/// and other greys one of 0, both with a saturation of 0. Outputs may lie in `rgb`.
QZMATH_API void RGBtoHSV(float const * rgb, float & h, float & s, float & v);

/// The inverse of `RGBtoHSV`. Meant for hues from 0 up to and without 300 by their sector of 60 degrees; all
/// others are taken to lie in the last one, from 300 to 360, by their distance from the multiple of 60 below.
QZMATH_API void HSVtoRGB(float h, float s, float v, float * rgb);

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Colors.h>

#include <QZmath/Foundation/Rounding.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace
{

std::uint32_t lowByte(int channel) { return static_cast<std::uint32_t>(channel) & 0xffu; }

unsigned long pack(int red, int green, int blue, int fourth = 0)
{
    return lowByte(red) | lowByte(green) << 8 | lowByte(blue) << 16 | lowByte(fourth) << 24;
}

float channel(unsigned long packed, unsigned index)
{
    return static_cast<float>(packed >> (8 * index) & 0xff) / 255.0f;
}

int scaled(float value) { return rndtoni(value * 255.0f); }

} // namespace

void colorI2RGB(QZ_rgb_color & out, unsigned long c)
{
    out = QZ_rgb_color(channel(c, 0), channel(c, 1), channel(c, 2));
}

unsigned long colorRGB2I(QZ_rgb_color const & c)
{
    return pack(rndtoni(c.red() * 255.0), rndtoni(c.green() * 255.0), rndtoni(c.blue() * 255.0));
}

void colorF2RGB(QZ_rgb_color & out, float const * c) { out = QZ_rgb_color(c[0], c[1], c[2]); }

unsigned long colorF2I(float const * c) { return pack(scaled(c[0]), scaled(c[1]), scaled(c[2])); }

unsigned long colorF2I_4(float const * c)
{
    return pack(scaled(c[0]), scaled(c[1]), scaled(c[2]), scaled(c[3]));
}

void colorI2F(unsigned long c, float * out)
{
    for (unsigned index = 0; index < 3; ++index)
        out[index] = channel(c, index);
}

unsigned long ColorMap(float v)
{
    float const t = v > 0 ? std::min(v, 1.0f) : 0.0f;
    if (t < 0.5f)
        return pack(0, static_cast<int>(510 * t), static_cast<int>((1 - t - t) * 255));
    return pack(static_cast<int>((-1 + t + t) * 255), static_cast<int>((2 - t - t) * 255), 0);
}

void RGBtoHSV(float const * rgb, float & h, float & s, float & v)
{
    float const red = rgb[0], green = rgb[1], blue = rgb[2];
    float const greatest = std::max({red, green, blue});
    float const spread = greatest - std::min({red, green, blue});
    v = greatest;
    if (greatest == 0) {
        s = 0;
        h = -1;
        return;
    }
    s = spread / greatest;
    if (spread == 0) {
        h = 0;
        return;
    }
    float sector = 0;
    if (red == greatest)
        sector = (green - blue) / spread;
    else if (green == greatest)
        sector = (blue - red) / spread + 2;
    else
        sector = (red - green) / spread + 4;
    float const degrees = sector * 60;
    h = degrees < 0 ? degrees + 360 : degrees;
}

void HSVtoRGB(float h, float s, float v, float * rgb)
{
    auto const set = [rgb](float red, float green, float blue) {
        rgb[0] = red;
        rgb[1] = green;
        rgb[2] = blue;
    };
    if (s == 0) {
        set(v, v, v);
        return;
    }
    float const x = h / 60;
    float const sector = std::floor(x); // stays floating, so that a huge hue is a harmless other one
    float const f = x - sector;
    float const p = (1 - s) * v;
    float const q = (1 - s * f) * v;
    float const t = (1 - s * (1 - f)) * v;
    if (sector == 0)
        set(v, t, p);
    else if (sector == 1)
        set(q, v, p);
    else if (sector == 2)
        set(p, v, t);
    else if (sector == 3)
        set(p, q, v);
    else if (sector == 4)
        set(t, p, v);
    else
        set(v, p, q);
}

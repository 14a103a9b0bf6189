// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

namespace QZmath::Viewing
{

/// A place, direction or colour for drawing, where `float` is enough.
struct Vec3
{
    float x = 0, y = 0, z = 0;

    static Vec3 of(float const * values) { return {values[0], values[1], values[2]}; }
    float operator[](int axis) const { return axis == 0 ? x : axis == 1 ? y : z; }
    friend Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
    friend Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
    friend Vec3 operator*(float s, Vec3 a) { return {s * a.x, s * a.y, s * a.z}; }
    friend Vec3 operator*(Vec3 a, Vec3 b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
    friend float dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
    friend Vec3 cross(Vec3 a, Vec3 b)
    {
        return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
    }
    float length() const { return std::sqrt(x * x + y * y + z * z); }
    /// The direction; z for one without a length.
    Vec3 unit() const
    {
        float const size = length();
        return size > 0 && std::isfinite(size) ? (1 / size) * *this : Vec3{0, 0, 1};
    }
};

inline Vec3 mix(Vec3 a, Vec3 b, float share) { return (1 - share) * a + share * b; }

} // namespace QZmath::Viewing

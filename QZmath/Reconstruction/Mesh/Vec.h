// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace QZmath::Stages
{

/// A place or a direction, in the coordinates of the mesh. A plain value for inner loops.
struct Vec
{
    double coords[3] = {0, 0, 0};

    static Vec of(float const * from) { return {{from[0], from[1], from[2]}}; }
    double operator[](std::size_t axis) const { return coords[axis]; }
    double & operator[](std::size_t axis) { return coords[axis]; }

    void store(float * to) const
    {
        for (std::size_t axis = 0; axis < 3; ++axis)
            to[axis] = static_cast<float>(coords[axis]);
    }
    double squared() const { return coords[0] * coords[0] + coords[1] * coords[1] + coords[2] * coords[2]; }
    double length() const { return std::sqrt(squared()); }
};

inline Vec operator+(Vec const & a, Vec const & b) { return {{a[0] + b[0], a[1] + b[1], a[2] + b[2]}}; }
inline Vec operator-(Vec const & a, Vec const & b) { return {{a[0] - b[0], a[1] - b[1], a[2] - b[2]}}; }
inline Vec operator*(Vec const & a, double f) { return {{a[0] * f, a[1] * f, a[2] * f}}; }
inline double dot(Vec const & a, Vec const & b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
inline Vec cross(Vec const & a, Vec const & b)
{
    return {{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}};
}

struct Triangle
{
    Vec a, b, c;

    /// Of twice the area's length, on the side from which the corners run counter-clockwise.
    Vec areaNormal() const { return cross(b - a, c - a); }
    double area() const { return 0.5 * areaNormal().length(); }
    Vec centroid() const { return (a + b + c) * (1.0 / 3.0); }

    /// Sine of the least angle; 0 for a triangle without area. The least angle is below 60 degrees, so this
    /// orders triangles as the angle does.
    double leastSine() const
    {
        double const squares[3] = {(b - a).squared(), (c - b).squared(), (a - c).squared()};
        double const least = std::min({squares[0], squares[1], squares[2]});
        double const product = squares[0] * squares[1] * squares[2];
        return least > 0 ? areaNormal().length() * std::sqrt(least / product) : 0.0;
    }
};

/// Squared distance of a point to a segment, which may be a point.
inline double squaredDistance(Vec const & point, Vec const & a, Vec const & b)
{
    Vec const along = b - a;
    double const square = along.squared();
    double const t = square > 0 ? std::clamp(dot(point - a, along) / square, 0.0, 1.0) : 0.0;
    return (point - (a + along * t)).squared();
}

/// Squared distance of a point to a triangle, which may be a segment or a point.
inline double squaredDistance(Vec const & point, Triangle const & triangle)
{
    Vec const normal = triangle.areaNormal();
    double const square = normal.squared();
    if (square > 0) {
        Vec const & a = triangle.a;
        Vec const & b = triangle.b;
        Vec const & c = triangle.c;
        bool const isAbove = dot(cross(b - a, point - a), normal) >= 0 &&
                             dot(cross(c - b, point - b), normal) >= 0 &&
                             dot(cross(a - c, point - c), normal) >= 0;
        if (isAbove) {
            double const height = dot(point - a, normal);
            return height * height / square;
        }
    }
    return std::min({squaredDistance(point, triangle.a, triangle.b),
                     squaredDistance(point, triangle.b, triangle.c),
                     squaredDistance(point, triangle.c, triangle.a)});
}

} // namespace QZmath::Stages

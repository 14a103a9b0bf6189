// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace REmath::Detail
{

inline bool isFinite(Point3D_d const & p)
{
    return std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z());
}

/// Circle in plane coordinates; the third coordinate of the centre is 0.
struct PlaneCircle
{
    Point3D_d center;
    double radius = 0;

    bool isFinite() const { return Detail::isFinite(center) && std::isfinite(radius); }
};

/// Without the third coordinate.
inline double planeDistance(Point3D_d const & p, Point3D_d const & q)
{
    double const x = p.x() - q.x(), y = p.y() - q.y();
    return std::sqrt(x * x + y * y);
}

/// The centre relative to p0 of the circle through p0, p0 + a, p0 + b, times the determinant of their
/// products.
struct Circumcircle
{
    Circumcircle(Point3D_d const & a, Point3D_d const & b)
    {
        double const aa = dot(a, a), bb = dot(b, b), ab = dot(a, b);
        determinant = aa * bb - ab * ab;
        offset = a * (bb / 2 * (aa - ab) / determinant) + b * (aa / 2 * (bb - ab) / determinant);
    }

    double determinant;
    Point3D_d offset;
};

/// The circle through three points of the plane. False when there is none.
bool circleThrough(Point3D_d const & p0, Point3D_d const & p1, Point3D_d const & p2, PlaneCircle & circle);

/// Numbers of the lowest and the highest sample along the axis along which they are farther apart, the first
/// of equal ones.
std::pair<std::size_t, std::size_t> extremes(std::vector<Point3D_d> const & samples);

/// Circle of least squares in the differences |p - c|² - r² of the samples. False when there is none.
bool fitPlainCircle(std::vector<Point3D_d> const & samples, PlaneCircle & circle);

} // namespace REmath::Detail

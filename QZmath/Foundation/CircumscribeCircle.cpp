// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/CircumscribeCircle.h>

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <cmath>
#include <initializer_list>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::dot;
using REmath::Detail::widen;

namespace
{

template <class Coord>
constexpr double tolerance = 1e-9;
template <>
constexpr double tolerance<float> = 1e-3F;

struct Circle
{
    Point3D_d centre;
    double squaredRadius = 0;
};

bool circleThrough(Point3D_d const & a, Point3D_d const & b, Point3D_d const & c, double leastRatio,
                   Circle & circle)
{
    Point3D_d const ab = b - a;
    Point3D_d const ac = c - a;
    Point3D_d const bc = c - b;
    double const weightA = dot(bc, bc) * dot(ab, ac);
    double const weightB = dot(ac, ac) * -dot(ab, bc);
    double const weightC = dot(ab, ab) * dot(ac, bc);
    double const sum = weightA + weightB + weightC;
    for (double weight : {weightA, weightB, weightC}) {
        if (!(std::abs(leastRatio * weight) < std::abs(sum)))
            return false;
    }
    circle.centre = (a * weightA + b * weightB + c * weightC) / sum;
    Point3D_d const spoke = a - circle.centre;
    circle.squaredRadius = dot(spoke, spoke);
    return true;
}

template <class Coord, class Result>
bool circleThrough(Coord const * a, Coord const * b, Coord const * c, Result * centre, Result & radius)
{
    Circle circle;
    if (!circleThrough(Point3D_d(a), Point3D_d(b), Point3D_d(c), tolerance<Result>, circle))
        return false;
    circle.centre.toArray(centre);
    radius = static_cast<Result>(circle.squaredRadius);
    return true;
}

} // namespace

bool CircumscribeCircle(Point3D const * points, Point3D & centre, float & radius)
{
    Circle circle;
    if (!circleThrough(widen(points[0]), widen(points[1]), widen(points[2]), tolerance<float>, circle)) {
        radius = REmath::st_NoValueMark;
        return false;
    }
    centre.fromArray(circle.centre.asArray());
    radius = static_cast<float>(circle.squaredRadius);
    return true;
}

bool CircumscribeCircle(Point3D_d const * points, Point3D_d & centre, double & radius)
{
    Circle circle;
    if (!circleThrough(points[0], points[1], points[2], tolerance<double>, circle)) {
        radius = REmath::st_NoValueMark;
        return false;
    }
    centre = circle.centre;
    radius = circle.squaredRadius;
    return true;
}

bool CircumscribeCircle(double const * a, double const * b, double const * c, double * centre,
                        double & radius)
{
    return circleThrough(a, b, c, centre, radius);
}

bool CircumscribeCircle(float const * a, float const * b, float const * c, double * centre, double & radius)
{
    return circleThrough(a, b, c, centre, radius);
}

bool CircumscribeCircle(float const * a, float const * b, float const * c, float * centre, float & radius)
{
    return circleThrough(a, b, c, centre, radius);
}

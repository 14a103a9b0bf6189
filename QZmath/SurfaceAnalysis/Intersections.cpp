// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Intersections.h>

#include <QZmath/Foundation/VectorProductsDetail.h>
#include <QZmath/SurfaceAnalysis/Distances.h>

#include <algorithm>
#include <limits>

using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;

namespace
{

// Parameters of the nearest points of two lines whose starts are `delta` apart. False when the squared sine
// of their angle is no more than `leastSquaredSine`.
bool nearestParameters(Point3D_d const & d1, Point3D_d const & d2, Point3D_d const & delta,
                       double leastSquaredSine, double & t1, double & t2)
{
    double const a = dot(d1, d1);
    double const b = dot(d2, d2);
    double const c = dot(d1, d2);
    double const determinant = a * b - c * c;
    if (!(leastSquaredSine * a * b < determinant))
        return false;
    double const along1 = dot(d1, delta);
    double const along2 = dot(d2, delta);
    t1 = (b * along1 - c * along2) / determinant;
    t2 = (c * along1 - a * along2) / determinant;
    return true;
}

template <class Coord>
bool nearestOfLines(Coord const * p1, Coord const * d1, Coord const * p2, Coord const * d2, Coord * params)
{
    double t1 = 0, t2 = 0;
    if (!nearestParameters(Point3D_d(d1), Point3D_d(d2), Point3D_d(p2) - Point3D_d(p1), 1e-6, t1, t2))
        return false;
    params[0] = static_cast<Coord>(t1);
    params[1] = static_cast<Coord>(t2);
    return true;
}

template <class Coord>
bool meet(Coord const * d1, Coord const * d2, Coord * delta, Coord * params, Coord tolerance2)
{
    Point3D_d const first(d1), second(d2), between(delta);
    double t1 = 0, t2 = 0;
    if (!nearestParameters(first, second, between, 0.0076, t1, t2))
        return false;
    params[0] = static_cast<Coord>(t1);
    params[1] = static_cast<Coord>(t2);
    Point3D_d const left = between + second * t2 - first * t1;
    left.toArray(delta);
    return dot(left, left) < static_cast<double>(tolerance2);
}

template <class Coord>
void mediumPoint(Coord const * p1, Coord const * p2, Coord const * d1, Coord const * d2, Coord const * params,
                 Coord * result)
{
    Point3D_d const sum =
        Point3D_d(p1) + Point3D_d(p2) + Point3D_d(d1) * params[0] + Point3D_d(d2) * params[1];
    (sum / 2).toArray(result);
}

// A triangle by a vertex and the two sides there, and where a line meets its plane.
struct PlaneHit
{
    PlaneHit(float const * a, float const * b, float const * c, float const * origin, float const * dir)
        : corner(a), u(Point3D_d(b) - corner), v(Point3D_d(c) - corner)
    {
        Point3D_d const normal = cross(u, v);
        Point3D_d const start(origin), direction(dir);
        double const rise = dot(direction, normal);
        exists = rise < 0 || rise > 0;
        point = start + direction * (dot(normal, corner - start) / rise);
    }

    Point3D_d corner, u, v;
    Point3D_d point;
    bool exists; // Whether `point` has a meaning: false for a parallel line and on NaN.
};

// Whether `w` lies on the side of the line along `u` to which `v` points, or on the line.
bool onSideOf(Point3D_d const & u, Point3D_d const & v, Point3D_d const & w)
{
    return dot(u, u) * dot(v, w) - dot(u, w) * dot(u, v) >= 0;
}

} // namespace

bool MakeMinDist2Lines(float const * p1, float const * d1, float const * p2, float const * d2, float * params)
{
    return nearestOfLines(p1, d1, p2, d2, params);
}

bool MakeMinDist2Lines(double const * p1, double const * d1, double const * p2, double const * d2,
                       double * params)
{
    return nearestOfLines(p1, d1, p2, d2, params);
}

bool meetTwoVectors(float const * d1, float const * d2, float * delta, float * params, float tolerance2)
{
    return meet(d1, d2, delta, params, tolerance2);
}

bool meetTwoVectors(double const * d1, double const * d2, double * delta, double * params, double tolerance2)
{
    return meet(d1, d2, delta, params, tolerance2);
}

void makeTwoVectorsMediumPoint(float const * p1, float const * p2, float const * d1, float const * d2,
                               float const * params, float * result)
{
    mediumPoint(p1, p2, d1, d2, params, result);
}

void makeTwoVectorsMediumPoint(double const * p1, double const * p2, double const * d1, double const * d2,
                               double const * params, double * result)
{
    mediumPoint(p1, p2, d1, d2, params, result);
}

bool IntersectTriangLine(float const * a, float const * b, float const * c, float const * origin,
                         float const * dir, float * hit)
{
    PlaneHit const plane(a, b, c, origin, dir);
    if (!plane.exists)
        return false;
    plane.point.toArray(hit);
    Point3D_d const w = plane.point - plane.corner;
    if (!onSideOf(plane.u, plane.v, w) || !onSideOf(plane.v, plane.u, w))
        return false;
    Point3D_d const fromB = w - plane.u;
    return onSideOf(plane.v - plane.u, -plane.u, fromB);
}

bool IntersectTriangLineFree(float const * a, float const * b, float const * c, float const * origin,
                             float const * dir, float * hit, float margin, bool & inside, float * overshoot,
                             float * dist2)
{
    inside = true;
    if (overshoot)
        *overshoot = 0;
    PlaneHit const plane(a, b, c, origin, dir);
    if (!plane.exists)
        return false;
    plane.point.toArray(hit);
    Point3D_d const w = plane.point - plane.corner;
    double const uu = dot(plane.u, plane.u);
    double const vv = dot(plane.v, plane.v);
    double const uv = dot(plane.u, plane.v);
    double const determinant = uu * vv - uv * uv;
    if (determinant == 0)
        return false;
    double const uw = dot(plane.u, w);
    double const vw = dot(plane.v, w);
    double const s = (vv * uw - uv * vw) / determinant;
    double const t = (uu * vw - uv * uw) / determinant;

    double outermost = 0;
    bool withinMargin = true;
    for (double share : {s, t, s + t}) {
        outermost = std::max({outermost, -share, share - 1});
        withinMargin =
            withinMargin && share >= -static_cast<double>(margin) && share <= 1 + static_cast<double>(margin);
    }
    inside = !(outermost > 0);
    if (overshoot)
        *overshoot = static_cast<float>(outermost);
    if (!withinMargin)
        return false;
    if (dist2) {
        *dist2 = 0;
        if (!inside) {
            Point3D_d const cornerB(b), cornerC(c);
            double const * const point = plane.point.asArray();
            double const least =
                std::min({DistancePoint2Segment(point, plane.corner.asArray(), cornerB.asArray()),
                          DistancePoint2Segment(point, cornerB.asArray(), cornerC.asArray()),
                          DistancePoint2Segment(point, cornerC.asArray(), plane.corner.asArray()),
                          static_cast<double>(std::numeric_limits<float>::max())});
            *dist2 = static_cast<float>(least);
        }
    }
    return true;
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Distances.h>

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <limits>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;
using REmath::Detail::widen;

namespace
{

struct NearestOnSegment
{
    double squaredDistance;
    double t;
    int where;
    Point3D_d foot;
};

inline NearestOnSegment nearestOnSegment(Point3D_d const & p, Point3D_d const & a, Point3D_d const & b)
{
    Point3D_d const edge = b - a;
    Point3D_d const fromA = p - a;
    double const squaredToA = dot(fromA, fromA);
    double const squaredLength = dot(edge, edge);
    if (squaredLength == 0)
        return {squaredToA, 0, segmentStart, a};
    double const t = dot(edge, fromA) / squaredLength;
    if (t > 0 && t < 1) {
        Point3D_d const foot = a + edge * t;
        Point3D_d const offset = p - foot;
        return {dot(offset, offset), t, segmentInterior, foot};
    }
    Point3D_d const fromB = p - b;
    double const squaredToB = dot(fromB, fromB);
    if (squaredToB > squaredToA)
        return {squaredToA, 0, segmentStart, a};
    return {squaredToB, 1, segmentEnd, b};
}

template <class Coord>
NearestOnSegment nearestOnSegment(Coord const * p, Coord const * a, Coord const * b)
{
    return nearestOnSegment(Point3D_d(p), Point3D_d(a), Point3D_d(b));
}

template <class Coord>
Coord distanceInPlane(Coord const * p, Coord const * a, Coord const * b, Coord & t, int * where, Coord * foot)
{
    NearestOnSegment const nearest =
        nearestOnSegment(Point3D_d(p[0], p[1], 0), Point3D_d(a[0], a[1], 0), Point3D_d(b[0], b[1], 0));
    t = static_cast<Coord>(nearest.t);
    if (where)
        *where = nearest.where;
    if (foot) {
        foot[0] = static_cast<Coord>(nearest.foot.x());
        foot[1] = static_cast<Coord>(nearest.foot.y());
    }
    return static_cast<Coord>(nearest.squaredDistance);
}

struct NearestOnTriangle
{
    double squaredDistance;
    int where;
    Point3D_d foot;
};

inline NearestOnTriangle nearestOnTriangle(Point3D_d const & p, Point3D_d const (&vertices)[3])
{
    // Below this squared sine of the angle between two sides their product is no reliable normal, and the
    // interior is nearer to the sides than `double` tells.
    constexpr double leastSquaredSine = 1e-24;
    Point3D_d const sides[3] = {vertices[1] - vertices[0], vertices[2] - vertices[1],
                                vertices[0] - vertices[2]};
    Point3D_d const normal = cross(sides[2], sides[0]);
    double const squaredNormal = dot(normal, normal);
    bool beyond[3] = {true, true, true};
    if (squaredNormal > leastSquaredSine * dot(sides[0], sides[0]) * dot(sides[2], sides[2])) {
        bool inside = true;
        for (int side = 0; side < 3; ++side) {
            beyond[side] = !(dot(normal, cross(sides[side], p - vertices[side])) > 0);
            inside = inside && !beyond[side];
        }
        if (inside) {
            double const height = dot(normal, p - vertices[0]) / squaredNormal;
            return {height * height * squaredNormal, triangleInterior, p - normal * height};
        }
    }
    // The nearest point lies on a side that the point is beyond of.
    NearestOnTriangle nearest = {std::numeric_limits<double>::quiet_NaN(), triangleVertex0, vertices[0]};
    bool first = true;
    for (int side = 0; side < 3; ++side) {
        if (!beyond[side])
            continue;
        int const next = side == 2 ? 0 : side + 1;
        NearestOnSegment const onSide = nearestOnSegment(p, vertices[side], vertices[next]);
        if (!first && !(onSide.squaredDistance < nearest.squaredDistance))
            continue;
        first = false;
        int const where = onSide.where == segmentInterior ? triangleEdge01 + side
                          : onSide.where == segmentStart  ? side
                                                          : next;
        nearest = {onSide.squaredDistance, where, onSide.foot};
    }
    return nearest;
}

} // namespace

float DistancePoint2Line(float const * p, float const * q, float const * dir)
{
    Point3D_d const direction(dir);
    Point3D_d const offset = Point3D_d(p) - Point3D_d(q);
    double const squaredLength = dot(direction, direction);
    double s = dot(direction, offset);
    if (squaredLength > 0)
        s /= squaredLength;
    Point3D_d const residue = offset - direction * s;
    return static_cast<float>(dot(residue, residue));
}

float DistancePoint2Segment(float const * p, float const * a, float const * b)
{
    return static_cast<float>(nearestOnSegment(p, a, b).squaredDistance);
}

double DistancePoint2Segment(double const * p, double const * a, double const * b)
{
    return nearestOnSegment(p, a, b).squaredDistance;
}

double DistancePoint2Segment(float const * p, double const * a, double const * b)
{
    return nearestOnSegment(Point3D_d(p), Point3D_d(a), Point3D_d(b)).squaredDistance;
}

float DistancePoint2Segment(float const * p, float const * a, float const * b, float & t)
{
    NearestOnSegment const nearest = nearestOnSegment(p, a, b);
    t = static_cast<float>(nearest.t);
    return static_cast<float>(nearest.squaredDistance);
}

double DistancePoint2Segment(double const * p, double const * a, double const * b, double & t)
{
    NearestOnSegment const nearest = nearestOnSegment(p, a, b);
    t = nearest.t;
    return nearest.squaredDistance;
}

float DistancePoint2Segment(float const * p, float const * a, float const * b, float * foot)
{
    NearestOnSegment const nearest = nearestOnSegment(p, a, b);
    nearest.foot.toArray(foot);
    return static_cast<float>(nearest.squaredDistance);
}

double DistancePoint2Segment(double const * p, double const * a, double const * b, double * foot)
{
    NearestOnSegment const nearest = nearestOnSegment(p, a, b);
    nearest.foot.toArray(foot);
    return nearest.squaredDistance;
}

float DistancePoint2Segment(float const * p, float const * a, float const * b, float * foot, int & where)
{
    NearestOnSegment const nearest = nearestOnSegment(p, a, b);
    nearest.foot.toArray(foot);
    where = nearest.where;
    return static_cast<float>(nearest.squaredDistance);
}

float DistancePoint2Segment2D(float const * p, float const * a, float const * b, float & t, int * where,
                              float * foot)
{
    return distanceInPlane(p, a, b, t, where, foot);
}

double DistancePoint2Segment2D(double const * p, double const * a, double const * b, double & t, int * where,
                               double * foot)
{
    return distanceInPlane(p, a, b, t, where, foot);
}

float distancePointTriangle2(float const * p, Point3D const * vertices)
{
    Point3D_d const widened[3] = {widen(vertices[0]), widen(vertices[1]), widen(vertices[2])};
    return static_cast<float>(nearestOnTriangle(Point3D_d(p), widened).squaredDistance);
}

float distancePointTriangle2(float const * p, float const ** vertices, int & where, float * foot)
{
    Point3D_d const widened[3] = {Point3D_d(vertices[0]), Point3D_d(vertices[1]), Point3D_d(vertices[2])};
    NearestOnTriangle const nearest = nearestOnTriangle(Point3D_d(p), widened);
    nearest.foot.toArray(foot);
    where = nearest.where;
    return static_cast<float>(nearest.squaredDistance);
}

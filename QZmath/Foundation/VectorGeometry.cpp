// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/VectorGeometry.h>

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cmath>
#include <limits>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;
using REmath::Detail::widen;

namespace
{

// The part of `vector` across `direction`, which need not be of unit length.
Point3D_d partAcross(Point3D_d const & vector, Point3D_d const & direction)
{
    return vector - direction * (dot(direction, vector) / dot(direction, direction));
}

template <class Coord>
void vectorFromLine(Coord const * a, Coord const * b, Coord const * p, Coord * out)
{
    Point3D_d const origin(a);
    partAcross(Point3D_d(p) - origin, Point3D_d(b) - origin).toArray(out);
}

template <class Coord>
void defaultPerpendicular(Point3D_d const & v, Coord * out)
{
    double const squaredInXY = v.x() * v.x() + v.y() * v.y();
    if (squaredInXY > 0.1)
        (Point3D_d(-v.y(), v.x(), 0) / std::sqrt(squaredInXY)).toArray(out);
    else
        (Point3D_d(0, -v.z(), v.y()) / std::sqrt(v.y() * v.y() + v.z() * v.z())).toArray(out);
}

template <class Coord>
void frameAround(Coord const * axis, Coord * p, Coord * q)
{
    Point3D_d const v(axis);
    Coord perpendicular[3];
    defaultPerpendicular(v, perpendicular);
    // From the rounded perpendicular, so that q is perpendicular to what the caller gets.
    cross(v, Point3D_d(perpendicular)).toArray(q);
    std::copy_n(perpendicular, 3, p);
}

bool coincide(Point3D const & a, Point3D const & b)
{
    constexpr double epsilon = std::numeric_limits<float>::epsilon();
    for (int axis = 0; axis < 3; ++axis) {
        double const left = a.asArray()[axis];
        double const right = b.asArray()[axis];
        if (!(std::abs(left - right) <= (std::abs(left) + std::abs(right)) * epsilon))
            return false;
    }
    return true;
}

// What lies across the line a b of the vectors from a to c and to d; zero vectors when the line is a point.
struct PartsAcrossLine
{
    PartsAcrossLine(Point3D const & a, Point3D const & b, Point3D const & c, Point3D const & d)
    {
        if (coincide(a, b))
            return;
        Point3D_d const line = widen(b) - widen(a);
        ofC = partAcross(widen(c) - widen(a), line);
        ofD = partAcross(widen(d) - widen(a), line);
    }

    Point3D_d ofC;
    Point3D_d ofD;
};

float triangleBulge(Point3D_d const & a, Point3D_d const & b, Point3D_d const & c)
{
    Point3D_d const base = c - b;
    Point3D_d const height = partAcross(a - b, base);
    return static_cast<float>(dot(height, height) / dot(base, base));
}

} // namespace

void Vector_Line2Point(float const * a, float const * b, float const * p, float * out)
{
    vectorFromLine(a, b, p, out);
}

void Vector_Line2Point(double const * a, double const * b, double const * p, double * out)
{
    vectorFromLine(a, b, p, out);
}

void BuildDefPerpendicular(float const * v, float * out) { defaultPerpendicular(Point3D_d(v), out); }
void BuildDefPerpendicular(double const * v, double * out) { defaultPerpendicular(Point3D_d(v), out); }

void BuildUCSbyVector(float const * v, float * p, float * q) { frameAround(v, p, q); }
void BuildUCSbyVector(double const * v, double * p, double * q) { frameAround(v, p, q); }

bool PointInPlane(Point3D_d const & p, Point3D_d const & origin, Point3D_d const & normal, double tol)
{
    Point3D_d const offset = p - origin;
    if (tol * tol > dot(offset, offset))
        return true;
    Point3D_d const acrossNormal = cross(offset.unitLength(), normal);
    return std::abs(dot(acrossNormal, acrossNormal) - 1) < tol;
}

bool VectorsAreParallel(Point3D_d const & a, Point3D_d const & b, double tol)
{
    Point3D_d const normal = cross(a, b);
    return dot(normal, normal) < tol * dot(a, a) * dot(b, b);
}

float cos_ABC(Point3D const & a, Point3D const & b, Point3D const & c)
{
    Point3D_d const toA = widen(a) - widen(b);
    Point3D_d const toC = widen(c) - widen(b);
    double const squaredLengths = dot(toA, toA) * dot(toC, toC);
    if (!(squaredLengths > 0))
        return REmath::st_NoValueMark;
    return static_cast<float>(dot(toA, toC) / std::sqrt(squaredLengths));
}

float SemiPlanarScalarProd(Point3D const & a, Point3D const & b, Point3D const & c, Point3D const & d)
{
    PartsAcrossLine const parts(a, b, c, d);
    return static_cast<float>(dot(parts.ofC, parts.ofD));
}

float SemiPlanarCos2(Point3D const & a, Point3D const & b, Point3D const & c, Point3D const & d)
{
    constexpr double leastSquaredRatio = 1e-12F;
    PartsAcrossLine const parts(a, b, c, d);
    double const squaredC = dot(parts.ofC, parts.ofC);
    double const squaredD = dot(parts.ofD, parts.ofD);
    if (leastSquaredRatio * squaredD >= squaredC || leastSquaredRatio * squaredC >= squaredD)
        return REmath::st_NoValueMark;
    double const product = dot(parts.ofC, parts.ofD);
    return static_cast<float>(product * std::abs(product) / squaredC / squaredD);
}

bool CoordinateRelativeForPlaneReperDbl(double const * p, double const * e1, double const * e2, double & u,
                                        double & v, double tol)
{
    Point3D_d const point(p), first(e1), second(e2);
    double const g11 = dot(first, first);
    double const g22 = dot(second, second);
    double const g12 = dot(first, second);
    double const determinant = g11 * g22 - g12 * g12;
    if (!(std::min(g11 * g11, g22 * g22) * tol < std::abs(determinant)))
        return false;
    double const a = dot(first, point);
    double const b = dot(second, point);
    u = (g22 * a - g12 * b) / determinant;
    v = (g11 * b - g12 * a) / determinant;
    return true;
}

float GetTriangleBulge(float const * a, float const * b, float const * c)
{
    return triangleBulge(Point3D_d(a), Point3D_d(b), Point3D_d(c));
}

float GetTriangleBulge2(float const * xs, float const * ys, int i)
{
    return triangleBulge(Point3D_d(xs[i], ys[i], 0), Point3D_d(xs[i - 1], ys[i - 1], 0),
                         Point3D_d(xs[i + 1], ys[i + 1], 0));
}

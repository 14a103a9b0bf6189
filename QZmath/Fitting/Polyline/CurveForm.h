// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <vector>

namespace PolylineDetail
{

/// Lengths and curvatures below this (the epsilon of `float`) count as 0.
inline constexpr double zeroTolerance = 1.1920928955078125e-7;

/// Line or circle in the plane, A (x² + y²) + B x + C y + D = 0 with B² + C² - 4 A D = 1.
///
/// A line has A = 0 and the unit normal (B, C); a circle has the signed radius 0.5 / A. Near the curve the
/// value of the form is close to the signed distance, and a set of four parameters passes smoothly from arc
/// to line.
struct CurveForm
{
    double a, b, c, d;

    static CurveForm read(double const * params) { return {params[0], params[1], params[2], params[3]}; }
    static CurveForm circle(REmath::Point3D_d const & centre, double radius);
    void write(double * params) const;

    double value(double x, double y) const { return a * (x * x + y * y) + b * x + c * y + d; }
    /// Gradient of the value.
    double valueByX(double x) const { return 2 * a * x + b; }
    double valueByY(double y) const { return 2 * a * y + c; }
    /// 0 where the gradient at (x, y) is parallel to (u, v).
    double tangency(double x, double y, double u, double v) const
    {
        return valueByX(x) * v - valueByY(y) * u;
    }
    bool isStraight() const { return -zeroTolerance < a && a < zeroTolerance; }
    bool isFinite() const;

    /// Normal of the curve at a point near it: of unit length, as far as that of a line is.
    REmath::Point3D_d normalAt(REmath::Point3D_d const & point) const;
};

/// The nearest point of a line; of a circle, the point at its signed radius on the ray from the centre
/// through `point`, so with a negative one that on the far side. A point without such a place stays.
REmath::Point3D_d projectToCurve(CurveForm const & form, REmath::Point3D_d const & point);

/// Normal of a free curve at its end or at its start: the mean of the perpendiculars of its outermost 4
/// chords that are longer than `zeroTolerance`; 0 if there are none. `BuildDefPerpendicular` turns chords
/// shorter than 0.316 out of the plane, so a curve sampled more densely than that has no direction in it
/// here.
REmath::Point3D_d freeCurveNormal(std::vector<REmath::Point3D_d> const & points, bool isAtEnd);

/// `BuildDefPerpendicular` of a vector in the plane.
REmath::Point3D_d perpendicularInPlane(double u, double v);

double dot(REmath::Point3D_d const & a, REmath::Point3D_d const & b);

} // namespace PolylineDetail

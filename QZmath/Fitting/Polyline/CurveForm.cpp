// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Polyline/CurveForm.h>

#include <QZmath/Foundation/VectorGeometry.h>

#include <cmath>
#include <cstddef>

using REmath::Point3D_d;

namespace PolylineDetail
{

double dot(Point3D_d const & a, Point3D_d const & b) { return a.x() * b.x() + a.y() * b.y() + a.z() * b.z(); }

Point3D_d perpendicularInPlane(double u, double v)
{
    double const vector[3] = {u, v, 0};
    double perpendicular[3];
    BuildDefPerpendicular(vector, perpendicular);
    return perpendicular;
}

CurveForm CurveForm::circle(Point3D_d const & centre, double radius)
{
    double const x = centre.x(), y = centre.y(), curvature = 0.5 / radius;
    return {curvature, -2 * x * curvature, -2 * y * curvature, (x * x + y * y - radius * radius) * curvature};
}

void CurveForm::write(double * params) const
{
    params[0] = a;
    params[1] = b;
    params[2] = c;
    params[3] = d;
}

bool CurveForm::isFinite() const
{
    return std::isfinite(a) && std::isfinite(b) && std::isfinite(c) && std::isfinite(d);
}

Point3D_d CurveForm::normalAt(Point3D_d const & point) const
{
    if (isStraight())
        return {b, c, 0};
    double normal[3] = {point.x() + b * 0.5 / a, point.y() + c * 0.5 / a, 0};
    NormalizeVector(normal);
    return normal;
}

Point3D_d projectToCurve(CurveForm const & form, Point3D_d const & point)
{
    if (form.isStraight()) {
        double const norm2 = form.b * form.b + form.c * form.c;
        double const step = norm2 > 0 ? (form.b * point.x() + form.c * point.y() + form.d) / norm2 : 0;
        return {point.x() - step * form.b, point.y() - step * form.c, 0};
    }
    double const radius = 0.5 / form.a;
    Point3D_d const centre(-form.b * radius, -form.c * radius, 0);
    Point3D_d const ray(point.x() - centre.x(), point.y() - centre.y(), 0);
    double const length = ray.length();
    return length > 0 ? centre + ray * (radius / length) : point;
}

Point3D_d freeCurveNormal(std::vector<Point3D_d> const & points, bool isAtEnd)
{
    constexpr int chordsWanted = 4;
    Point3D_d sum;
    int chords = 0;
    std::size_t const count = points.size();
    for (std::size_t step = 1; step < count && chords < chordsWanted; ++step) {
        std::size_t const chordEnd = isAtEnd ? count - step : step;
        Point3D_d const chord = points[chordEnd] - points[chordEnd - 1];
        if (chord.length() < zeroTolerance)
            continue;
        sum += perpendicularInPlane(chord.x(), chord.y());
        ++chords;
    }
    return chords > 0 ? sum / chords : sum;
}

} // namespace PolylineDetail

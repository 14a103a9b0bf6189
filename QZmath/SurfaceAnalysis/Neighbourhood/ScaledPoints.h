// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/VectorProductsDetail.h>
#include <QZmath/SurfaceAnalysis/QuadraticForm.h>

#include <cmath>

namespace REmath::Detail
{

/// The points of a neighbourhood relative to the first one, in units of their root mean square distance.
class ScaledPoints
{
public:
    ScaledPoints(int n, Point3D const * points) : m_size(n), m_points(points), m_origin(widen(points[0]))
    {
        double sum = 0;
        for (int i = 1; i < n; ++i) {
            Point3D_d const arm = widen(points[i]) - m_origin;
            sum += dot(arm, arm);
        }
        m_scale = std::sqrt(sum / (n - 1));
        m_factor = 1 / m_scale;
    }

    int size() const { return m_size; }
    double scale() const { return m_scale; }
    /// False when all points are in one place, and on NaN and infinities.
    bool isProper() const { return m_scale > 0 && std::isfinite(m_scale) && std::isfinite(m_factor); }
    Point3D_d operator[](int i) const { return (widen(m_points[i]) - m_origin) * m_factor; }

private:
    int m_size;
    Point3D const * m_points;
    Point3D_d m_origin;
    double m_scale;
    double m_factor;
};

/// The weight of a point of the neighbourhood in fits of quadrics.
inline double weightOf(Point3D_d const & p) { return 0.1 / (dot(p, p) + 0.1); }

/// What the fit minimises, without the points before `first`.
inline double residual(CQuadraticForm const & form, ScaledPoints const & points, int first)
{
    double sum = 0;
    for (int i = first; i < points.size(); ++i) {
        Point3D_d const p = points[i];
        double const value = form.eval(p);
        sum += weightOf(p) * value * value;
    }
    return sum;
}

} // namespace REmath::Detail

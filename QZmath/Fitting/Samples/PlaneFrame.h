// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <vector>

namespace REmath::Detail
{

/// Coordinates in a plane of space: the frame in which circles and polylines are fitted. All 0 until a plane
/// is known.
struct PlaneFrame
{
    /// Takes the plane of least squares of `points`, with their centroid as origin and the default axes of
    /// its normal. False, with the frame as before, when there is none.
    bool fit(std::vector<Point3D_d> const & points);

    /// Coordinates of a point in the plane; the third is 0.
    Point3D_d toPlane(Point3D_d const & point) const { return directionToPlane(point - m_origin); }
    Point3D_d directionToPlane(Point3D_d const & direction) const;
    /// Back to space.
    Point3D_d toSpace(double x, double y) const { return m_origin + m_axisU * x + m_axisV * y; }
    Point3D_d directionToSpace(Point3D_d const & direction) const
    {
        return m_axisU * direction.x() + m_axisV * direction.y();
    }

    Point3D_d m_axisU, m_axisV, m_origin, m_normal;
};

} // namespace REmath::Detail

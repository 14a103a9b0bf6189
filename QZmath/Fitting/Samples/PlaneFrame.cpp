// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Samples/PlaneFrame.h>

#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

namespace REmath::Detail
{

bool PlaneFrame::fit(std::vector<Point3D_d> const & points)
{
    double plane[4], centroid[3], axisU[3], axisV[3];
    if (!FitPlaneToPointSet(points, plane, centroid))
        return false;
    BuildUCSbyVector(plane, axisU, axisV);
    m_axisU = axisU;
    m_axisV = axisV;
    m_origin = centroid;
    m_normal = plane;
    return true;
}

Point3D_d PlaneFrame::directionToPlane(Point3D_d const & direction) const
{
    return {dot(direction, m_axisU), dot(direction, m_axisV), 0};
}

} // namespace REmath::Detail

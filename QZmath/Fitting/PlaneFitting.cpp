// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneFitting.h>

#include <QZmath/Fitting/Samples/PointScatter.h>

#include <algorithm>
#include <cmath>

using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

template <class Point>
bool fitPlane(std::vector<Point> const & points, double * coefficients, double * centroid)
{
    if (points.size() < 3)
        return false;
    REmath::Detail::PointScatter const scatter(points.data(), points.size());
    double normal[3];
    if (!REmath::Detail::leastEigenvector(scatter.elements(), 1e30, normal))
        return false;
    double offset = 0;
    for (std::size_t axis = 0; axis < 3; ++axis)
        offset += normal[axis] * scatter.centroid()[axis];
    if (!std::isfinite(offset))
        return false;
    std::copy_n(normal, 3, coefficients);
    coefficients[3] = offset;
    std::copy_n(scatter.centroid().data(), 3, centroid);
    return true;
}

} // namespace

bool FitPlaneToPointSet(std::vector<Point3D> const & points, double * coefficients, double * centroid)
{
    return fitPlane(points, coefficients, centroid);
}

bool FitPlaneToPointSet(std::vector<Point3D_d> const & points, double * coefficients, double * centroid)
{
    return fitPlane(points, coefficients, centroid);
}

void CalcPlaneFitError(std::vector<Point3D> const & points, Point3D_d const & center,
                       Point3D_d const & normal, double & maxError, double & meanError)
{
    double greatest = 0;
    double sum = 0;
    for (Point3D const & point : points) {
        double const height = (center.x() - static_cast<double>(point.x())) * normal.x() +
                              (center.y() - static_cast<double>(point.y())) * normal.y() +
                              (center.z() - static_cast<double>(point.z())) * normal.z();
        double const error = std::abs(height);
        greatest = std::max(greatest, error);
        sum += error;
    }
    maxError = greatest;
    meanError = sum / static_cast<double>(points.size());
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/VectorRotation.h>

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <cmath>

using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;

namespace
{

// Squared sine up to which a vector counts as lying along the axis.
constexpr double squaredSineAlong = 1e-4F;

Point3D_d partAcross(Point3D_d const & axis, Point3D_d const & v)
{
    return v - axis * (dot(axis, v) / dot(axis, axis));
}

Point3D_d turned(Point3D_d const & axis, Point3D_d const & v, Point3D_d const & across, double angle)
{
    Point3D_d const normal = cross(axis, v);
    Point3D_d const afterQuarter =
        normal * std::sqrt(dot(across, across) / dot(normal, normal)) + (v - across);
    return v * std::cos(angle) + afterQuarter * std::sin(angle);
}

} // namespace

void RotateVector(double * out, double const * axis, double const * v, double angle)
{
    Point3D_d const direction(axis), vector(v);
    Point3D_d const across = partAcross(direction, vector);
    if (dot(across, across) <= dot(vector, vector) * squaredSineAlong)
        vector.toArray(out);
    else
        turned(direction, vector, across, angle).toArray(out);
}

void MakeRotationMatrix(REmath::Matrix<double> & m, double const * axis, double angle)
{
    Point3D_d const direction(axis);
    if (m.rows() != 3 || m.cols() != 3)
        m.resize(3, 3);
    for (int row = 0; row < 3; ++row) {
        Point3D_d const unit(row == 0, row == 1, row == 2);
        Point3D_d const across = partAcross(direction, unit);
        // NaN, of an axis of length 0, fails the comparison.
        Point3D_d const image =
            squaredSineAlong < dot(across, across) ? turned(direction, unit, across, angle) : unit;
        for (int col = 0; col < 3; ++col)
            m.elem(row, col) = image.asArray()[col];
    }
}

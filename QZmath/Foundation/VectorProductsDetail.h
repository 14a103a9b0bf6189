// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

/// The two products of vectors that the geometry functions share. The sums run in the order of the axes.
namespace REmath::Detail
{

inline double dot(Point3D_d const & left, Point3D_d const & right)
{
    return left.x() * right.x() + left.y() * right.y() + left.z() * right.z();
}

inline Point3D_d cross(Point3D_d const & left, Point3D_d const & right)
{
    return {left.y() * right.z() - left.z() * right.y(), left.z() * right.x() - left.x() * right.z(),
            left.x() * right.y() - left.y() * right.x()};
}

inline Point3D_d widen(Point3D const & point) { return {point.asArray()}; }

} // namespace REmath::Detail

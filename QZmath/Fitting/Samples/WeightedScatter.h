// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <array>
#include <cstddef>

namespace REmath::Detail
{

// Sums over points of which number i has the weight `weights[i]`, or 1 with null weights: which changes no
// bit of what weights of 1 give. `Point` is `Point3D` or `Point3D_d`; all is computed in `double`.

/// Weighted mean. False when the sum of the weights is not above 0. Points that coincide give exactly their
/// place, and those far from zero lose no digits.
template <class Point>
bool weightedMean(Point const * points, double const * weights, std::size_t count, Point3D_d & mean);

/// The elements xx, xy, yy, xz, yz, zz of the weighted sum of (p - centre) (p - centre)^T.
template <class Point>
std::array<double, 6> weightedScatter(Point const * points, double const * weights, std::size_t count,
                                      Point3D_d const & centre);

} // namespace REmath::Detail

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Matrix.h>

/// Turns `v` about `axis` by `angle` radians, counter-clockwise as seen from the tip of the axis, for vectors
/// **perpendicular to the axis**. The axis can have any length but 0, which gives NaN. `out` can be `axis` or
/// `v`. Throws nothing, allocates nothing.
///
/// With `v = v⊥ + v∥` across and along the axis, and `q` the quarter turn of `v⊥`, the result is
///
///     out = v cos(angle) + (q + v∥) sin(angle)
///
/// so a part along the axis comes out multiplied by `cos(angle) + sin(angle)`, and not by 1 as in a rotation
/// of space. The exception is a vector that deviates from the axis by no more than 1 in 100
/// (`|v⊥|² <= 1e-4 |v|²`): that is returned as it is. `setAxisRotationTransform` makes a true rotation.
QZMATH_API void RotateVector(double * out, double const * axis, double const * v, double angle);

/// Makes `m` 3 by 3 with `RotateVector(axis, e_i, angle)` of the i-th coordinate vector in row i. For an axis
/// along a coordinate axis, `r = v m` then turns the row vector `v` as a true rotation; about z
///
///     m = |  cos sin 0 |
///         | -sin cos 0 |
///         |   0   0  1 |
///
/// The zero vector as axis gives the identity, by another comparison than in `RotateVector`. Allocates only
/// when `m` has another size, and then throws `std::bad_alloc` if there is no memory.
QZMATH_API void MakeRotationMatrix(REmath::Matrix<double> & m, double const * axis, double angle);

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/RotationMatrix.h>

/// Euler angles in the z-y-z convention, in radians: the rotation that turns column vectors about z by
/// `angles[2]`, then about y by `angles[1]`, then about z by `angles[0]`, all axes fixed in space. With
/// si = sin(angles[i-1]) and ci = cos(angles[i-1]),
///
///     | c1 c2 c3 - s1 s3   -c1 c2 s3 - s1 c3   c1 s2 |
///     | s1 c2 c3 + c1 s3   -s1 c2 s3 + c1 c3   s1 s2 |
///     |     -s2 c3               s2 s3           c2  |
QZMATH_API void makeEulerMatrix(CRotationMatrix & matrix, double const * angles);

/// Euler angles of a rotation, the inverse of `makeEulerMatrix`: `a1` in [0, pi], `a0` and `a2` in [-pi, pi].
///
/// When the last axis stays on its line within 1e-5 radians, only the sum or the difference of `a0` and `a2`
/// is defined; `a2` is 0 then. Matrices that are no rotations are not noticed: only the last row and the last
/// column are read, or the first column in the degenerate case.
QZMATH_API void getEulerAnglesFromMatrix(CRotationMatrix const & matrix, double & a0, double & a1,
                                         double & a2);

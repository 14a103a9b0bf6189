// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

/// The circle through three points of space: its centre, and in `radius` the **square** of the radius.
///
/// The centre is the mean of the points with the weights `w_A = |C - B|² (B - A) . (C - A)` and, in the same
/// way, `w_B` and `w_C`; their sum is 8 times the squared area of the triangle. False when `|tol w| >= |sum|`
/// for one of the weights, as with coincident or nearly collinear points, and on NaN. Sums are formed in
/// `double` in all forms; an output can be one of the points. Throws nothing, allocates nothing.
///
/// The forms on points use a tolerance of 1e-3 in `float` and 1e-9 in `double`; on failure they leave the
/// centre as it is and store the no-value mark in `radius`.
QZMATH_API bool CircumscribeCircle(REmath::Point3D const * points, REmath::Point3D & centre, float & radius);
QZMATH_API bool CircumscribeCircle(REmath::Point3D_d const * points, REmath::Point3D_d & centre,
                                   double & radius);

/// The forms on triples leave both outputs as they are on failure. The tolerance goes with the outputs: 1e-9
/// where they are `double`, 1e-3 where they are `float`.
QZMATH_API bool CircumscribeCircle(double const * a, double const * b, double const * c, double * centre,
                                   double & radius);
QZMATH_API bool CircumscribeCircle(float const * a, float const * b, float const * c, double * centre,
                                   double & radius);
QZMATH_API bool CircumscribeCircle(float const * a, float const * b, float const * c, float * centre,
                                   float & radius);

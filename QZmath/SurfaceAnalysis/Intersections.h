// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Where two lines come nearest to each other, and where a line passes through a triangle, on raw triples.
///
/// All functions throw nothing, allocate nothing, take constant time, check no pointer and can be called from
/// any thread. The `float` forms widen their input, compute in `double` and round each result once. False
/// means that there is no answer, also for input that is not finite where it makes one impossible to tell.

/// Parameters of the two points where the lines `p1 + t1 d1` and `p2 + t2 d2` are nearest to each other, into
/// `params[0]` and `params[1]`. The directions have any length. False, with `params` untouched, when the
/// squared sine of the angle between them is at most 1e-6 (about 0.06 degrees), and for a zero direction.
QZMATH_API bool MakeMinDist2Lines(float const * p1, float const * d1, float const * p2, float const * d2,
                                  float * params);
QZMATH_API bool MakeMinDist2Lines(double const * p1, double const * d1, double const * p2, double const * d2,
                                  double * params);

/// Whether two lines meet: along `d1` from one point and along `d2` from another, where `delta` is the vector
/// from the first point to the second. Stores the parameters of the two nearest points in `params`, replaces
/// `delta` by the vector between them, and tells whether its squared length is below `tolerance2`.
///
/// False, with `params` and `delta` untouched, when the squared sine of the angle is at most 0.0076 (about 5
/// degrees): too flat for a meeting point to be trusted. `makeTwoVectorsMediumPoint` gives that point.
QZMATH_API bool meetTwoVectors(float const * d1, float const * d2, float * delta, float * params,
                               float tolerance2);
QZMATH_API bool meetTwoVectors(double const * d1, double const * d2, double * delta, double * params,
                               double tolerance2);

/// The midpoint between `p1 + params[0] d1` and `p2 + params[1] d2`.
QZMATH_API void makeTwoVectorsMediumPoint(float const * p1, float const * p2, float const * d1,
                                          float const * d2, float const * params, float * result);
QZMATH_API void makeTwoVectorsMediumPoint(double const * p1, double const * p2, double const * d1,
                                          double const * d2, double const * params, double * result);

/// Whether the line `origin + t dir` passes through the triangle `a b c`, borders included; both directions
/// of the line count, and both sides of the triangle. `hit` is where the line meets the plane, and is written
/// whenever that is one point. False for a line parallel to the plane or in it, and for a triangle without
/// area. There is no tolerance: of a line that is parallel up to rounding, rounding decides.
QZMATH_API bool IntersectTriangLine(float const * a, float const * b, float const * c, float const * origin,
                                    float const * dir, float * hit);

/// `IntersectTriangLine` for a triangle with a margin. With the hit written as `a + s (b - a) + t (c - a)`,
/// each of s, t and s + t may leave 0..1 by `margin`, a fraction of the sides; true when none leaves it
/// further.
///
/// @param inside     whether the hit lies in the triangle itself, borders included.
/// @param overshoot  the greatest amount by which one of s, t, s + t lies outside of 0..1; 0 inside.
/// @param dist2      squared distance of the hit from the triangle; 0 inside.
/// `overshoot` and `dist2` may be null. When the result is false, `dist2` stays as it was; `inside` is true
/// unless the hit has left 0..1.
QZMATH_API bool IntersectTriangLineFree(float const * a, float const * b, float const * c,
                                        float const * origin, float const * dir, float * hit, float margin,
                                        bool & inside, float * overshoot, float * dist2);

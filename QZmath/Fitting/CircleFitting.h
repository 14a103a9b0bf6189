// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <vector>

/// Circles through points of space: in the plane of least squares of the points, and there the circle of
/// least squares, or the robust one with the weights of `CRobustRegressionSolver`, which take outliers out.
///
/// A circle is its `center`, the unit `normal` of its plane, of arbitrary sign, and its `radius`. All
/// functions give `false`, with the outputs undefined, for too few points, for points that determine no plane
/// or circle, and when a point or the result is not finite. They throw nothing but `std::bad_alloc`, can run
/// in any thread, and cost O(n) for each round. The same points in the same order give the same bits.
///
/// The plane is fitted to all points alike: outliers within it do no harm to the robust fits, those beside it
/// tilt it. Points that are collinear within the rounding of their coordinates determine no circle.
///
/// Robust fits are refined in at most 15 steps, until the mean gradient, in units of length, falls below
/// 1e-4. Give the points in units in which that is small against their noise, as millimetres are for scans. A
/// refinement that does not get there leaves the algebraic circle, free of all constraints, and the function
/// still succeeds: check the constraint where it matters. The tangent circle is the likeliest to end so, when
/// the points have much noise or contradict the tangent.

/// The circle through three points. False when twice the area of their triangle is below 1e-6, as it is for
/// coincident and collinear points, and for points in units too large. `normal` is that of the turn p0, p1,
/// p2. Allocates nothing.
QZMATH_API bool makeCircleByThreePoints(REmath::Point3D_d const * points, REmath::Point3D_d & center,
                                        REmath::Point3D_d & normal, double & radius);

/// Circle of least squares in the differences `|p - c|² - r²`, by the method of Levenberg and Marquardt from
/// the circle through three well spread points. Three points give the circle through them.
QZMATH_API bool FitCircleToPointSet(std::vector<REmath::Point3D_d> const & points, REmath::Point3D_d & center,
                                    REmath::Point3D_d & normal, double & radius);

/// Robust circle: each round starts from the algebraic circle (I. Kåsa: A circle fitting procedure and its
/// error analysis, 1976) and refines it by Gauss-Newton steps for the distances `|p - c| - r`. Rounds end
/// when centre and radius change by less than a thousandth of the radius. Three points give the circle
/// through them.
QZMATH_API bool FitCircleToPointSetRobust(std::vector<REmath::Point3D_d> const & points,
                                          REmath::Point3D_d & center, REmath::Point3D_d & normal,
                                          double & radius);

/// Robust circle through one or two fixed points, which are projected onto the plane of `points`; or the
/// circle through three fixed points, whatever `points` are. False for none and for more than three.
///
/// With two fixed points outliers are weighted down in the algebraic circle only; what is left is one
/// unknown, the position of the centre on the bisector, for which the mean distance is made 0, of all points
/// alike. It is badly determined when the fixed points are nearly opposite and the points go all around: the
/// centre can run off then, which gives a huge circle, or false when the points cannot be told apart from
/// there. False when the two coincide.
QZMATH_API bool FitCircleToPointSetWithFixedPointsRobust(std::vector<REmath::Point3D_d> const & points,
                                                         std::vector<REmath::Point3D_d> const & fixedPoints,
                                                         REmath::Point3D_d & center,
                                                         REmath::Point3D_d & normal, double & radius);

/// Robust circle through the first of the fixed points, where it is tangent to the first of the directions,
/// both projected onto the plane of `points`. With exactly two fixed points, it is the circle of least
/// squares through both and tangent to the direction at each, which `points` only give the plane. False
/// without a fixed point and with fewer directions than fixed points. Directions need not have unit length;
/// the length of one is its weight beside the conditions of passage where there are two.
QZMATH_API bool FitCircleByPointsWithDirs(std::vector<REmath::Point3D_d> const & points,
                                          std::vector<REmath::Point3D_d> const & fixedPoints,
                                          std::vector<REmath::Point3D_d> const & dirs,
                                          REmath::Point3D_d & center, REmath::Point3D_d & normal,
                                          double & radius);

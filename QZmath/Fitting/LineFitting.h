// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <vector>

/// Straight lines through points of space, nearest to them in the sum of squared distances, or robustly so:
/// with the weights of `CRobustRegressionSolver`, which take outliers out.
///
/// A line is a point `origin` on it and a unit `direction` of arbitrary sign. All functions give `false`,
/// with the outputs undefined, for fewer than 2 points, when all points coincide, and when a point or the
/// result is not finite: points farther apart than about 1e150 overflow. They compute in `double`, throw
/// nothing but `std::bad_alloc`, can run in any thread, and cost O(n) for each fit. The same points in the
/// same order give the same bits.

/// Line of least squares: `origin` is the mean of the points, `direction` the principal axis of their scatter
/// (K. Pearson: On lines and planes of closest fit, 1901). Two points give their midpoint and the direction
/// from the first to the second. When the scatter has no single largest axis, the result is one of the
/// largest ones. Allocates nothing.
QZMATH_API bool FitLineToPointSet(std::vector<REmath::Point3D_d> const & points, REmath::Point3D_d & origin,
                                  REmath::Point3D_d & direction);
QZMATH_API bool FitLineToPointSet(std::vector<REmath::Point3D> const & points, REmath::Point3D_d & origin,
                                  REmath::Point3D_d & direction);

/// Line of robust least squares. Rounds end when the square of the sine of the angle between two successive
/// directions falls below 0.002; the position is not looked at.
QZMATH_API bool FitLineToPointSetRobust(std::vector<REmath::Point3D_d> const & points,
                                        REmath::Point3D_d & origin, REmath::Point3D_d & direction);
QZMATH_API bool FitLineToPointSetRobust(std::vector<REmath::Point3D> const & points,
                                        REmath::Point3D_d & origin, REmath::Point3D_d & direction);

/// Robust line among those through `fixedPoint`, which need not be one of the points. `direction` is the
/// principal axis about it, also when there are just two points. False when all points coincide with
/// `fixedPoint`.
QZMATH_API bool FitLineToPointSetThroughPointRobust(std::vector<REmath::Point3D_d> const & points,
                                                    REmath::Point3D_d const & fixedPoint,
                                                    REmath::Point3D_d & direction);

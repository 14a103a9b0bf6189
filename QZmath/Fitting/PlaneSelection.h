// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Fitting/PlaneApproximator.h>
#include <QZmath/Foundation/Point3D.h>

#include <vector>

/// Recognition of a plane in a selection of scanned points. The functions throw nothing of their own and can
/// run in any thread; their cost is linear in the number of points.

/// Plane of least squares: `center` is the centroid, `normal` the unit normal on the side of `viewDir`, that
/// is with no negative product with it. False, with the outputs untouched, in the cases of
/// `FitPlaneToPointSet` (with 1e100 for the eigenvalues).
QZMATH_API bool RecognizePlaneSelectionFree(std::vector<REmath::Point3D> const & points,
                                            REmath::Point3D const & viewDir, REmath::Point3D_d & center,
                                            REmath::Point3D_d & normal);

/// Plane of least squares under a constraint, with the errors and the extent of the points in it. By
/// `constraint`, a `PlaneFitConstraintType`:
///
/// - `PlaneFitFree`: as `RecognizePlaneSelectionFree`.
/// - `PlaneFitNormalAndDist`: the normal is `fixedDir`. With `useDistance` the plane is `distance` away from
///   `fixedPoint`, on the side of the centroid of the points, or on that opposite to it for a negative
///   `distance`; without, as `PlaneFitNormal`.
/// - `PlaneFitNormal`: the normal is `fixedDir`; the plane passes through the centroid.
/// - `PlaneFitThroughPoint`: the best plane through `fixedPoint`, which becomes `center`.
/// - `PlaneFitThroughLine`: the best plane that contains the line through `fixedPoint` along `fixedDir`;
///   `center` is `fixedPoint`.
/// - `PlaneFitAngleToAxis`: the best plane through the centroid whose normal makes `angle` degrees with
///   `fixedDir`.
///
/// The normal lies on the side of `viewDir`, whose length does not matter. With `PlaneFitAngleToAxis` it can
/// be that its opposite has the wanted angle.
///
/// `fixedDir` is taken as it is: **its length must be 1**. Of another length it gives a normal of another
/// length, and errors and limits in its unit; a zero one, or a short one of which `BuildUCSbyVector` makes no
/// frame, gives false. Arguments that a constraint does not name are not read.
///
/// `maxError` and `meanError` are the greatest and the mean distance of the points from the plane. (`basisU`,
/// `basisV`, `normal`) is right-handed and orthonormal; for `PlaneFitAngleToAxis` `basisU` is perpendicular
/// to `fixedDir`, else, and where `normal` is parallel to `fixedDir`, it is a side of the smallest bounding
/// rectangle (`REmath::DefinePointsLimitsBasis` in 120 steps). `limitsU` and `limitsV` are the minimum and
/// maximum of p·`basisU` and p·`basisV`, with the origin of the coordinates at 0, not `center`.
///
/// False, with all outputs untouched, for no points, for fewer than 3 when free, for any other `constraint`,
/// and whenever the plane, its errors or its basis are not finite, as with NaN or infinity among the
/// coordinates or arguments.
QZMATH_API bool RecognizePlaneSelectionConstrained(
    std::vector<REmath::Point3D> const & points, REmath::Point3D const & viewDir, int constraint,
    double angle, bool useDistance, double distance, REmath::Point3D_d const & fixedPoint,
    REmath::Point3D_d const & fixedDir, REmath::Point3D_d & center, REmath::Point3D_d & normal,
    double & maxError, double & meanError, REmath::Point3D_d & basisU, REmath::Point3D_d & basisV,
    double * limitsU, double * limitsV);

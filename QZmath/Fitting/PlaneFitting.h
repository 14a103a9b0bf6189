// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <vector>

/// Plane of least squares through `points`: the one with the least sum of squared distances, found from the
/// eigenvectors of the scatter matrix about the centroid (K. Pearson, On lines and planes of closest fit,
/// 1901).
///
/// `coefficients` receives four numbers, the unit normal n and n·c, so that a point p of the plane has
/// n·p = `coefficients[3]`. Mind the sign of the fourth: `REmath::CPlaneEquation` stores -n·c. The sign of
/// the normal is arbitrary. `centroid` receives the three coordinates of c, which lies in the plane.
///
/// False, with both outputs untouched, for fewer than 3 points, for NaN or infinite coordinates, and for
/// points so wide apart that all three eigenvalues of the scatter matrix reach 1e30. Collinear points give
/// some plane through their line, and coincident ones some plane through the point.
///
/// Works in `double`, reads the points once, takes constant memory, throws nothing and can run in any thread.
QZMATH_API bool FitPlaneToPointSet(std::vector<REmath::Point3D> const & points, double * coefficients,
                                   double * centroid);
QZMATH_API bool FitPlaneToPointSet(std::vector<REmath::Point3D_d> const & points, double * coefficients,
                                   double * centroid);

/// Greatest and mean distance of `points` from the plane through `center` with the unit normal `normal`. A
/// normal of another length scales both. NaN for the mean of no points, whose greatest distance is 0; a
/// point with NaN coordinates makes the mean NaN and does not count for the greatest.
QZMATH_API void CalcPlaneFitError(std::vector<REmath::Point3D> const & points,
                                  REmath::Point3D_d const & center, REmath::Point3D_d const & normal,
                                  double & maxError, double & meanError);

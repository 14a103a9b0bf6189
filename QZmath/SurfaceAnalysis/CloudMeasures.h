// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <cstdint>

class CProgressCounter;

/// What a cloud is like, and which of its points do not belong to it: for choices that have to be made before
/// a surface is known. As in CloudNormals.h, the work is spread over the threads of
/// `CVescaThreadingTasksHelper` with the same bits for any number of them; points that are NaN or infinite
/// take part in nothing; `progress` can be null and is worked from the calling thread.

/// What `MeasureCloud` finds. Lengths in units of the points; 0 where too few points tell.
struct CCloudMeasures
{
    /// Edge of the square of surface that one point stands for: the median over the points, from the eighth
    /// nearest other place of each.
    double spacing = 0;
    /// Rms distance of neighbours to their common plane, the median over the points. On a clean cloud it is
    /// what curvature leaves, a small part of the spacing.
    double noise = 0;
    /// Share of the given normals that are more than 45 degrees off the plane of the neighbours, and of those
    /// whose sign most neighbours do not share; among points whose neighbourhood is flat.
    double normalsOffPlane = 0;
    double normalsAgainstOthers = 0;
    double repeated = 0; ///< share of points in whose place there is another
    int examined = 0; ///< points that were looked at: all of a small cloud, some ten thousand of a large one
};

/// Measures spacing and noise of a cloud, and checks its normals.
///
/// About O(n log n) for the search tree; the rest does not grow with n. 32 bytes a point.
/// \param normals of the points, of any length, zero for unknown; null when there are none
QZMATH_API CCloudMeasures MeasureCloud(int n, REmath::Point3D const * points, REmath::Point3D const * normals,
                                       CProgressCounter * progress = nullptr);

/// Marks the points in whose place there is one of a lower index. The return value is the number of marks.
/// O(n), some 16 bytes a point.
QZMATH_API int FindRepeatedPoints(int n, REmath::Point3D const * points, std::uint8_t * isRepeated,
                                  CProgressCounter * progress = nullptr);

/// Marks the points that do not belong to the surface: those whose neighbours are far away compared with
/// those of the other points, and those that stand off the plane of their neighbours by much more than these
/// do.
///
/// The first: the logarithm of the mean distance to the neighbours exceeds its median by more than
/// `deviations` standard deviations, the deviation taken from the median absolute one, which outliers do not
/// widen, and as 0.2 at least; cf. statistical outlier removal, R. B. Rusu, Semantic 3D Object Maps, 2009.
/// The second: the distance to the plane exceeds the spacing, and the rms of the others by `deviations` + 1
/// times.
///
/// The return value is the number of marks. About O(n (log n + k)) for k neighbours, and 70 bytes a point.
/// \param neighbours  3 to 1000; others are drawn to this range
/// \param deviations  above 0, usually 2 to 4; otherwise nothing is marked
/// \param isOutlier   n marks, 1 for an outlier and for a point that is not finite, else 0
QZMATH_API int FindOutliers(int n, REmath::Point3D const * points, int neighbours, double deviations,
                            std::uint8_t * isOutlier, CProgressCounter * progress = nullptr);

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <vector>

/// Tests on contours in the plane: closed polylines given as `x0, y0, x1, y1, ...` **with the first point
/// repeated at the end**. An odd last number is ignored. Both functions throw nothing, allocate nothing and
/// can be called from any thread.

/// Whether the contour has **no** self-intersection. O(n²) for n segments, which need no order; three
/// segments or fewer are never tested and pass.
///
/// A crossing counts when it lies inside of both segments, more than 1e-6 of their lengths away from their
/// ends: contours that touch themselves in a vertex pass. Segments parallel within a squared sine of about
/// 1e-8 intersect when they lie on one line, within about 1e-8 of their lengths, and share more than a point.
/// Neighbours, to which the first and the last segment belong, are not compared, so a contour that turns back
/// on itself at a vertex is not noticed. A segment without length, a repeated point, intersects an
/// **earlier** segment when it lies on it away from its ends, and nothing else; coordinates that are not
/// finite intersect nothing. Coordinates are expected within about 1e-70 to 1e70, where fourth powers exist.
QZMATH_API bool Check2dContourSelfIntersections(std::vector<double> const & xy);

/// Whether the point lies inside, by the even-odd rule: a ray towards +y meets the contour an odd number of
/// times. The sense of rotation does not matter, and parts that are surrounded twice are outside. O(n). No
/// closing segment is added; lists of fewer than two points contain nothing.
///
/// Points on the contour have an answer too. One on a segment counts as below it, so of a convex contour the
/// upper border is inside and the lower one outside. A vertex straight above or below the point is taken
/// 1e-10 further right, so a vertical left border is outside and a right one inside: neighbouring contours
/// of a tiling claim each point once.
QZMATH_API bool isPointInContour(double x, double y, std::vector<double> const & xy);

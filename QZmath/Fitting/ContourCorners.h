// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <vector>

/// Corners of a polyline, and the pieces between them. At each point the contour opens by the angle between
/// two chords, one forwards and one backwards, that are just longer than a given length: a corner is where
/// this angle is smallest, and what is smaller than the length, like noise, makes none. `radius2` is the
/// **square** of the length. A `closed` contour ends before its first point would come again.
///
/// Both forms compute in `double`, the `Point3D` one on a copy. Pure functions; O(n k) for n points with k
/// points per chord.

/// Sets `marks` to one entry per point, 1 at a corner and 0 elsewhere.
///
/// From each point, the contour is followed forwards and backwards to the first point farther away than the
/// chord length; c is the cosine between these two chords, -1 where the contour is straight, +1 at a spike. A
/// point without one of the chords (an end of an open contour closer than the chord length) counts as
/// straight, and so does one with a chord of length 0 (`radius2` below 0) or infinite length. Corners are the
/// points with c of at least -0.7, about 134 degrees or sharper, which neither neighbour exceeds; in an open
/// contour the two ends are marked too, and are never corners by themselves.
///
/// In a contour of more than 10 points, marks are then thinned until any two are more than 5 positions apart:
/// of two closer ones the sharper stays, of equal ones the later. A corner within 5 points of the **last**
/// point of an open contour takes that point's mark away; the mark of the first point always stays.
///
/// False, with `marks` as they were, for a closed contour in which some point has no other point farther away
/// than the chord length: one that is empty, too small, or holds NaN. An empty open contour gives empty
/// marks.
QZMATH_API bool GetContourCornerMarks(std::vector<REmath::Point3D> const & contour, double radius2,
                                      bool closed, std::vector<int> & marks);
QZMATH_API bool GetContourCornerMarks(std::vector<REmath::Point3D_d> const & contour, double radius2,
                                      bool closed, std::vector<int> & marks);

/// Cuts the contour at its marks and appends the pieces to `segments`; neighbouring pieces share the corner
/// point. `cornerCount`, which can be null, gets the number of marks.
///
/// An open contour gives one piece less than it has marks, an empty one an empty piece. Points behind the
/// last mark are in no piece, which occurs where a corner has taken the mark of the last point. A closed
/// contour with two marks or more gives as many pieces as marks, the first of them from the first mark on;
/// with one mark or none it is appended as it stands, not turned to start at the corner.
///
/// False, with all outputs as they were, for a null `segments` and where `GetContourCornerMarks` fails.
/// `contour` can be an element of `segments`.
QZMATH_API bool SplitContourByCorners(std::vector<std::vector<REmath::Point3D>> * segments,
                                      std::vector<REmath::Point3D> const & contour, double radius2,
                                      bool closed, int * cornerCount);
QZMATH_API bool SplitContourByCorners(std::vector<std::vector<REmath::Point3D_d>> * segments,
                                      std::vector<REmath::Point3D_d> const & contour, double radius2,
                                      bool closed, int * cornerCount);

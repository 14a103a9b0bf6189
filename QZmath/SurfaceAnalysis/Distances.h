// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

/// Distances of a point from a line, a segment and a triangle, given as raw triples.
///
/// Every result is a **squared** distance, in squared units of the input. All functions throw nothing,
/// allocate nothing, take constant time and can be called from any thread. The `float` forms widen their
/// input, compute in `double` and round each result once; outputs may be the inputs. No pointer is checked.
/// Degenerate segments and triangles are answered by what is left of them, a point or a segment. Input that
/// is not finite gives a distance without meaning, mostly NaN; codes and parameters stay in their ranges.

/// What part of a segment is nearest.
enum SegmentFeature : int
{
    segmentInterior = -1,
    segmentStart = 0,
    segmentEnd = 1,
};

/// What part of a triangle is nearest: its interior, vertex `i`, or edge `i - triangleEdge01` from vertex `i`
/// to the next.
enum TriangleFeature : int
{
    triangleInterior = -1,
    triangleVertex0 = 0,
    triangleVertex1 = 1,
    triangleVertex2 = 2,
    triangleEdge01 = 3,
    triangleEdge12 = 4,
    triangleEdge20 = 5,
};

/// From the line `q + t dir`. `dir` has any length; with the zero vector the line is the point `q`.
QZMATH_API float DistancePoint2Line(float const * p, float const * q, float const * dir);

/// From the segment `a b`. Where the perpendicular foot does not lie strictly between the ends, the nearer
/// end counts.
QZMATH_API float DistancePoint2Segment(float const * p, float const * a, float const * b);
QZMATH_API double DistancePoint2Segment(double const * p, double const * a, double const * b);
QZMATH_API double DistancePoint2Segment(float const * p, double const * a, double const * b);

/// Gives also the parameter of the nearest point, `a + t (b - a)`: 0 at `a`, 1 at `b`. Outside of the
/// interior it is exactly 0 or 1, and 1 when both ends are equally far. A segment without length has `t = 0`.
QZMATH_API float DistancePoint2Segment(float const * p, float const * a, float const * b, float & t);
QZMATH_API double DistancePoint2Segment(double const * p, double const * a, double const * b, double & t);

/// Gives also the nearest point, three coordinates. An end that is nearest arrives unrounded.
QZMATH_API float DistancePoint2Segment(float const * p, float const * a, float const * b, float * foot);
QZMATH_API double DistancePoint2Segment(double const * p, double const * a, double const * b, double * foot);

/// Gives also the nearest point, and a `SegmentFeature` that tells where it lies.
QZMATH_API float DistancePoint2Segment(float const * p, float const * a, float const * b, float * foot,
                                       int & where);

/// In the plane: of `p`, `a` and `b` only x and y are read, and `foot` gets two coordinates. `where` and
/// `foot` may be null.
QZMATH_API float DistancePoint2Segment2D(float const * p, float const * a, float const * b, float & t,
                                         int * where, float * foot);
QZMATH_API double DistancePoint2Segment2D(double const * p, double const * a, double const * b, double & t,
                                          int * where, double * foot);

/// From the triangle of three vertices, its interior included, in either sense of rotation. A triangle whose
/// sides at the first vertex are parallel within 1e-12 radians is taken as its three sides.
/// `REmath::CProjectorTriangle` answers several points for one triangle faster.
QZMATH_API float distancePointTriangle2(float const * p, REmath::Point3D const * vertices);

/// Gives also the nearest point, and a `TriangleFeature` that tells where it lies: above an edge or a vertex,
/// that one and not the interior.
QZMATH_API float distancePointTriangle2(float const * p, float const ** vertices, int & where, float * foot);

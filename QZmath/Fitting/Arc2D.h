// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Piece of a circle, or straight segment, in the plane: a plain record of eight 32-bit numbers. The
/// functions compute in `double`, round their results to `float`, throw nothing, and can run in any thread.
/// Fields that contradict each other (an end off the circle, a negative radius) are not detected.
class QZMATH_API CArc2D
{
public:
    /// Makes this element the arc through `point` (x and y) that touches both of the elements `arcs[0]` and
    /// `arcs[1]`, starts on the first and ends on the second: a fillet or blend between the two. A segment
    /// counts as its whole line here, and an arc as its whole circle. In a corner, of two solutions it is the
    /// one of the larger radius, in which `point` lies between the centre and the corner. Far off two circles
    /// that are touched from outside it is the arc that encloses both, **with a negative radius**: the
    /// distance of the centres is |R + r| there too. `m_straight` stays as it is.
    ///
    /// The side on which an element is touched is that of `point`, and the other element must confirm it with
    /// its reference, which is the centre of a circle, and of a segment the end farther from this element:
    /// - A segment must have `point` and the reference strictly on one side of its line.
    /// - A circle is touched from outside, with the centres R + r apart, when `point` and the reference are
    ///   outside, and from inside, R - r apart, when both are inside. What lies on the circle is on either
    ///   side.
    ///
    /// False, with this element as it was, when the sides do not agree, when there is no such arc (also
    /// where it would have to be straight), for parallel lines, for circles whose centres lie on one line
    /// with `point`, and when a number is not finite. `arcs` can be or contain this element.
    bool Make2ArcsFillet(CArc2D const * arcs, float const * point);

    /// Makes this element the one from the first of three points through the second to the third: an arc when
    /// `m_bArcApprox` is set and twice the area of the triangle reaches 1e-10, and else the segment, with
    /// centre and radius as they were.
    void MakeBy3Points(float const * xs, float const * ys);

    /// Whether `MakeBy3Points` makes arcs at all; off at the start. Not synchronised: to be set before
    /// threads use it.
    static bool m_bArcApprox;

    float m_centerX = 0;
    float m_centerY = 0;
    float m_startX = 0;
    float m_startY = 0;
    float m_endX = 0;
    float m_endY = 0;
    float m_radius = 0;
    /// Not 0: the segment from start to end, for which centre and radius have no meaning.
    int m_straight = 0;
};

/// Intersection of the whole lines and circles of the elements `arcs[0]` and `arcs[1]`. Of two points it is
/// the one nearer to the origin, so that the caller puts the origin where the intersection is expected; the
/// first one along the line, or the one to the right of the way from the first centre to the second, when
/// they are equally near.
///
/// False, with `point` as it was, when there is none: for parallel lines, concentric circles, elements that
/// miss each other, a segment without length, and numbers that are not finite.
QZMATH_API bool Get2ArcsIntersect(CArc2D const * arcs, float * point);

/// How far the third of four points lies from the circle through the other three: positive outside. When
/// these lie on a line (twice the area of their triangle below 1e-10) it is the distance from the line
/// through the first two, which is never negative, or from the first point if the two coincide.
QZMATH_API float Arc4pointsError(float const * xs, float const * ys);

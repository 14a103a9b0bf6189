// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/Point3D.h>

#include <memory>
#include <vector>

/// What a segment of a polyline is described by.
enum PolylineCurveType
{
    PolylineCurveLine = 0, ///< straight line
    PolylineCurveArc = 1,  ///< circular arc
    PolylineCurveNurbs =
        2 ///< free curve: takes part as a neighbour only, has no parameters and is not fitted
};

/// What two segments share at the boundary between them, or what the end of an open polyline is held by.
enum PolylineBndCondType
{
    BndCondFree = 0,    ///< nothing
    BndCondPoint = 1,   ///< a point
    BndCondPointDir = 2 ///< a point and the direction there
};

/// Describes a polyline in space, cut into segments, by a chain of straight lines and circular arcs.
///
/// The points are taken into their common plane. Each segment becomes a line or an arc, whichever model has
/// the smaller mean distance from its points, if that stays below the fit tolerance; a segment that neither
/// model fits is left as a free curve. Neighbours are tied to a common point, and also to a common direction
/// where their first approximations have one within the tolerance. All curves are then fitted at once, by
/// damped least-squares steps (K. Levenberg, 1944; D. Marquardt, 1963) among the changes that keep all ties
/// to first order: afterwards the ties hold up to the square of what they were off at the start. A result
/// that is no better than the first approximations, in the sum of squared distances and of what the ties are
/// off, is dropped for them. Neighbours meet about where the polyline is cut: the fit hardly moves joints
/// along the curves, so cuts beside the true joints cost accuracy.
///
/// Segment k goes from boundary k to boundary k + 1. An open polyline has one boundary more than segments,
/// whose first and last are its ends; a closed one has as many, and its boundary 0 lies between the last and
/// the first segment. There the fit ties the first segment only, the last one is free to end beside it.
///
/// Results are two flat arrays in the coordinates of the caller, which grow to their sizes:
/// - `curveParams`, 7 per segment. A line: a point, a unit direction, -1. An arc: its centre, the normal of
///   the plane, its radius, which is negative when the form of the curve has the opposite sign. The entries
///   of a free curve, and of a curve whose model could not be fitted at all, are left as they are.
/// - `bndParams`, 6 per boundary: the point, unless the boundary is free, and the unit direction, if it has
///   one. Entries that a boundary does not have are left as they are.
///
/// Writing a line resets its stored distance from the plane's origin. Results of `addSegment` and
/// `deleteSegment` are therefore up to date in the segments that they touch, while the other lines come out
/// through the plane's origin until the next `fitPolyline`.
///
/// Lengths are in the units of the points; the tolerance is compared with distances and with cosines, so it
/// is meant for units in which it is small against 1. The cost is linear in the points, and cubic in the
/// segments with a small factor.
///
/// Nothing is thrown but `std::bad_alloc`. Points that are NaN, infinite, coincident or missing make free
/// curves. Indices out of range change nothing: queries give -1, operations with a result `false`. An
/// instance is used by one thread at a time; different instances are independent.
class QZMATH_API CPolylineFitCurve
{
public:
    CPolylineFitCurve();
    virtual ~CPolylineFitCurve();
    CPolylineFitCurve(CPolylineFitCurve const &) = delete;
    CPolylineFitCurve & operator=(CPolylineFitCurve const &) = delete;

    /// Greatest mean distance of a line or an arc from its points, greatest difference from 1 of the cosine
    /// of a smooth joint, and the gradient at which the iteration is content. 0.01 if never set.
    void setFitTolerance(double tolerance);

    /// Whether the first and the last point were nearer than the `float` epsilon at the last full fit.
    bool isPolylineClosed() const;

    /// The whole procedure: the plane, the types of segments and boundaries, the fit. What earlier calls left
    /// is replaced, the tolerance apart. The ends of an open polyline are free afterwards. Gives 9, with
    /// nothing changed, when `segments` is empty, otherwise 0.
    ///
    /// Points that span no plane (fewer than 3, NaN) are seen in the plane of the call before; in a new
    /// object there is none, and all segments are free curves.
    int fitPolyline(std::vector<std::vector<REmath::Point3D_d>> const & segments,
                    std::vector<double> & curveParams, std::vector<double> & bndParams);

    /// Fits the stored points again, under the stored types of segments and boundaries. A conditioned end of
    /// an open polyline stays where it is and is a tie like any other; the curve there starts through it,
    /// unless the robust arc through a fixed point did not converge. A segment to whose points the model of
    /// its type cannot be fitted keeps its parameters. Gives 9 when there are no segments, otherwise 0.
    int fitPolyline(std::vector<double> & curveParams, std::vector<double> & bndParams);

    /// A `PolylineCurveType`.
    int getCurveType(int segment) const;
    /// A `PolylineBndCondType`.
    int getBndCondType(int boundary) const;

    /// Sets the type for the next fit of the stored points. Whether the value changed; a number that is no
    /// type changes nothing.
    bool setCurveType(int segment, int type);
    bool setBndCondType(int boundary, int type);

    /// Sets what the boundary holds, by a point and a direction in space, both seen in the plane. Only the
    /// ends of an open polyline keep it: fits begin all other boundaries anew. A direction counts by the
    /// `BuildDefPerpendicular` of its part in the plane and should be of about unit length: one
    /// perpendicular to the plane leaves the stored direction, one shorter than 0.316 erases it.
    void setBndCond(int boundary, REmath::Point3D_d const & point, REmath::Point3D_d const & dir);

    /// Cuts segment `k` in two, `k` and `k + 1`. `segments` is the whole new segmentation, one more than are
    /// stored; only the points of the new pair are read, and of the last segment if the polyline is closed
    /// and `k` is 0. They get types and their boundary a condition from first approximations; nothing is
    /// fitted. In a closed polyline `k` can be the number of segments: the new segment is the last one, and
    /// makes a pair with segment 0. With too few segments nothing happens.
    ///
    /// The types are found while the boundaries still have their old numbers: when the last segment of an
    /// open polyline is cut, a condition of the last end holds both halves, and when the one before it is
    /// cut, its second half. Free the end first where that is not wanted.
    void addSegment(std::vector<std::vector<REmath::Point3D_d>> const & segments, int k,
                    std::vector<double> & curveParams, std::vector<double> & bndParams);

    /// Joins segment `k` to the one before it, which gets a new type; nothing is fitted. A condition of the
    /// last end of an open polyline does not hold the type of what is joined to it until the next fit. The
    /// first segment of an open polyline, and the only one of a closed polyline, stay.
    void deleteSegment(int k, std::vector<double> & curveParams, std::vector<double> & bndParams);

    /// Takes the points of the two segments beside the boundary from `segments`, the whole segmentation,
    /// after the caller moved points across. Fits nothing. `false` for the ends of an open polyline and with
    /// too few segments.
    bool moveBnd(std::vector<std::vector<REmath::Point3D_d>> const & segments, int boundary);

    /// Makes the first segment and boundary the last ones (`boundary` 0) or the last the first ones (the last
    /// boundary); `false` for any other boundary. The stored parameters move by as many numbers as results
    /// have and so do not belong to their segments any more: fit again before using results.
    bool moveSegmentsCyclically(int boundary);

private:
    class TF_CBuilderUCS;
    struct JointSides;
    using Points = std::vector<REmath::Point3D_d>;
    using Matrix = REmath::Matrix<double>;

    // First approximations
    bool defineCurveTypes();
    bool defineCurveTypes(int first, int last);
    bool defineBndCurveTypes();
    void defineNurbsBndCondParams();
    void defineBndParamsBetweenSegments(int segment, int nextSegment);
    bool getFixedConditions(int segment, Points & points, Points & dirs) const;
    double ApproximateSegmentByLine(int segment, double * params) const;
    double ApproximateSegmentByArc(int segment, double * params) const;
    void makeInitialApproxForSegment(int segment, int type);
    void makeInitialApproxFotBndCond(int boundary, int type);
    JointSides jointSides(int segment, int nextSegment) const;
    REmath::Point3D_d projectToJoint(int segment, int nextSegment, REmath::Point3D_d const & point) const;

    // The fit of all curves at once
    void fitPolylineSegments();
    int formMatrix(int bndStart, std::vector<double> const & p, Matrix const & points, Matrix & freedom,
                   Matrix & normal, Matrix & rightSide) const;
    void MakeConstrMatrix(int bndStart, std::vector<double> const & p, Matrix & constraints) const;
    void MakePointsMatrix(Matrix & points) const;
    double getResiduals(std::vector<double> const & p, int bndStart) const;
    int getParamIndexBySegmentNumber(int segment) const;
    bool isBndCondFree(int boundary) const;
    bool isBndCondFixed(int boundary) const;

    // Between space and plane
    void prepare2Dpoints(std::vector<Points> const & segments);
    void replacePoints(std::vector<Points> const & segments, int segment);
    void prepare3DcrvParams(std::vector<double> & curveParams);
    void prepare3DbndCond(std::vector<double> & bndParams) const;

    int segmentCount() const { return static_cast<int>(m_segments.size()); }
    int boundaryCount() const { return static_cast<int>(m_bndCondTypes.size()); }
    bool hasSegment(int segment) const { return segment >= 0 && segment < segmentCount(); }
    bool hasBoundary(int boundary) const { return boundary >= 0 && boundary < boundaryCount(); }
    bool isNurbs(int segment) const;
    int segmentBefore(int boundary) const;

    std::unique_ptr<TF_CBuilderUCS> m_ucs;
    std::vector<Points> m_segments;    // in plane coordinates, third coordinate 0
    std::vector<double> m_curveParams; // A, B, C, D per segment
    std::vector<double> m_bndParams;   // x, y and the unit normal u, v per boundary; unused entries 0
    std::vector<int> m_curveTypes;
    std::vector<int> m_bndCondTypes;
    bool m_closed = false;
    double m_fitTolerance = 0.01;
};

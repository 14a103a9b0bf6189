// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/CircleFitting.h>
#include <QZmath/Fitting/LineFitting.h>
#include <QZmath/Fitting/Polyline/CurveForm.h>
#include <QZmath/Fitting/Polyline/FrameAndJoint.h>
#include <QZmath/Fitting/PolylineFitCurve.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

// First approximations: each segment for itself, then each boundary from the two curves beside it.

using PolylineDetail::CurveForm;
using PolylineDetail::dot;
using PolylineDetail::freeCurveNormal;
using PolylineDetail::perpendicularInPlane;
using PolylineDetail::projectToCurve;
using PolylineDetail::zeroTolerance;
using REmath::Point3D_d;
using REmath::Detail::index;

namespace
{

constexpr double failed = -1; // in place of a mean distance

// Stores a model, and gives its mean distance from the points; fails if either is not finite.
template <class Distance>
double acceptModel(CurveForm const & form, std::vector<Point3D_d> const & points, Distance const & distance,
                   double * params)
{
    double const sum =
        std::accumulate(points.begin(), points.end(), 0.0,
                        [&](double total, Point3D_d const & point) { return total + distance(point); });
    double const mean = sum / static_cast<double>(points.size());
    if (!std::isfinite(mean) || !form.isFinite())
        return failed;
    form.write(params);
    return mean;
}

} // namespace

double CPolylineFitCurve::JointSides::cosine() const { return dot(normalBefore, normalAfter); }

bool CPolylineFitCurve::defineCurveTypes()
{
    m_curveTypes.resize(m_segments.size());
    m_curveParams.resize(4 * m_segments.size());
    return defineCurveTypes(0, segmentCount() - 1);
}

bool CPolylineFitCurve::defineCurveTypes(int first, int last)
{
    for (int k = first; k <= last; ++k) {
        int const segment = k % segmentCount();
        double line[4], arc[4];
        double const lineError = ApproximateSegmentByLine(segment, line);
        double const arcError = ApproximateSegmentByArc(segment, arc);
        double * const params = m_curveParams.data() + 4 * segment;
        int & type = m_curveTypes[index(segment)];
        // A model that failed has a negative error: the other one wins, and it stays below the tolerance
        // only where it did not fail itself.
        if (lineError >= 0 && (arcError > lineError || arcError < 0) && m_fitTolerance > lineError) {
            type = PolylineCurveLine;
            std::copy_n(line, 4, params);
        } else if (arcError >= 0 && (lineError > arcError || lineError < 0) && m_fitTolerance > arcError) {
            type = PolylineCurveArc;
            std::copy_n(arc, 4, params);
        } else {
            type = PolylineCurveNurbs;
            std::fill_n(params, 4, 0.0);
        }
    }
    return true;
}

bool CPolylineFitCurve::getFixedConditions(int segment, Points & points, Points & dirs) const
{
    for (int const boundary : {segment, segment + 1}) {
        if (!isBndCondFixed(boundary) || m_bndCondTypes[index(boundary)] == BndCondFree)
            continue;
        double const * const condition = m_bndParams.data() + 4 * boundary;
        points.emplace_back(condition[0], condition[1], 0.0);
        bool const hasDirection = m_bndCondTypes[index(boundary)] == BndCondPointDir &&
                                  std::hypot(condition[2], condition[3]) > zeroTolerance;
        dirs.push_back(hasDirection ? perpendicularInPlane(condition[2], condition[3]) : Point3D_d());
    }
    return !points.empty();
}

double CPolylineFitCurve::ApproximateSegmentByLine(int segment, double * params) const
{
    Points const & points = m_segments[index(segment)];
    Points fixedPoints, fixedDirs;
    getFixedConditions(segment, fixedPoints, fixedDirs);
    Point3D_d origin, direction;
    if (fixedPoints.empty()) {
        if (!FitLineToPointSetRobust(points, origin, direction))
            return failed;
    } else {
        origin = fixedPoints[0];
        if (fixedPoints.size() == 2) {
            direction = fixedPoints[1] - origin;
            if (!(direction.length() > 0))
                return failed;
            direction.normalize();
        } else if (fixedDirs[0].length() < zeroTolerance) {
            if (!FitLineToPointSetThroughPointRobust(points, origin, direction))
                return failed;
        } else {
            direction = fixedDirs[0];
        }
    }
    Point3D_d const normal = perpendicularInPlane(direction.x(), direction.y());
    CurveForm const form{0, normal.x(), normal.y(), -normal.x() * origin.x() - normal.y() * origin.y()};
    auto const distance = [&](Point3D_d const & point) {
        Point3D_d const offset = point - origin;
        double const along = dot(offset, direction);
        return std::sqrt(std::max(0.0, dot(offset, offset) - along * along));
    };
    return acceptModel(form, points, distance, params);
}

double CPolylineFitCurve::ApproximateSegmentByArc(int segment, double * params) const
{
    Points const & points = m_segments[index(segment)];
    Points fixedPoints, fixedDirs;
    Point3D_d centre, normal;
    double radius = 0;
    bool isFitted;
    if (!getFixedConditions(segment, fixedPoints, fixedDirs)) {
        isFitted = FitCircleToPointSet(points, centre, normal, radius);
    } else {
        bool const areFreeOfDirection = std::all_of(fixedDirs.begin(), fixedDirs.end(), [](auto const & dir) {
            return dir.length() <= zeroTolerance;
        });
        isFitted = areFreeOfDirection
                       ? FitCircleToPointSetWithFixedPointsRobust(points, fixedPoints, centre, normal, radius)
                       : FitCircleByPointsWithDirs(points, fixedPoints, fixedDirs, centre, normal, radius);
    }
    if (!isFitted)
        return failed;
    auto const distance = [&](Point3D_d const & point) {
        return std::abs((point - centre).length() - radius);
    };
    return acceptModel(CurveForm::circle(centre, radius), points, distance, params);
}

void CPolylineFitCurve::makeInitialApproxForSegment(int segment, int type)
{
    double * const params = m_curveParams.data() + 4 * segment;
    if (type == PolylineCurveLine)
        ApproximateSegmentByLine(segment, params);
    else if (type == PolylineCurveArc)
        ApproximateSegmentByArc(segment, params);
    else
        std::fill_n(params, 4, 0.0);
}

bool CPolylineFitCurve::defineBndCurveTypes()
{
    int const count = segmentCount();
    if (count == 0)
        return false;
    m_bndCondTypes.assign(index(m_closed ? count : count + 1), BndCondFree);
    m_bndParams.assign(4 * m_bndCondTypes.size(), 0.0);
    for (int segment = 0; segment < (m_closed ? count : count - 1); ++segment) {
        int const next = (segment + 1) % count;
        if (!isNurbs(segment) && !isNurbs(next))
            defineBndParamsBetweenSegments(segment, next);
    }
    return boundaryCount() == count + (m_closed ? 0 : 1);
}

void CPolylineFitCurve::defineNurbsBndCondParams()
{
    int const count = segmentCount();
    for (int segment = 0; segment < (m_closed ? count : count - 1); ++segment) {
        int const next = (segment + 1) % count;
        if (isNurbs(segment) || isNurbs(next))
            defineBndParamsBetweenSegments(segment, next);
    }
}

// Sets the boundary in front of `nextSegment`. A joint with a segment that has no points stays as it is.
void CPolylineFitCurve::defineBndParamsBetweenSegments(int segment, int nextSegment)
{
    if (m_segments[index(segment)].empty() || m_segments[index(nextSegment)].empty())
        return;
    Point3D_d const joint = projectToJoint(segment, nextSegment, m_segments[index(segment)].back());
    JointSides const sides = jointSides(segment, nextSegment);
    bool const isSmooth = std::abs(std::abs(sides.cosine()) - 1) < m_fitTolerance;
    m_bndCondTypes[index(nextSegment)] = isSmooth ? BndCondPointDir : BndCondPoint;
    double * const condition = m_bndParams.data() + 4 * nextSegment;
    condition[0] = joint.x();
    condition[1] = joint.y();
    condition[2] = isSmooth ? sides.normalBefore.x() : 0;
    condition[3] = isSmooth ? sides.normalBefore.y() : 0;
}

void CPolylineFitCurve::makeInitialApproxFotBndCond(int boundary, int type)
{
    if (isBndCondFixed(boundary))
        return;
    int const segment = segmentBefore(boundary);
    if (m_segments[index(segment)].empty() || m_segments[index(boundary)].empty())
        return;
    Point3D_d const joint = projectToJoint(segment, boundary, m_segments[index(boundary)].front());
    Point3D_d normal;
    if (type == BndCondPointDir) {
        JointSides const sides = jointSides(segment, boundary);
        normal = sides.normalBefore;
        double const cosine = sides.cosine();
        if (std::abs(std::abs(cosine) - 1) > zeroTolerance)
            normal = (normal + (cosine < 0 ? -sides.normalAfter : sides.normalAfter)) * 0.5;
    }
    double * const condition = m_bndParams.data() + 4 * boundary;
    condition[0] = joint.x();
    condition[1] = joint.y();
    condition[2] = normal.x();
    condition[3] = normal.y();
}

// The normals of two neighbours at their common boundary; neither may be without points. A free curve behind
// the joint gets its normal from the chords at the start of the segment in front.
CPolylineFitCurve::JointSides CPolylineFitCurve::jointSides(int segment, int nextSegment) const
{
    Points const & before = m_segments[index(segment)];
    auto const formOf = [this](int k) { return CurveForm::read(m_curveParams.data() + 4 * k); };
    return {isNurbs(segment) ? freeCurveNormal(before, true) : formOf(segment).normalAt(before.back()),
            isNurbs(nextSegment) ? freeCurveNormal(before, false)
                                 : formOf(nextSegment).normalAt(m_segments[index(nextSegment)].front())};
}

// The point on the first of the two curves that is not free; the point itself between two free curves.
Point3D_d CPolylineFitCurve::projectToJoint(int segment, int nextSegment, Point3D_d const & point) const
{
    for (int const k : {segment, nextSegment}) {
        if (!isNurbs(k))
            return projectToCurve(CurveForm::read(m_curveParams.data() + 4 * k), point);
    }
    return point;
}

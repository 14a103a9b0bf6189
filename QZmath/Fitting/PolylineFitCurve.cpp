// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PolylineFitCurve.h>

#include <QZmath/Fitting/Polyline/CurveForm.h>
#include <QZmath/Fitting/Polyline/FrameAndJoint.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

using PolylineDetail::CurveForm;
using PolylineDetail::perpendicularInPlane;
using PolylineDetail::zeroTolerance;
using REmath::Point3D_d;
using REmath::Detail::index;

namespace
{

constexpr int nothingToFit = 9;

template <class T>
auto at(std::vector<T> & values, int i)
{
    return values.begin() + i;
}

// Moves the first `stride` values to the end, or the last ones to the front; all of them, which changes
// nothing, if there are no more than that.
template <class T>
void shiftCyclically(std::vector<T> & values, int stride, bool isForward)
{
    int const size = static_cast<int>(values.size());
    int const moved = std::min(stride, size);
    std::rotate(values.begin(), at(values, isForward ? moved : size - moved), values.end());
}

bool isFinite(Point3D_d const & p)
{
    return std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z());
}

void putPoint(std::vector<double> & values, int begin, Point3D_d const & point)
{
    point.toArray(values.data() + begin);
}

} // namespace

CPolylineFitCurve::TF_CBuilderUCS::~TF_CBuilderUCS() = default;

CPolylineFitCurve::CPolylineFitCurve() : m_ucs(std::make_unique<TF_CBuilderUCS>()) {}

CPolylineFitCurve::~CPolylineFitCurve() = default;

void CPolylineFitCurve::setFitTolerance(double tolerance) { m_fitTolerance = tolerance; }

bool CPolylineFitCurve::isPolylineClosed() const { return m_closed; }

int CPolylineFitCurve::fitPolyline(std::vector<Points> const & segments, std::vector<double> & curveParams,
                                   std::vector<double> & bndParams)
{
    if (segments.empty())
        return nothingToFit;
    prepare2Dpoints(segments);
    m_bndCondTypes.clear(); // no end is conditioned while the first approximations are made
    m_bndParams.clear();
    if (!defineCurveTypes() || !defineBndCurveTypes())
        return 0;
    fitPolylineSegments();
    defineNurbsBndCondParams();
    prepare3DcrvParams(curveParams);
    prepare3DbndCond(bndParams);
    return 0;
}

int CPolylineFitCurve::fitPolyline(std::vector<double> & curveParams, std::vector<double> & bndParams)
{
    if (m_segments.empty() || m_curveTypes.empty() || m_bndCondTypes.empty())
        return nothingToFit;
    for (int segment = 0; segment < segmentCount(); ++segment)
        makeInitialApproxForSegment(segment, m_curveTypes[index(segment)]);
    for (int boundary = 0; boundary < boundaryCount(); ++boundary)
        makeInitialApproxFotBndCond(boundary, m_bndCondTypes[index(boundary)]);
    fitPolylineSegments();
    prepare3DcrvParams(curveParams);
    prepare3DbndCond(bndParams);
    return 0;
}

int CPolylineFitCurve::getCurveType(int segment) const
{
    return hasSegment(segment) ? m_curveTypes[index(segment)] : -1;
}

int CPolylineFitCurve::getBndCondType(int boundary) const
{
    return hasBoundary(boundary) ? m_bndCondTypes[index(boundary)] : -1;
}

bool CPolylineFitCurve::setCurveType(int segment, int type)
{
    if (!hasSegment(segment) || type < PolylineCurveLine || type > PolylineCurveNurbs ||
        m_curveTypes[index(segment)] == type)
        return false;
    m_curveTypes[index(segment)] = type;
    return true;
}

bool CPolylineFitCurve::setBndCondType(int boundary, int type)
{
    if (!hasBoundary(boundary) || type < BndCondFree || type > BndCondPointDir ||
        m_bndCondTypes[index(boundary)] == type)
        return false;
    m_bndCondTypes[index(boundary)] = type;
    return true;
}

void CPolylineFitCurve::setBndCond(int boundary, Point3D_d const & point, Point3D_d const & dir)
{
    if (!hasBoundary(boundary))
        return;
    double * const condition = m_bndParams.data() + 4 * boundary;
    Point3D_d const inPlane = m_ucs->toPlane(point);
    condition[0] = inPlane.x();
    condition[1] = inPlane.y();
    Point3D_d const dirInPlane = m_ucs->directionToPlane(dir);
    if (dirInPlane.length() > zeroTolerance) {
        Point3D_d const normal = perpendicularInPlane(dirInPlane.x(), dirInPlane.y());
        // A short direction along the first axis has no such perpendicular.
        bool const exists = isFinite(normal);
        condition[2] = exists ? normal.x() : 0;
        condition[3] = exists ? normal.y() : 0;
    }
}

void CPolylineFitCurve::addSegment(std::vector<Points> const & segments, int k,
                                   std::vector<double> & curveParams, std::vector<double> & bndParams)
{
    int const count = segmentCount();
    bool const closesRound = m_closed && k == count;
    if (count == 0 || (!hasSegment(k) && !closesRound) || segments.size() < index(count + 1))
        return;
    m_segments.insert(at(m_segments, k), Points());
    m_curveTypes.insert(at(m_curveTypes, k), PolylineCurveNurbs);
    m_curveParams.insert(at(m_curveParams, 4 * k), 4, 0.0);
    int const next = closesRound ? 0 : k + 1;
    replacePoints(segments, k);
    replacePoints(segments, next);
    defineCurveTypes(k, k + 1);
    if (m_closed && k == 0) {
        replacePoints(segments, count);
        defineCurveTypes(count, count);
    }
    m_bndCondTypes.insert(at(m_bndCondTypes, next), BndCondFree);
    m_bndParams.insert(at(m_bndParams, 4 * next), 4, 0.0);
    if (closesRound) { // the former boundary 0 now lies before the new segment
        std::rotate(at(m_bndCondTypes, 1), at(m_bndCondTypes, 2), m_bndCondTypes.end());
        std::rotate(at(m_bndParams, 4), at(m_bndParams, 8), m_bndParams.end());
    }
    defineBndParamsBetweenSegments(k, next);
    if (m_closed && boundaryCount() == 2)
        defineBndParamsBetweenSegments(next, k);
    prepare3DcrvParams(curveParams);
    prepare3DbndCond(bndParams);
}

void CPolylineFitCurve::deleteSegment(int k, std::vector<double> & curveParams,
                                      std::vector<double> & bndParams)
{
    if (!hasSegment(k) || (k == 0 && (!m_closed || segmentCount() == 1)))
        return;
    Points & previous = m_segments[index(segmentBefore(k))];
    Points const & joined = m_segments[index(k)];
    previous.insert(previous.end(), joined.begin(), joined.end());
    m_segments.erase(at(m_segments, k));
    m_curveTypes.erase(at(m_curveTypes, k));
    m_curveParams.erase(at(m_curveParams, 4 * k), at(m_curveParams, 4 * k + 4));
    int const longer = k == 0 ? segmentCount() - 1 : k - 1;
    defineCurveTypes(longer, longer);
    m_bndCondTypes.erase(at(m_bndCondTypes, k));
    m_bndParams.erase(at(m_bndParams, 4 * k), at(m_bndParams, 4 * k + 4));
    prepare3DcrvParams(curveParams);
    prepare3DbndCond(bndParams);
}

bool CPolylineFitCurve::moveBnd(std::vector<Points> const & segments, int boundary)
{
    if (!hasBoundary(boundary) || isBndCondFixed(boundary) || segments.size() < m_segments.size())
        return false;
    replacePoints(segments, segmentBefore(boundary));
    replacePoints(segments, boundary);
    return true;
}

bool CPolylineFitCurve::moveSegmentsCyclically(int boundary)
{
    bool const isForward = boundary == 0;
    if (!hasBoundary(boundary) || (!isForward && boundary != boundaryCount() - 1))
        return false;
    shiftCyclically(m_curveParams, 7, isForward);
    shiftCyclically(m_curveTypes, 1, isForward);
    shiftCyclically(m_bndParams, 6, isForward);
    shiftCyclically(m_bndCondTypes, 1, isForward);
    shiftCyclically(m_segments, 1, isForward);
    return true;
}

bool CPolylineFitCurve::isNurbs(int segment) const
{
    return m_curveTypes[index(segment)] == PolylineCurveNurbs;
}

// The segment in front of a boundary that is not the first end of an open polyline.
int CPolylineFitCurve::segmentBefore(int boundary) const
{
    return boundary == 0 ? segmentCount() - 1 : boundary - 1;
}

void CPolylineFitCurve::prepare2Dpoints(std::vector<Points> const & segments)
{
    std::size_t count = 0;
    for (Points const & segment : segments)
        count += segment.size();
    Points all;
    all.reserve(count);
    for (Points const & segment : segments)
        all.insert(all.end(), segment.begin(), segment.end());
    m_ucs->fit(all);
    m_segments.resize(segments.size());
    for (int segment = 0; segment < segmentCount(); ++segment)
        replacePoints(segments, segment);
    m_closed = !segments.front().empty() && !segments.back().empty() &&
               (segments.front().front() - segments.back().back()).length() < zeroTolerance;
}

void CPolylineFitCurve::replacePoints(std::vector<Points> const & segments, int segment)
{
    Points const & inSpace = segments[index(segment)];
    Points & inPlane = m_segments[index(segment)];
    inPlane.resize(inSpace.size());
    std::transform(inSpace.begin(), inSpace.end(), inPlane.begin(),
                   [this](Point3D_d const & point) { return m_ucs->toPlane(point); });
}

void CPolylineFitCurve::prepare3DcrvParams(std::vector<double> & curveParams)
{
    curveParams.resize(index(7 * segmentCount()));
    for (int segment = 0; segment < segmentCount(); ++segment) {
        double * const stored = m_curveParams.data() + 4 * segment;
        CurveForm const form = CurveForm::read(stored);
        int const begin = 7 * segment;
        double & kind = curveParams[index(begin + 6)];
        switch (m_curveTypes[index(segment)]) {
        case PolylineCurveLine: {
            Point3D_d const direction = perpendicularInPlane(form.b, form.c);
            if (!form.isFinite() || !isFinite(direction))
                break;
            putPoint(curveParams, begin, m_ucs->toSpace(-form.b * form.d, -form.c * form.d));
            putPoint(curveParams, begin + 3, m_ucs->directionToSpace(direction));
            kind = -1;
            stored[3] = 0;
            break;
        }
        case PolylineCurveArc: {
            double const radius = 0.5 / form.a;
            if (!form.isFinite() || !std::isfinite(radius))
                break;
            putPoint(curveParams, begin, m_ucs->toSpace(-form.b * radius, -form.c * radius));
            putPoint(curveParams, begin + 3, m_ucs->m_normal);
            kind = radius;
            break;
        }
        default:
            break;
        }
    }
}

void CPolylineFitCurve::prepare3DbndCond(std::vector<double> & bndParams) const
{
    bndParams.resize(index(6 * boundaryCount()));
    for (int boundary = 0; boundary < boundaryCount(); ++boundary) {
        double const * const condition = m_bndParams.data() + 4 * boundary;
        int const type = m_bndCondTypes[index(boundary)];
        if (type == BndCondFree)
            continue;
        putPoint(bndParams, 6 * boundary, m_ucs->toSpace(condition[0], condition[1]));
        if (type == BndCondPointDir && std::hypot(condition[2], condition[3]) > zeroTolerance) {
            Point3D_d const direction = perpendicularInPlane(condition[2], condition[3]);
            if (isFinite(direction))
                putPoint(bndParams, 6 * boundary + 3, m_ucs->directionToSpace(direction));
        }
    }
}

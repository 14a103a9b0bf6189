// SPDX-License-Identifier: Apache-2.0

// Polylines, contours, arcs and arrangements of any points, through sequences of operations where an object
// keeps a state. What is said to be found is finite, sizes are those that are documented, and fixed points
// stay.

#include <QZmath/Fitting/Arc2D.h>
#include <QZmath/Fitting/ContourCorners.h>
#include <QZmath/Fitting/PointArrangement.h>
#include <QZmath/Fitting/PolylineFitCurve.h>
#include <QZmath/Fitting/PolylineSmoothing.h>
#include <QZmath/SurfaceAnalysis/Contours.h>
#include <QZmath/SurfaceAnalysis/Projectors.h>

#include "Input.h"

#include <memory>

namespace
{

using namespace qz_fuzz;
using REmath::Point3D;
using REmath::Point3D_d;
using Points = std::vector<Point3D_d>;

bool isOrdinary(Point3D_d const & p) { return isFinite(p) && dot(p, p) < 1e12; }

std::vector<Points> cut(Points const & points, Input & input)
{
    std::vector<Points> segments;
    for (std::size_t begin = 0; begin < points.size();) {
        // Half a dozen segments at most: the fit is cubic in their number.
        std::size_t const end =
            std::min(points.size(), begin + points.size() / 6 + std::size_t(input.upTo(20)) + 1);
        // Neighbours share a point, as those of a contour do.
        segments.emplace_back(points.begin() + std::ptrdiff_t(begin),
                              points.begin() + std::ptrdiff_t(std::min(points.size(), end + 1)));
        begin = end;
    }
    if (input.byte() == 255)
        segments.emplace_back();
    return segments;
}

void checkPolyline(Points const & points, Input & input)
{
    std::vector<Points> segments = cut(points, input);
    CPolylineFitCurve fit;
    std::vector<double> curves, boundaries;
    bool isGentle = std::all_of(points.begin(), points.end(), isOrdinary);
    if (input.flag())
        fit.setFitTolerance(input.number());
    int const result = fit.fitPolyline(segments, curves, boundaries);
    require(result == (segments.empty() ? 9 : 0), "a polyline without segments is refused");
    require(curves.size() >= 7 * segments.size(), "every segment has seven numbers");
    for (int k = 0; k < int(segments.size()); ++k)
        require(fit.getCurveType(k) >= 0 && fit.getCurveType(k) <= 2, "every segment has a type");
    require(fit.getCurveType(int(segments.size())) == -1, "there is no segment behind the last");
    {
        CPolylineFitCurve second;
        std::vector<double> curvesAgain, boundariesAgain;
        second.fitPolyline(segments, curvesAgain, boundariesAgain);
        CPolylineFitCurve third;
        std::vector<double> curvesOnce, boundariesOnce;
        third.fitPolyline(segments, curvesOnce, boundariesOnce);
        require(Bits(curvesAgain, boundariesAgain) == Bits(curvesOnce, boundariesOnce),
                "a polyline has the same bits again");
    }
    while (!input.isUsedUp()) {
        int const operation = input.upTo(8), where = input.integer();
        switch (operation) {
        case 0:
            fit.setCurveType(where, input.integer());
            break;
        case 1:
            fit.setBndCondType(where, input.integer());
            break;
        case 2: {
            Point3D_d const point = input.point(), direction = input.point();
            isGentle = isGentle && isOrdinary(point) && isOrdinary(direction);
            fit.setBndCond(where, point, direction);
            break;
        }
        case 3: { // the segment is cut in its middle
            if (where < 0 || std::size_t(where) >= segments.size() || segments.size() > 8)
                break;
            auto const place = segments.begin() + where;
            std::size_t const middle = place->size() / 2;
            Points second(place->begin() + std::ptrdiff_t(middle), place->end());
            place->resize(std::min(place->size(), middle + 1));
            segments.insert(place + 1, second);
            fit.addSegment(segments, where, curves, boundaries);
            break;
        }
        case 4:
            fit.deleteSegment(where, curves, boundaries);
            if (where > 0 && std::size_t(where) < segments.size()) {
                Points & before = segments[std::size_t(where) - 1];
                before.insert(before.end(), segments[std::size_t(where)].begin(),
                              segments[std::size_t(where)].end());
                segments.erase(segments.begin() + where);
            }
            break;
        case 5:
            fit.moveBnd(segments, where);
            break;
        case 6:
            fit.moveSegmentsCyclically(where);
            break;
        case 7: // any other segmentation
            segments = cut(points, input);
            fit.addSegment(segments, where, curves, boundaries);
            break;
        default:
            fit.fitPolyline(curves, boundaries);
        }
        fit.getBndCondType(where);
        fit.isPolylineClosed();
    }
    fit.fitPolyline(curves, boundaries);
    auto const isNumber = [](double value) { return std::isfinite(value); };
    require(!isGentle || (std::all_of(curves.begin(), curves.end(), isNumber) &&
                          std::all_of(boundaries.begin(), boundaries.end(), isNumber)),
            "curves and boundaries of ordinary points are finite");
}

template <class Point>
void checkSmoothing(std::vector<Point> points, Input & input)
{
    std::vector<int> fixed;
    for (int k = input.upTo(3); k > 0; --k)
        fixed.push_back(input.flag() ? input.integer()
                                     : input.upTo(int(std::min<std::size_t>(points.size(), 200))));
    bool const isClosed = input.flag();
    double const weight = input.flag() ? input.number() : 0.4;
    int const passes = std::min(input.integer(), 30);
    CPolylineSmoothParams params(isClosed, weight, passes, input.flag(), &fixed);
    if (input.flag())
        params.SetPtrFixedPtIdx(nullptr);
    std::vector<Point> smooth = points, again = points;
    bool const isDone = smoothPolylineWithFixedPoints(smooth, params);
    require(smooth.size() == points.size(), "no point gets lost");
    require(isDone == smoothPolylineWithFixedPoints(again, params) && Bits(smooth) == Bits(again),
            "smoothing has the same bits again");
    if (!isDone || params.GetPtrFixedPtIdx() == nullptr || fixed.empty() || points.size() < 2)
        return;
    for (Point const & p : smooth)
        require(isFinite(p), "a corrected polyline is finite");
    for (int index : fixed) {
        require(index >= 0 && std::size_t(index) < points.size(), "a fixed point exists");
        std::size_t const k = isClosed && std::size_t(index) + 1 == points.size() ? 0 : std::size_t(index);
        require(smooth[k] == points[k], "a fixed point stays");
    }
}

template <class Point>
void checkCorners(std::vector<Point> const & contour, double radius2, bool isClosed)
{
    std::vector<int> marks{5};
    bool const isMarked = GetContourCornerMarks(contour, radius2, isClosed, marks);
    require(marks.size() == (isMarked ? contour.size() : 1), "there is a mark for each point");
    std::vector<std::vector<Point>> segments{contour};
    int corners = -1;
    bool const isSplit = SplitContourByCorners(&segments, segments.front(), radius2, isClosed, &corners);
    require(isSplit == isMarked, "what is marked is split");
    if (!isSplit)
        return;
    require(corners == std::count(marks.begin(), marks.end(), 1), "marks are counted");
    int const pieces = isClosed || corners == 0 ? std::max(corners, 1) : corners - 1;
    require(segments.size() == 1 + std::size_t(pieces), "pieces lie between marks");
}

CArc2D arc(Input & input)
{
    CArc2D result;
    float * const fields[] = {&result.m_centerX, &result.m_centerY, &result.m_startX, &result.m_startY,
                              &result.m_endX,    &result.m_endY,    &result.m_radius};
    for (float * field : fields)
        *field = float(input.number());
    result.m_straight = input.upTo(1);
    return result;
}

void checkArcs(Input & input)
{
    CArc2D arcs[2] = {arc(input), arc(input)};
    float point[2] = {float(input.number()), float(input.number())};
    CArc2D fillet = arcs[1];
    if (fillet.Make2ArcsFillet(arcs, point))
        require(std::isfinite(fillet.m_centerX) && std::isfinite(fillet.m_centerY) &&
                    std::isfinite(fillet.m_radius) && std::isfinite(fillet.m_startX) &&
                    std::isfinite(fillet.m_startY) && std::isfinite(fillet.m_endX) &&
                    std::isfinite(fillet.m_endY),
                "a fillet is finite");
    float crossing[2] = {};
    if (Get2ArcsIntersect(arcs, crossing))
        require(std::isfinite(crossing[0]) && std::isfinite(crossing[1]), "an intersection is finite");
    float const xs[4] = {point[0], arcs[0].m_startX, arcs[0].m_endX, arcs[1].m_startX};
    float const ys[4] = {point[1], arcs[0].m_startY, arcs[0].m_endY, arcs[1].m_startY};
    Arc4pointsError(xs, ys);
    CArc2D::m_bArcApprox = input.flag();
    arcs[0].MakeBy3Points(xs, ys);
    require(arcs[0].m_straight != 0 || CArc2D::m_bArcApprox, "arcs are made on request");
}

void checkArrangement(Input & input)
{
    std::vector<float> values;
    for (int k = input.upTo(24); k > 0; --k)
        values.push_back(float(input.number()));
    int const direction = input.flag() ? 1 : input.integer(), period = input.integer();
    std::vector<float> line = values;
    require(ArrangePointsOnLine(line, direction, period) && line.size() == values.size(),
            "values are sorted");
    auto const before = [direction](float a, float b) {
        // A value that is no number counts as the greatest.
        auto const less = [](float x, float y) { return std::isnan(y) ? !std::isnan(x) : x < y; };
        return direction < 0 ? less(b, a) : less(a, b);
    };
    require(std::is_sorted(line.begin(), line.end(), before), "values are in order");
    std::vector<float> circle = values;
    if (ArrangePointsOnCircle(circle, direction, period)) {
        std::vector<float> const once = circle;
        require(ArrangePointsOnCircle(circle, direction, period) && circle == once, "what is in order stays");
    } else {
        require(Bits(circle) == Bits(values), "a list that cannot be repaired stays");
    }
}

void checkContour(Points const & points, Input & input)
{
    std::vector<double> xy;
    for (Point3D_d const & p : points) {
        xy.push_back(p.x());
        xy.push_back(p.y());
    }
    if (input.flag())
        xy.push_back(1);
    Check2dContourSelfIntersections(xy);
    double const x = input.number(), y = input.number();
    isPointInContour(x, y, xy);

    CProjectorsJoin join;
    auto polyline = std::make_unique<CProjectorToPolyline>(points);
    std::unique_ptr<IPointToGeomObjProjector> const copy(polyline->Copy());
    Point3D_d foot(7.0), footOfCopy;
    double param = -1;
    Point3D_d const p = input.point();
    bool const isFound = polyline->projectPoint(p, foot, param);
    require(copy->projectPoint(p, footOfCopy) == isFound, "a copy projects alike");
    if (isFound)
        require(Bits(foot) == Bits(footOfCopy) && isFinite(foot) && param >= 0 &&
                    param <= double(points.size() - 1),
                "a projection lies on the polyline");
    join.AddProjectorWithOwnerShip(polyline.release());
    join.AddProjectorWithOwnerShip(nullptr);
    require(join.projectPoint(p, footOfCopy) == isFound, "a join of one is that one");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    int const kind = input.upTo(6);
    if (kind == 5 || kind == 6) {
        kind == 5 ? checkArcs(input) : checkArrangement(input);
        return 0;
    }
    Points points = input.points(60);
    if (!points.empty() && input.flag())
        points.push_back(points.front());
    switch (kind) {
    case 0:
    case 1:
        checkPolyline(points, input);
        break;
    case 2:
        if (input.flag())
            checkSmoothing(points, input);
        else
            checkSmoothing(inSinglePrecision(points), input);
        break;
    case 3: {
        double const radius2 = input.number();
        bool const isClosed = input.flag();
        checkCorners(points, radius2, isClosed);
        checkCorners(inSinglePrecision(points), radius2, isClosed);
        break;
    }
    default:
        checkContour(points, input);
    }
    return 0;
}

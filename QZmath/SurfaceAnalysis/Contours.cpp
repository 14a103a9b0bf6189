// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Contours.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace
{

// The part of a segment in which an intersection counts.
constexpr double intervalStart = 1e-06;
constexpr double intervalEnd = 0.999999;
constexpr double parallelTolerance = 1e-08;

struct Vector2
{
    double x, y;
};

double dot(Vector2 const & a, Vector2 const & b) { return a.x * b.x + a.y * b.y; }
double cross(Vector2 const & a, Vector2 const & b) { return a.x * b.y - a.y * b.x; }

bool isWithin(double t) { return t >= intervalStart && t <= intervalEnd; }

// Whether the segments along `a` and `b`, the second of which starts `w` from the start of the first, have a
// point inside of both.
bool intersect(Vector2 const & a, Vector2 const & b, Vector2 const & w)
{
    double const aa = dot(a, a);
    double const bb = dot(b, b);
    double const ab = dot(a, b);
    double const sine = cross(a, b);
    // (a x b)² is aa bb - ab² without its cancellation.
    if (sine * sine > parallelTolerance * (aa * bb + ab * ab))
        return isWithin(cross(w, b) / sine) && isWithin(cross(w, a) / sine);
    if (!(std::abs(cross(a, w)) <= parallelTolerance * (aa + dot(w, w))))
        return false;
    // Not a number, and false below, for a first segment without length.
    double const start = dot(a, w) / aa;
    double const end = start + ab / aa;
    return std::max(start, end) > intervalStart && std::min(start, end) < intervalEnd;
}

} // namespace

bool Check2dContourSelfIntersections(std::vector<double> const & xy)
{
    std::size_t const points = xy.size() / 2;
    if (points <= 4)
        return true;
    std::size_t const segments = points - 1;
    auto const along = [&](std::size_t segment) {
        return Vector2{xy[2 * segment + 2] - xy[2 * segment], xy[2 * segment + 3] - xy[2 * segment + 1]};
    };
    for (std::size_t first = 0; first + 2 < segments; ++first) {
        Vector2 const a = along(first);
        // The last segment is a neighbour of the first one.
        std::size_t const end = first == 0 ? segments - 1 : segments;
        for (std::size_t second = first + 2; second < end; ++second) {
            Vector2 const w = {xy[2 * second] - xy[2 * first], xy[2 * second + 1] - xy[2 * first + 1]};
            if (intersect(a, along(second), w))
                return false;
        }
    }
    return true;
}

bool isPointInContour(double x, double y, std::vector<double> const & xy)
{
    constexpr double sidestep = 1e-10;
    std::size_t const points = xy.size() / 2;
    if (points < 2)
        return false;
    auto const besidePoint = [x](double vertexX) { return vertexX == x ? vertexX + sidestep : vertexX; };
    bool inside = false;
    double startX = besidePoint(xy[0]), startY = xy[1];
    for (std::size_t point = 1; point < points; ++point) {
        double const endX = besidePoint(xy[2 * point]), endY = xy[2 * point + 1];
        // A vertex too far out for the sidestep to change it counts as right of the point all the same.
        if ((startX >= x) != (endX >= x)) {
            // From the left end, so that two contours agree on a segment that they share.
            bool const rightwards = startX < endX;
            double const leftX = rightwards ? startX : endX, leftY = rightwards ? startY : endY;
            double const rightX = rightwards ? endX : startX, rightY = rightwards ? endY : startY;
            double const above = leftY + (rightY - leftY) * ((x - leftX) / (rightX - leftX));
            inside = inside != (above >= y);
        }
        startX = endX;
        startY = endY;
    }
    return inside;
}

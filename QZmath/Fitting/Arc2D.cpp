// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Arc2D.h>

#include <cmath>
#include <type_traits>

static_assert(std::is_standard_layout_v<CArc2D> && std::is_trivially_copyable_v<CArc2D>);
static_assert(sizeof(CArc2D) == 8 * sizeof(float));

bool CArc2D::m_bArcApprox = false;

namespace
{

// Twice the area of a triangle from which on it has a circumcircle.
constexpr double leastArea = 1e-10;

struct Vector2
{
    double x = 0;
    double y = 0;
};

Vector2 operator+(Vector2 const & a, Vector2 const & b) { return {a.x + b.x, a.y + b.y}; }
Vector2 operator-(Vector2 const & a, Vector2 const & b) { return {a.x - b.x, a.y - b.y}; }
Vector2 operator*(double factor, Vector2 const & a) { return {factor * a.x, factor * a.y}; }
double dot(Vector2 const & a, Vector2 const & b) { return a.x * b.x + a.y * b.y; }
double cross(Vector2 const & a, Vector2 const & b) { return a.x * b.y - a.y * b.x; }
double length(Vector2 const & a) { return std::sqrt(dot(a, a)); }

Vector2 centerOf(CArc2D const & arc) { return {arc.m_centerX, arc.m_centerY}; }
Vector2 startOf(CArc2D const & arc) { return {arc.m_startX, arc.m_startY}; }
Vector2 endOf(CArc2D const & arc) { return {arc.m_endX, arc.m_endY}; }
bool isStraight(CArc2D const & arc) { return arc.m_straight != 0; }

// Rounds to `float`; false when the result is not finite.
bool roundTo(Vector2 const & point, float & x, float & y)
{
    x = static_cast<float>(point.x);
    y = static_cast<float>(point.y);
    return std::isfinite(x) && std::isfinite(y);
}

Vector2 nearerToOrigin(Vector2 const & first, Vector2 const & second)
{
    return dot(second, second) < dot(first, first) ? second : first;
}

bool intersectLines(CArc2D const & first, CArc2D const & second, Vector2 & point)
{
    Vector2 const p = startOf(first);
    Vector2 const d = endOf(first) - p;
    Vector2 const e = endOf(second) - startOf(second);
    double const determinant = cross(e, d);
    if (determinant == 0)
        return false;
    point = p + cross(e, startOf(second) - p) / determinant * d;
    return true;
}

bool intersectLineAndCircle(CArc2D const & segment, CArc2D const & circle, Vector2 & point)
{
    Vector2 const p = startOf(segment);
    Vector2 const d = endOf(segment) - p;
    Vector2 const f = centerOf(circle) - p;
    double const radius = circle.m_radius;
    double const a = dot(d, d);
    double const b = dot(d, f);
    // b² - a (f² - r²) without the difference of the large squares.
    double const height = cross(d, f);
    double const discriminant = a * radius * radius - height * height;
    if (!(discriminant >= 0))
        return false;
    double const root = std::sqrt(discriminant);
    point = nearerToOrigin(p + (b - root) / a * d, p + (b + root) / a * d);
    return true;
}

bool intersectCircles(CArc2D const & first, CArc2D const & second, Vector2 & point)
{
    double const r1 = first.m_radius;
    double const r2 = second.m_radius;
    Vector2 const w = centerOf(second) - centerOf(first);
    double const distance = length(w);
    if (distance == 0)
        return false;
    double const k = ((r1 - r2) * (r1 + r2) + distance * distance) / (2 * distance);
    double const squaredHeight = (r1 - k) * (r1 + k);
    if (!(squaredHeight >= 0))
        return false;
    Vector2 const foot = centerOf(first) + k / distance * w;
    Vector2 const aside = std::sqrt(squaredHeight) / distance * Vector2{w.y, -w.x};
    point = nearerToOrigin(foot + aside, foot - aside);
    return true;
}

// Height over the line of a segment, times its length: positive on its left.
double scaledHeight(CArc2D const & segment, Vector2 const & point)
{
    return cross(endOf(segment) - startOf(segment), point - startOf(segment));
}

// Negative inside of the circle.
double power(CArc2D const & circle, Vector2 const & point)
{
    Vector2 const offset = point - centerOf(circle);
    double const radius = circle.m_radius;
    return dot(offset, offset) - radius * radius;
}

double distanceMeasure(CArc2D const & element, Vector2 const & point)
{
    if (isStraight(element))
        return std::abs(scaledHeight(element, point));
    return std::abs(length(point - centerOf(element)) - static_cast<double>(element.m_radius));
}

// What tells on which side of `element` its partner `other` lies.
Vector2 referenceOf(CArc2D const & other, CArc2D const & element)
{
    if (!isStraight(other))
        return centerOf(other);
    bool const endIsFarther =
        distanceMeasure(element, endOf(other)) > distanceMeasure(element, startOf(other));
    return endIsFarther ? endOf(other) : startOf(other);
}

// Condition for the centre c of a circle of radius r through a point P to touch an element:
// normal·(c - P) = level + slope r.
//
// For a segment it is the distance r of c from its line. For a circle with centre C and radius R it is the
// difference of |c - C|² = (R ± r)² and |c - P|² = r², from which the squares of c and r drop out.
struct Tangency
{
    Vector2 normal;
    double level = 0;
    double slope = 0;
    // +1 on the left of a segment and outside of a circle, else -1.
    double side = 0;
};

bool makeTangency(CArc2D const & element, CArc2D const & other, Vector2 const & point, Tangency & tangency)
{
    Vector2 const reference = referenceOf(other, element);
    if (isStraight(element)) {
        double const height = scaledHeight(element, point);
        if (!(height * scaledHeight(element, reference) > 0))
            return false;
        Vector2 const along = endOf(element) - startOf(element);
        tangency.side = height > 0 ? 1 : -1;
        tangency.normal = {-along.y, along.x};
        tangency.level = -height;
        tangency.slope = tangency.side * length(along);
        return true;
    }
    double const powerOfPoint = power(element, point);
    double const powerOfReference = power(element, reference);
    if (!(powerOfPoint * powerOfReference >= 0))
        return false;
    tangency.side = powerOfPoint + powerOfReference >= 0 ? 1 : -1;
    tangency.normal = 2 * (centerOf(element) - point);
    tangency.level = powerOfPoint;
    tangency.slope = -2 * tangency.side * static_cast<double>(element.m_radius);
    return true;
}

Vector2 touchPoint(CArc2D const & element, Tangency const & tangency, Vector2 const & center, double radius)
{
    if (isStraight(element)) {
        Vector2 const along = endOf(element) - startOf(element);
        return startOf(element) + dot(center - startOf(element), along) / dot(along, along) * along;
    }
    double const ownRadius = element.m_radius;
    return centerOf(element) +
           ownRadius / (ownRadius + tangency.side * radius) * (center - centerOf(element));
}

// Centre of the circle through the origin, `a` and `b`, which have the cross product `area`.
Vector2 circumcenter(Vector2 const & a, Vector2 const & b, double area)
{
    double const aa = dot(a, a);
    double const bb = dot(b, b);
    return {(aa * b.y - bb * a.y) / (2 * area), (bb * a.x - aa * b.x) / (2 * area)};
}

Vector2 pointAt(float const * xs, float const * ys, int i) { return {xs[i], ys[i]}; }

} // namespace

bool Get2ArcsIntersect(CArc2D const * arcs, float * point)
{
    CArc2D const & first = arcs[0];
    CArc2D const & second = arcs[1];
    Vector2 found;
    bool const isFound = isStraight(first) && isStraight(second) ? intersectLines(first, second, found)
                         : isStraight(first)  ? intersectLineAndCircle(first, second, found)
                         : isStraight(second) ? intersectLineAndCircle(second, first, found)
                                              : intersectCircles(first, second, found);
    float x = 0;
    float y = 0;
    if (!isFound || !roundTo(found, x, y))
        return false;
    point[0] = x;
    point[1] = y;
    return true;
}

bool CArc2D::Make2ArcsFillet(CArc2D const * arcs, float const * point)
{
    Vector2 const through = {point[0], point[1]};
    Tangency first;
    Tangency second;
    if (!makeTangency(arcs[0], arcs[1], through, first) || !makeTangency(arcs[1], arcs[0], through, second))
        return false;
    double const determinant = cross(first.normal, second.normal);
    if (determinant == 0)
        return false;
    auto const solve = [&](double right1, double right2) {
        return 1 / determinant *
               Vector2{right1 * second.normal.y - right2 * first.normal.y,
                       right2 * first.normal.x - right1 * second.normal.x};
    };
    // The centre, from `through`, is c0 + r g, and its length is to be r.
    Vector2 const c0 = solve(first.level, second.level);
    Vector2 const g = solve(first.slope, second.slope);
    double const a = dot(g, g) - 1;
    double const b = dot(g, c0);
    double const discriminant = b * b - a * dot(c0, c0);
    if (a == 0 || !(discriminant >= 0))
        return false;
    double const radius = (std::sqrt(discriminant) - b) / a;
    Vector2 const center = through + (c0 + radius * g);

    CArc2D result = *this;
    result.m_radius = static_cast<float>(radius);
    if (!std::isfinite(result.m_radius) || !roundTo(center, result.m_centerX, result.m_centerY) ||
        !roundTo(touchPoint(arcs[0], first, center, radius), result.m_startX, result.m_startY) ||
        !roundTo(touchPoint(arcs[1], second, center, radius), result.m_endX, result.m_endY))
        return false;
    *this = result;
    return true;
}

void CArc2D::MakeBy3Points(float const * xs, float const * ys)
{
    m_startX = xs[0];
    m_startY = ys[0];
    m_endX = xs[2];
    m_endY = ys[2];
    m_straight = 1;
    Vector2 const origin = pointAt(xs, ys, 0);
    Vector2 const middle = pointAt(xs, ys, 1) - origin;
    Vector2 const last = pointAt(xs, ys, 2) - origin;
    double const area = cross(middle, last);
    if (!m_bArcApprox || !(std::abs(area) >= leastArea))
        return;
    Vector2 const center = circumcenter(middle, last, area);
    float const radius = static_cast<float>(length(center));
    float x = 0;
    float y = 0;
    if (!roundTo(origin + center, x, y) || !std::isfinite(radius))
        return;
    m_centerX = x;
    m_centerY = y;
    m_radius = radius;
    m_straight = 0;
}

float Arc4pointsError(float const * xs, float const * ys)
{
    Vector2 const origin = pointAt(xs, ys, 0);
    Vector2 const second = pointAt(xs, ys, 1) - origin;
    Vector2 const tested = pointAt(xs, ys, 2) - origin;
    Vector2 const last = pointAt(xs, ys, 3) - origin;
    double const area = cross(second, last);
    if (std::abs(static_cast<float>(area)) >= static_cast<float>(leastArea)) {
        Vector2 const center = circumcenter(second, last, area);
        // |tested - center| - |center|, which cancel each other on a flat arc.
        double const sum = length(tested - center) + length(center);
        return static_cast<float>(dot(tested, tested - 2 * center) / sum);
    }
    double const base = length(second);
    return static_cast<float>(base > 0 ? std::abs(cross(second, tested)) / base : length(tested));
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneLimits.h>

#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace REmath
{

namespace
{

constexpr double pi = 3.14159265358979323846;
constexpr int autoSteps = 120;

// Least and greatest of the values put in; NaN changes neither.
class Range
{
public:
    void widen(double value)
    {
        if (value < m_least)
            m_least = value;
        if (value > m_greatest)
            m_greatest = value;
    }
    double least() const { return isEmpty() ? -1 : m_least; }
    double greatest() const { return isEmpty() ? 1 : m_greatest; }
    double length() const { return greatest() - least(); }

private:
    bool isEmpty() const { return m_least > 1e99; }

    double m_least = 1e100;
    double m_greatest = -1e100;
};

Point3D_d pointAt(ICoord3DRefs const & refs, int index) { return refs.getPointCoords(index); }

struct PlanePoint
{
    double u = 0;
    double v = 0;
};

// Convex polygon between points of a set that are extreme in directions all around, to tell the points deep
// inside of the set from those that may lie on its convex hull (S. G. Akl and G. T. Toussaint, A fast convex
// hull algorithm, 1978).
class InnerPolygon
{
public:
    InnerPolygon()
    {
        for (std::size_t i = 0; i < directionCount; ++i) {
            double const angle = 2 * pi * static_cast<double>(i) / directionCount;
            m_directions[i] = {std::cos(angle), std::sin(angle)};
            m_heights[i] = -1e100;
        }
    }

    // `size` bounds the coordinates in space, which give the rounding of those in the plane.
    void add(PlanePoint const & point, double size)
    {
        for (std::size_t i = 0; i < directionCount; ++i) {
            double const height = m_directions[i].u * point.u + m_directions[i].v * point.v;
            if (height > m_heights[i]) {
                m_heights[i] = height;
                m_corners[i] = point;
            }
        }
        m_size = std::max(m_size, size);
    }

    // To be called between the last `add` and the first `contains`.
    void close()
    {
        for (std::size_t i = 0; i < directionCount; ++i) {
            PlanePoint const & from = m_corners[i];
            PlanePoint const & to = m_corners[(i + 1) % directionCount];
            double const du = to.u - from.u;
            double const dv = to.v - from.v;
            double const length = std::hypot(du, dv);
            if (length > 0)
                m_edges[m_edgeCount++] = {from, {-dv / length, du / length}};
        }
        // Far more than rounding can move a projection by.
        m_margin = 1e-12 * m_size;
    }

    // Whether the point lies inside, farther from the boundary than by rounding. False for NaN.
    bool contains(PlanePoint const & point) const
    {
        for (std::size_t i = 0; i < m_edgeCount; ++i) {
            Edge const & edge = m_edges[i];
            double const depth =
                (point.u - edge.from.u) * edge.inward.u + (point.v - edge.from.v) * edge.inward.v;
            if (!(depth > m_margin))
                return false;
        }
        return m_edgeCount > 0;
    }

private:
    static constexpr std::size_t directionCount = 16;

    struct Edge
    {
        PlanePoint from;
        PlanePoint inward;
    };

    std::array<PlanePoint, directionCount> m_directions;
    std::array<double, directionCount> m_heights;
    std::array<PlanePoint, directionCount> m_corners{};
    std::array<Edge, directionCount> m_edges{};
    std::size_t m_edgeCount = 0;
    double m_size = 0;
    double m_margin = 0;
};

// The points that can be the farthest of all in some direction of the plane of e1 and e2, in their order.
std::vector<Point3D_d> pointsOfBoundary(ICoord3DRefs const & refs, Point3D_d const & e1, Point3D_d const & e2)
{
    int const count = refs.getPointsNumber();
    InnerPolygon polygon;
    for (int i = 0; i < count; ++i) {
        Point3D_d const point = pointAt(refs, i);
        polygon.add({Detail::dot(point, e1), Detail::dot(point, e2)},
                    std::abs(point.x()) + std::abs(point.y()) + std::abs(point.z()));
    }
    polygon.close();
    std::vector<Point3D_d> boundary;
    for (int i = 0; i < count; ++i) {
        Point3D_d const point = pointAt(refs, i);
        if (!polygon.contains({Detail::dot(point, e1), Detail::dot(point, e2)}))
            boundary.push_back(point);
    }
    return boundary;
}

} // namespace

void DefinePointsLimitsBasis(ICoord3DRefs const & refs, double const * normal, double * e1, double * e2,
                             int steps)
{
    BuildUCSbyVector(normal, e1, e2);
    Point3D_d const axis1 = e1;
    Point3D_d const axis2 = e2;
    std::vector<Point3D_d> const points = pointsOfBoundary(refs, axis1, axis2);
    double leastArea = 1e30;
    double bestAngle = 0;
    for (int i = 0; i < steps; ++i) {
        double const angle = i * pi / steps;
        Point3D_d const a = axis1 * std::cos(angle) + axis2 * std::sin(angle);
        Point3D_d const b = Detail::cross(normal, a);
        Range alongA;
        Range alongB;
        for (Point3D_d const & point : points) {
            alongA.widen(Detail::dot(point, a));
            alongB.widen(Detail::dot(point, b));
        }
        double const area = alongA.length() * alongB.length();
        if (area < leastArea) {
            leastArea = area;
            bestAngle = angle;
        }
    }
    (axis1 * std::cos(bestAngle) + axis2 * std::sin(bestAngle)).toArray(e1);
}

void GetSelectionLinearLimits(ICoord3DRefs const & refs, double * direction, double * limits)
{
    Point3D_d const along = direction;
    Range range;
    int const count = refs.getPointsNumber();
    for (int i = 0; i < count; ++i)
        range.widen(Detail::dot(pointAt(refs, i), along));
    limits[0] = range.least();
    limits[1] = range.greatest();
}

CPlaneLimits::CPlaneLimits() { Clear(); }
CPlaneLimits::~CPlaneLimits() = default;

void CPlaneLimits::Clear()
{
    for (int i = 0; i < 2; ++i) {
        std::fill_n(m_basis[i], DIM, 0.0);
        std::fill_n(m_limits[i], 2, 0.0);
    }
}

double * CPlaneLimits::GetBasisVector(int i) { return m_basis[i == 0 ? 0 : 1]; }
double const * CPlaneLimits::GetBasisVector(int i) const { return m_basis[i == 0 ? 0 : 1]; }
double * CPlaneLimits::GetLimitsInDir(int i) { return m_limits[i == 0 ? 0 : 1]; }
double const * CPlaneLimits::GetLimitsInDir(int i) const { return m_limits[i == 0 ? 0 : 1]; }

void CPlaneLimits::DefineAuto(ICoord3DRefs const & refs, CPlaneEquation const & plane)
{
    DefinePointsLimitsBasis(refs, plane.NormalDir(), m_basis[0], m_basis[1], autoSteps);
    GetSelectionLinearLimits(refs, m_basis[0], m_limits[0]);
    GetSelectionLinearLimits(refs, m_basis[1], m_limits[1]);
}

} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/ProjectorTriangle.h>

#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cmath>
#include <limits>

using REmath::Detail::cross;
using REmath::Detail::dot;

namespace
{

double squaredDistance(float const * a, float const * b)
{
    REmath::Point3D_d const side = REmath::Point3D_d(b) - REmath::Point3D_d(a);
    return dot(side, side);
}

} // namespace

namespace REmath
{

CProjectorTriangle::CProjectorTriangle(float const * a, float const * b, float const * c)
    : m_vertices{{a[0], a[1], a[2]}, {b[0], b[1], b[2]}, {c[0], c[1], c[2]}}
{}

CProjectorTriangle::CProjectorTriangle(Point3D const & a, Point3D const & b, Point3D const & c)
    : CProjectorTriangle(a.asArray(), b.asArray(), c.asArray())
{}

CProjectorTriangle::CProjectorTriangle(Point3D const * vertices)
    : CProjectorTriangle(vertices[0], vertices[1], vertices[2])
{}

void CProjectorTriangle::PreCalc()
{
    // Squared ratio of the height of the third vertex to its side below which it has none.
    constexpr double flatness = 1e-12;
    Point3D_d const origin(m_vertices[0]);
    Point3D_d const firstSide = Point3D_d(m_vertices[1]) - origin;
    Point3D_d const lastSide = Point3D_d(m_vertices[2]) - origin;
    double const firstLength = std::sqrt(dot(firstSide, firstSide));

    Point3D_d const e1 = firstLength > 0 ? firstSide / firstLength : Point3D_d(1, 0, 0);
    double const along = dot(e1, lastSide);
    Point3D_d e2 = lastSide - e1 * along;
    double const squaredHeight = dot(e2, e2);
    double height = 0;
    if (squaredHeight > flatness * dot(lastSide, lastSide)) {
        height = std::sqrt(squaredHeight);
        e2 /= height;
    } else {
        double perpendicular[3];
        BuildDefPerpendicular(e1.asArray(), perpendicular);
        e2.fromArray(perpendicular);
    }
    Point3D_d const axes[3] = {e1, e2, cross(e1, e2)};
    for (int axis = 0; axis < 3; ++axis) {
        axes[axis].toArray(m_toLocal.matrix[axis]);
        m_toLocal.shift[axis] = -dot(axes[axis], origin);
    }

    m_second[0] = firstLength;
    m_second[1] = 0;
    m_third[0] = along;
    m_third[1] = height;
    double const corners[3][2] = {{0, 0}, {m_second[0], m_second[1]}, {m_third[0], m_third[1]}};
    for (int side = 0; side < 3; ++side) {
        int const next = (side + 1) % 3;
        m_edges[side][0] = corners[next][0] - corners[side][0];
        m_edges[side][1] = corners[next][1] - corners[side][1];
        // The third vertex lies above the first side, so the interior is on the left of each.
        m_inwardNormals[side][0] = -m_edges[side][1];
        m_inwardNormals[side][1] = m_edges[side][0];
        m_squaredSides[side] = m_edges[side][0] * m_edges[side][0] + m_edges[side][1] * m_edges[side][1];
    }
    m_precalced = true;
}

double CProjectorTriangle::distanceInFrame(float const * p) const
{
    double local[3]; // as RElinearTransform::apply sums it
    for (int axis = 0; axis < 3; ++axis) {
        double const(&row)[3] = m_toLocal.matrix[axis];
        local[axis] =
            static_cast<float>(row[0] * p[0] + m_toLocal.shift[axis] + row[1] * p[1] + row[2] * p[2]);
    }
    double const x = local[0], y = local[1], z = local[2];
    double const cornersX[3] = {0, m_second[0], m_third[0]};
    double const cornersY[3] = {0, m_second[1], m_third[1]};

    bool inside = m_second[0] > 0 && m_third[1] > 0;
    double least = std::numeric_limits<double>::infinity();
    for (int side = 0; side < 3; ++side) {
        double const offsetX = x - cornersX[side], offsetY = y - cornersY[side];
        inside &= -offsetX * m_inwardNormals[side][0] - offsetY * m_inwardNormals[side][1] <= 0;
        double const along = offsetX * m_edges[side][0] + offsetY * m_edges[side][1];
        // Without branches, which points at random would make the processor guess. A side without length has
        // its start for every point.
        double const length2 = std::max(m_squaredSides[side], std::numeric_limits<double>::min());
        double const t = std::max(0.0, std::min(length2, along)) / length2;
        double const restX = offsetX - t * m_edges[side][0], restY = offsetY - t * m_edges[side][1];
        least = std::min(least, restX * restX + restY * restY);
    }
    if (inside)
        return z * z;
    return least + z * z;
}

double CProjectorTriangle::DistToTriangle2(float const * p) const
{
    CProjectorTriangle local(*this);
    local.PreCalc();
    return local.distanceInFrame(p);
}

double CProjectorTriangle::DistToTriangle2Precalced(float const * p) const
{
    return m_precalced ? distanceInFrame(p) : DistToTriangle2(p);
}

double CProjectorTriangle::GetMaxSideLen2() const
{
    return std::max({squaredDistance(m_vertices[0], m_vertices[1]),
                     squaredDistance(m_vertices[1], m_vertices[2]),
                     squaredDistance(m_vertices[2], m_vertices[0])});
}

} // namespace REmath

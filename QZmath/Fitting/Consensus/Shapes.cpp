// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Consensus/Shapes.h>

#include <QZmath/Fitting/LineFitting.h>
#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/Samples/PointScatter.h>
#include <QZmath/Foundation/SymmetricEigen.h>
#include <QZmath/Foundation/VectorGeometry.h>

#include <algorithm>
#include <limits>

namespace REmath::Detail
{

namespace
{

constexpr double unbounded = std::numeric_limits<double>::infinity();
// Of the longest extent, where there may be no background.
constexpr double leastBackground = 0.25;
constexpr double pi = 3.14159265358979323846;

bool normalize(Point3D_d & vector)
{
    double const length = vector.length();
    vector = vector / length;
    return length > 0 && std::isfinite(length);
}

// Solves for the unknowns of the normal equations with the symmetric matrix of the elements xx, xy, x1, yy,
// y1, 11, by its adjugate.
bool solveSymmetric(double const (&m)[6], double const (&right)[3], double (&solution)[3])
{
    double const a = m[3] * m[5] - m[4] * m[4], b = m[2] * m[4] - m[1] * m[5], c = m[1] * m[4] - m[2] * m[3];
    double const determinant = m[0] * a + m[1] * b + m[2] * c;
    double const d = m[0] * m[5] - m[2] * m[2], e = m[1] * m[2] - m[0] * m[4], f = m[0] * m[3] - m[1] * m[1];
    solution[0] = (a * right[0] + b * right[1] + c * right[2]) / determinant;
    solution[1] = (b * right[0] + d * right[1] + e * right[2]) / determinant;
    solution[2] = (c * right[0] + e * right[1] + f * right[2]) / determinant;
    return std::isfinite(solution[0]) && std::isfinite(solution[1]) && std::isfinite(solution[2]);
}

} // namespace

bool PrincipalFrame::fit(std::vector<Point3D_d> const & points)
{
    PointScatter const scatter(points.data(), points.size());
    centroid = scatter.centroid().data();
    auto const [xx, xy, yy, xz, yz, zz] = scatter.elements();
    double matrix[3][3] = {{xx, xy, xz}, {xy, yy, yz}, {xz, yz, zz}};
    double * rows[3] = {matrix[0], matrix[1], matrix[2]};
    double values[3], subdiagonal[3];
    tred2_d(rows, 3, values, subdiagonal);
    if (tqli_d(values, subdiagonal, 3, rows) == 0)
        return false;
    std::size_t order[3] = {0, 1, 2};
    std::sort(order, order + 3, [&values](std::size_t i, std::size_t k) { return values[i] > values[k]; });
    for (std::size_t i = 0; i < 3; ++i) {
        std::size_t const column = order[i];
        axes[i] = {rows[0][column], rows[1][column], rows[2][column]};
        spread[i] = std::sqrt(std::max(0.0, values[column]) / static_cast<double>(points.size()));
        if (!std::isfinite(spread[i] + axes[i].x() + axes[i].y() + axes[i].z()))
            return false;
    }
    return true;
}

bool ConsensusLine::through(Point3D_d const * sample)
{
    origin = sample[0];
    direction = sample[1] - sample[0];
    return normalize(direction);
}

bool ConsensusLine::fit(std::vector<Point3D_d> const & inliers)
{
    return FitLineToPointSet(inliers, origin, direction);
}

NearbyChance ConsensusLine::chance(Extents const & extents) const
{
    return {{2 / std::max(extents[1], leastBackground * extents[0]), 2 / extents[2]}};
}

bool ConsensusPlane::through(Point3D_d const * sample)
{
    origin = sample[0];
    normal = cross(sample[1] - sample[0], sample[2] - sample[0]);
    return normalize(normal);
}

bool ConsensusPlane::fit(std::vector<Point3D_d> const & inliers)
{
    double coefficients[4], centroid[3];
    if (!FitPlaneToPointSet(inliers, coefficients, centroid))
        return false;
    normal = coefficients;
    origin = centroid;
    return true;
}

NearbyChance ConsensusPlane::chance(Extents const & extents) const
{
    return {{2 / std::max(extents[2], leastBackground * extents[0]), unbounded}};
}

bool ConsensusCircle::through(Point3D_d const * sample)
{
    Point3D_d const a = sample[1] - sample[0], b = sample[2] - sample[0];
    normal = cross(a, b);
    double const square = dot(normal, normal);
    Point3D_d const offset = cross(a * dot(b, b) - b * dot(a, a), normal) / (-2 * square);
    center = sample[0] + offset;
    radius = offset.length();
    return normalize(normal) && radius > 0 && radius < 100;
}

bool ConsensusCircle::fit(std::vector<Point3D_d> const & inliers)
{
    double coefficients[4], centroid[3], u[3], v[3];
    if (!FitPlaneToPointSet(inliers, coefficients, centroid))
        return false;
    BuildUCSbyVector(coefficients, u, v);
    Point3D_d const axisU(u), axisV(v), origin(centroid);
    double cx = dot(center - origin, axisU), cy = dot(center - origin, axisV);
    for (int step = 0; step < 4; ++step) {
        double matrix[6] = {}, right[3] = {}, move[3];
        for (Point3D_d const & point : inliers) {
            double const px = dot(point - origin, axisU) - cx, py = dot(point - origin, axisV) - cy;
            double const distance = std::sqrt(px * px + py * py);
            if (!(distance > 0))
                continue; // a point in the centre pulls to no side
            double const x = px / distance, y = py / distance, error = distance - radius;
            matrix[0] += x * x;
            matrix[1] += x * y;
            matrix[2] += x;
            matrix[3] += y * y;
            matrix[4] += y;
            matrix[5] += 1;
            right[0] += x * error;
            right[1] += y * error;
            right[2] += error;
        }
        if (!solveSymmetric(matrix, right, move))
            return false;
        cx += move[0];
        cy += move[1];
        radius += move[2];
        if (std::abs(move[0]) + std::abs(move[1]) + std::abs(move[2]) < 1e-6 * radius)
            break; // what is left is the square of that
    }
    center = origin + axisU * cx + axisV * cy;
    normal = coefficients;
    return std::isfinite(cx + cy + normal.x() + normal.y() + normal.z()) && radius > 0 && radius < 100;
}

NearbyChance ConsensusCircle::chance(Extents const & extents) const
{
    double const width = std::max(extents[1], leastBackground * extents[0]);
    return {{4 * pi * radius / (extents[0] * width), 2 / extents[2]}};
}

} // namespace REmath::Detail

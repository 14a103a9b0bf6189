// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZmath/SurfaceAnalysis/Neighbourhood/Scatter.h>

#include <algorithm>
#include <cmath>

using REmath::Point3D;

// Normals of planes, and what has no method of its own. The quadric, the curvatures and the sphere are in
// QuadricFit.cpp, CurvatureEstimation.cpp and UmbilicCurvature.cpp.

namespace
{

template <class Function>
auto withDoubleNormal(float * normal, Function function)
{
    double wide[3] = {};
    auto const result = function(wide);
    std::transform(wide, wide + 3, normal, [](double value) { return static_cast<float>(value); });
    return result;
}

} // namespace

int GetNormal(int n, Point3D const * points, double ** matrix, double * normal)
{
    REmath::Detail::ScatterEigen eigen;
    if (!REmath::Detail::decomposeScatterOf(n, points, matrix, eigen))
        return 0;
    for (int row = 0; row < 3; ++row)
        normal[row] = matrix[row][eigen.smallest];
    return 1;
}

int GetNormal(int n, Point3D const * points, double ** matrix, float * normal)
{
    return withDoubleNormal(normal, [&](double * wide) { return GetNormal(n, points, matrix, wide); });
}

int GetAnisotropy(int n, Point3D const * points, double ** matrix, float & anisotropy)
{
    REmath::Detail::ScatterEigen eigen;
    if (!REmath::Detail::decomposeScatterOf(n, points, matrix, eigen))
        return 0;
    double const sum = eigen.values[0] + eigen.values[1] + eigen.values[2];
    anisotropy = sum > 0 ? static_cast<float>(eigen.values[eigen.smallest] / sum) : 0.33333334F;
    return 1;
}

bool EstimateNormal(std::vector<Point3D> const & points, double * normal)
{
    std::fill_n(normal, 3, 0.0);
    double memory[3][3];
    double * rows[3] = {memory[0], memory[1], memory[2]};
    return GetNormal(static_cast<int>(points.size()), points.data(), rows, normal) != 0;
}

bool GetNormal2(int n, Point3D const * points, CGetNormal2Prms const * prms, CQuadraticForm * form,
                float * const normal, float * const dist, double * scale)
{
    return withDoubleNormal(
        normal, [&](double * wide) { return GetNormal2(n, points, prms, form, wide, dist, scale); });
}

bool GetNormalAndQuadricApprShiftedNonScaled(int n, Point3D const * points, CQuadraticForm & form,
                                             float * normal)
{
    return withDoubleNormal(normal, [&](double * wide) {
        return GetNormalAndQuadricApprShiftedNonScaled(n, points, form, wide);
    });
}

bool DetectContourNormal(std::vector<Point3D> const & contour, float * normal)
{
    if (!normal)
        return false;
    Point3D mean;
    for (Point3D const & point : contour)
        mean += point;
    mean /= static_cast<float>(contour.size());
    Point3D area;
    for (std::size_t i = 0; i < contour.size(); ++i) {
        Point3D const p = contour[i] - mean;
        Point3D const q = contour[i + 1 < contour.size() ? i + 1 : 0] - mean;
        area += Point3D(p.y() * q.z() - p.z() * q.y(), p.z() * q.x() - p.x() * q.z(),
                        p.x() * q.y() - p.y() * q.x());
    }
    float const squared = area.x() * area.x() + area.y() * area.y() + area.z() * area.z();
    if (!(squared > 0) || !std::isfinite(squared))
        return false;
    area.toArray(normal);
    NormalizeVector(normal); // in double: the square may be a subnormal number
    return true;
}

// SPDX-License-Identifier: Apache-2.0
// Curvatures out of the quadric of a neighbourhood.
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZmath/SurfaceAnalysis/Neighbourhood/CurvatureTensor.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/ScaledPoints.h>

#include <algorithm>
#include <cmath>

using REmath::Matrix;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;
using REmath::Detail::residual;
using REmath::Detail::ScaledPoints;

namespace
{

constexpr double unknownCurvature = 20;

// Second fundamental form of the quadric at the origin in a frame of tangents.
struct TangentFrame
{
    Point3D_d normal, tangent1, tangent2;
    double mean, halfGap; // the principal curvatures are mean -+ halfGap
};

// False where the gradient or the difference of the principal curvatures is too small.
bool curvaturesAtOrigin(CQuadFormRaw9<double> const & form, TangentFrame & frame)
{
    double const * const a = form.coeffs;
    Point3D_d const gradient(a + 6);
    double const squared = dot(gradient, gradient);
    if (!(squared > 1e-10))
        return false;
    double const length = std::sqrt(squared);
    Point3D_d const n = frame.normal = gradient / length;
    double const nx = n.x(), ny = n.y(), nz = n.z();
    if (nz * nz < 0.8)
        frame.tangent1 = Point3D_d(-ny, nx, 0) / std::sqrt(1 - nz * nz);
    else if (ny * ny < 0.8)
        frame.tangent1 = Point3D_d(nz, 0, -nx) / std::sqrt(1 - ny * ny);
    else
        frame.tangent1 = Point3D_d(0, -nz, ny) / std::sqrt(1 - nx * nx);
    frame.tangent2 = cross(frame.tangent1, n);

    auto const polar = [a](Point3D_d const & t, Point3D_d const & u) {
        return 2 * (a[0] * t.x() * u.x() + a[3] * t.y() * u.y() + a[5] * t.z() * u.z()) +
               a[1] * (t.x() * u.y() + t.y() * u.x()) + a[2] * (t.x() * u.z() + t.z() * u.x()) +
               a[4] * (t.y() * u.z() + t.z() * u.y());
    };
    double const e = -polar(frame.tangent2, frame.tangent2) / length;
    double const g = -polar(frame.tangent1, frame.tangent1) / length;
    double const f = -polar(frame.tangent1, frame.tangent2) / length;
    frame.mean = (e + g) / 2;
    double const discriminant = frame.mean * frame.mean - e * g + f * f;
    if (!(discriminant >= 1e-10))
        return false;
    frame.halfGap = std::sqrt(discriminant);
    return true;
}

// The quadric that curvatures are taken from: of the second degree also where the points are flat.
bool fitCurvedQuadric(int n, Point3D const * points, CQuadraticForm & form, double * normal, double & scale)
{
    CGetNormal2Prms prms;
    prms.Force2() = true;
    return GetNormal2(n, points, &prms, &form, normal, nullptr, &scale);
}

void storeTensor(double const (&elements)[3][3], Matrix<double> & tensor)
{
    if (tensor.rows() != 3 || tensor.cols() != 3)
        tensor.resize(3, 3);
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col)
            tensor.elem(row, col) = elements[row][col];
    }
}

} // namespace

double MaxCurvature(CQuadraticForm const & form)
{
    CQuadFormRaw9<double> raw;
    form.ConvertToRawFormat(raw);
    return MaxCurvature(raw);
}

double MaxCurvature(CQuadFormRaw9<double> const & form)
{
    TangentFrame frame;
    if (!curvaturesAtOrigin(form, frame))
        return unknownCurvature;
    return std::max(std::abs(frame.mean + frame.halfGap), std::abs(frame.mean - frame.halfGap));
}

void GetCurvatures(CQuadFormRaw9<double> const & form, double * curvatures, Matrix<double> * tensor,
                   double * normal)
{
    curvatures[0] = curvatures[1] = unknownCurvature;
    TangentFrame frame;
    if (!curvaturesAtOrigin(form, frame))
        return;
    curvatures[0] = std::abs(frame.mean - frame.halfGap);
    curvatures[1] = std::abs(frame.mean + frame.halfGap);
    if (!tensor)
        return;
    Point3D_d const axes[2] = {frame.tangent2.unitLength(), frame.tangent1.unitLength()};
    if (normal)
        frame.normal.unitLength().toArray(normal);
    double elements[3][3] = {};
    for (int axis = 0; axis < 2; ++axis) {
        double const * const t = axes[axis].asArray();
        for (int row = 0; row < 3; ++row) {
            for (int col = 0; col < 3; ++col)
                elements[row][col] += curvatures[axis] * (t[row] * t[col]);
        }
    }
    storeTensor(elements, *tensor);
}

bool REmath::Detail::estimateCurvatureTensor(int n, Point3D const * points, bool computeNormal,
                                             double * normal, double (&tensor)[3][3], bool * isSphereBetter)
{
    CQuadraticForm form;
    double scale = 0, unit[3];
    if (!fitCurvedQuadric(n, points, form, unit, scale))
        return false;
    if (isSphereBetter) {
        ScaledPoints const scaled(n, points);
        *isSphereBetter = sphereResidual(scaled) <= residual(form, scaled, 1);
    }
    if (normal && !computeNormal)
        std::copy_n(normal, 3, unit);
    NormalizeVector(unit);
    if (!std::all_of(unit, unit + 3, [](double element) { return std::isfinite(element); }))
        return false;

    // T = P (Q + Q^T) P / |L| with the projection P = I - n n^T on the tangent plane.
    double projection[3][3], half[3][3] = {};
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col)
            projection[row][col] = (row == col) - unit[row] * unit[col];
    }
    CRotationMatrix const & q = form.GetQuadaricTerm();
    for (int row = 0; row < 3; ++row) {
        for (int k = 0; k < 3; ++k) {
            double sum = 0;
            for (int col = 0; col < 3; ++col)
                sum += projection[row][col] * (q.m[col][k] + q.m[k][col]);
            half[row][k] = sum;
        }
    }
    Point3D_d const & linear = form.GetLinearTerm();
    double const sign = dot(linear, Point3D_d(unit)) > 0 ? -1 : 1;
    double const factor = sign / (linear.length() * scale);
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col <= row; ++col) {
            double sum = 0;
            for (int k = 0; k < 3; ++k)
                sum += half[row][k] * projection[k][col];
            tensor[row][col] = tensor[col][row] = factor * sum;
        }
    }
    if (normal && computeNormal)
        std::copy_n(unit, 3, normal);
    return true;
}

bool EstimateCurvature(std::vector<Point3D> const & points, bool computeNormal, double * normal,
                       Matrix<double> & tensor)
{
    double elements[3][3];
    if (!REmath::Detail::estimateCurvatureTensor(static_cast<int>(points.size()), points.data(),
                                                 computeNormal, normal, elements, nullptr))
        return false;
    storeTensor(elements, tensor);
    return true;
}

bool GetMinMaxCurvaturesForPoints(std::vector<Point3D> & points, float & minCurvature, float & maxCurvature)
{
    CQuadraticForm form;
    double scale = 0, normal[3], curvatures[2];
    if (!fitCurvedQuadric(static_cast<int>(points.size()), points.data(), form, normal, scale))
        return false;
    CQuadFormRaw9<double> raw;
    form.ConvertToRawFormat(raw);
    GetCurvatures(raw, curvatures, nullptr, nullptr);
    bool const areNegative = curvatures[0] <= 0 && curvatures[1] <= 0;
    bool const areOfTwoSigns =
        curvatures[0] * curvatures[1] <= 0 && std::abs(curvatures[0]) > std::abs(curvatures[1]);
    if (areNegative || areOfTwoSigns) {
        curvatures[0] = -curvatures[0];
        curvatures[1] = -curvatures[1];
    }
    minCurvature = static_cast<float>(std::min(curvatures[0], curvatures[1]) / scale);
    maxCurvature = static_cast<float>(std::max(curvatures[0], curvatures[1]) / scale);
    return std::isfinite(minCurvature) && std::isfinite(maxCurvature);
}

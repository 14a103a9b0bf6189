// SPDX-License-Identifier: Apache-2.0
// `GetNormal2`: the quadric of a neighbourhood.
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZmath/SurfaceAnalysis/Neighbourhood/ScaledPoints.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/Scatter.h>

#include <QZmath/Foundation/GeneralizedEigen.h>

#include <algorithm>
#include <cmath>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::dot;
using REmath::Detail::residual;
using REmath::Detail::ScaledPoints;
using REmath::Detail::weightOf;

namespace
{

constexpr int mostCoefficients = 10;

// Normal of the plane of least squares; zero when there is none.
Point3D_d planeNormal(ScaledPoints const & points)
{
    Point3D_d mean;
    for (int i = 1; i < points.size(); ++i)
        mean += points[i];
    mean /= points.size();
    double scatter[3][3] = {};
    double * rows[3] = {scatter[0], scatter[1], scatter[2]};
    for (int i = 0; i < points.size(); ++i) {
        Point3D_d const arm = i == 0 ? -mean : points[i] - mean;
        for (int row = 0; row < 3; ++row) {
            for (int col = 0; col <= row; ++col)
                scatter[row][col] += arm.asArray()[row] * arm.asArray()[col];
        }
    }
    REmath::Detail::ScatterEigen eigen;
    if (!REmath::Detail::decomposeScatter(rows, eigen) || eigen.smallest < 0)
        return {};
    return {scatter[0][eigen.smallest], scatter[1][eigen.smallest], scatter[2][eigen.smallest]};
}

// Weighted moments of the monomials of the points from `first` on: the lower triangle, mirrored at the end.
void sumMoments(ScaledPoints const & points, int first, int q,
                double (&moments)[mostCoefficients][mostCoefficients])
{
    for (int i = first; i < points.size(); ++i) {
        Point3D_d const p = points[i];
        double const x = p.x(), y = p.y(), z = p.z();
        double const monomials[mostCoefficients] = {x * x, x * y, x * z, y * y, y * z, z * z, x, y, z, 1};
        double const weight = weightOf(p);
        for (int row = 0; row < q; ++row) {
            double const weighted = weight * monomials[row];
            for (int col = 0; col <= row; ++col)
                moments[row][col] += weighted * monomials[col];
        }
    }
    for (int row = 0; row < q; ++row) {
        for (int col = row + 1; col < q; ++col)
            moments[row][col] = moments[col][row];
    }
}

// Solutions of the fit, normalised to a unit gradient at the origin.
struct Solutions
{
    double vectors[mostCoefficients][mostCoefficients];
    double values[mostCoefficients] = {}; // those that were not found stay 0
    int count = 0;
};

bool solveFit(ScaledPoints const & points, int first, int q, Solutions & solutions)
{
    double moments[mostCoefficients][mostCoefficients] = {},
           condition[mostCoefficients][mostCoefficients] = {};
    sumMoments(points, first, q, moments);
    condition[6][6] = condition[7][7] = condition[8][8] = 1;
    double *rowsA[mostCoefficients], *rowsB[mostCoefficients], *vectors[mostCoefficients];
    for (int row = 0; row < q; ++row) {
        rowsA[row] = moments[row];
        rowsB[row] = condition[row];
        vectors[row] = solutions.vectors[row];
    }
    if (!gen_right_eigen(q, rowsA, rowsB, solutions.count, vectors, solutions.values))
        return false;
    for (int i = 0; i < solutions.count; ++i) {
        double * const vector = vectors[i];
        double const length = Point3D_d(vector + 6).length();
        double const factor = length < 1e-7 ? 0 : 1 / length;
        std::for_each(vector, vector + q, [factor](double & coefficient) { coefficient *= factor; });
    }
    return true;
}

// Whether the quadric bends in three directions, so that it may close around the points.
bool bendsInThreeDirections(CQuadraticForm const & form)
{
    CRotationMatrix vectors(form.GetQuadaricTerm());
    double * rows[3] = {vectors.m[0], vectors.m[1], vectors.m[2]};
    REmath::Detail::ScatterEigen eigen;
    return !REmath::Detail::decomposeScatter(rows, eigen) ||
           std::all_of(eigen.values, eigen.values + 3,
                       [](double value) { return value > 1e-7 || value < -1e-7; });
}

// Whether the quadric leads past a good part of the points in a second sheet.
bool wrapsPoints(CQuadraticForm const & form, ScaledPoints const & points)
{
    if (!bendsInThreeDirections(form))
        return false;
    Point3D_d const direction = form.GetLinearTerm().unitLength();
    int turned = 0;
    for (int i = 1; i < points.size(); ++i)
        turned += dot(direction, form.evalGradient(points[i]).unitLength()) <= -0.95;
    return !(static_cast<double>(turned) < 0.2 * points.size());
}

// The best acceptable solution. False when there is none.
bool chooseQuadric(ScaledPoints const & points, int first, int q, Solutions const & solutions,
                   CQuadraticForm & best)
{
    double largest = 0, smallest = std::abs(solutions.values[0]);
    for (int i = 0; i < q; ++i) {
        largest = std::max(largest, std::abs(solutions.values[i]));
        smallest = std::min(smallest, std::abs(solutions.values[i]));
    }
    double const limit = (largest + smallest) / 2;
    double bestSum = 1e30;
    bool found = false;
    for (int i = 0; i < solutions.count; ++i) {
        if (!(std::abs(solutions.values[i]) <= limit))
            continue;
        CQuadraticForm const form = CQuadraticForm::buildFromCoeffArray(q, solutions.vectors[i]);
        if (!(MaxCurvature(form) <= 2) || dot(form.GetLinearTerm(), form.GetLinearTerm()) < 1e-14)
            continue;
        double const sum = residual(form, points, first);
        if (sum < bestSum && !wrapsPoints(form, points)) {
            best = form;
            bestSum = sum;
            found = true;
        }
    }
    return found;
}

// Parameter t of the point p + t L of the quadric nearest to p: signed where the line meets it once, else a
// magnitude, 1e20 where it misses it. `homogeneous` is the form without linear and free term, and
// `squaredL` is L . L.
double stepToQuadric(CQuadraticForm const & form, CQuadraticForm const & homogeneous, double squaredL,
                     Point3D_d const & p)
{
    Point3D_d const & linear = form.GetLinearTerm();
    double const a = homogeneous.eval(linear);
    // The free term belongs to the slope here, not to the value: without one it makes no difference.
    double const b = dot(homogeneous.evalGradient(p), linear) + squaredL + form.getK();
    double const c = homogeneous.eval(p) + dot(linear, p);
    if (a == 0)
        return b == 0 ? 1e20 : -c / b;
    double const discriminant = b * b - 4 * a * c;
    if (discriminant < 0)
        return 1e20;
    // The roots as q / a and c / q, which loses no digits where a is small.
    double const q = -0.5 * (b + std::copysign(std::sqrt(discriminant), b));
    return q == 0 ? 0 : std::min(std::abs(q / a), std::abs(c / q));
}

void measureDistances(CQuadraticForm const & form, ScaledPoints const & points, int first, float * dist)
{
    Point3D_d const & linear = form.GetLinearTerm();
    double const squaredL = dot(linear, linear);
    CQuadraticForm const homogeneous = CQuadraticForm::buildFromCoefficients(
        form.getKXX(), form.getKYY(), form.getKZZ(), form.getKXY(), form.getKXZ(), form.getKYZ(), 0, 0, 0, 0);
    for (int i = first; i < points.size(); ++i)
        dist[i] = static_cast<float>(stepToQuadric(form, homogeneous, squaredL, points[i]) * squaredL);
}

} // namespace

CGetNormal2Prms::~CGetNormal2Prms() = default;

bool GetNormal2(int n, Point3D const * pointArray, CGetNormal2Prms const * givenPrms, CQuadraticForm * form,
                double * const normal, float * const dist, double * scale)
{
    std::fill_n(normal, 3, 0.0);
    if (n < 2)
        return false;
    CGetNormal2Prms const defaults;
    CGetNormal2Prms const & prms = givenPrms ? *givenPrms : defaults;
    ScaledPoints const points(n, pointArray);
    if (scale)
        *scale = points.scale();
    if (!points.isProper())
        return false;

    Point3D_d const plane = planeNormal(points);
    plane.toArray(normal);
    bool isFlat = true;
    for (int i = 0; i < n; ++i) {
        auto const distance = static_cast<float>(std::abs(dot(points[i], plane)));
        isFlat = isFlat && distance <= prms.Appr2MinDist();
        if (dist)
            dist[i] = distance;
    }
    if (isFlat && !prms.Force2()) {
        if (form)
            *form =
                CQuadraticForm::buildFromCoefficients(0, 0, 0, 0, 0, 0, plane.x(), plane.y(), plane.z(), 0);
        return true;
    }

    int const q = prms.q_size();
    int const first = prms.ZeroFremTerm() ? 1 : 0;
    Solutions solutions;
    CQuadraticForm quadric;
    if (!solveFit(points, first, q, solutions) || !chooseQuadric(points, first, q, solutions, quadric))
        return false;
    quadric.GetLinearTerm().unitLength().toArray(normal);
    if (dist)
        measureDistances(quadric, points, first, dist);
    if (form)
        *form = quadric;
    return true;
}

bool GetNormalAndQuadricApprShiftedNonScaled(int n, Point3D const * points, CQuadraticForm & form,
                                             double * normal)
{
    CGetNormal2Prms prms;
    prms.ZeroFremTerm() = false;
    prms.Appr2MinDist() = 1e-5F;
    form = CQuadraticForm();
    double scale = 0;
    if (!GetNormal2(n, points, &prms, &form, normal, nullptr, &scale))
        return false;
    double const unit = 1 / scale;
    form.transformToBasis(
        COrthoNormBasis::buildByOrthsAndOrigin({unit, 0, 0}, {0, unit, 0}, {0, 0, unit}, {}));
    return true;
}

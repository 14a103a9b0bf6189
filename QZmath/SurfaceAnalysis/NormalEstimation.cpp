// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZmath/SurfaceAnalysis/NormalEstimationDetail.h>

#include <QZmath/Foundation/GeneralizedEigen.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cmath>

using REmath::Matrix;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;
using REmath::Detail::widen;

namespace
{

constexpr double unknownCurvature = 20;
constexpr int mostCoefficients = 10;

/// The points of a neighbourhood relative to the first one, in units of their root mean square distance.
class ScaledPoints
{
public:
    ScaledPoints(int n, Point3D const * points) : m_size(n), m_points(points), m_origin(widen(points[0]))
    {
        double sum = 0;
        for (int i = 1; i < n; ++i) {
            Point3D_d const arm = widen(points[i]) - m_origin;
            sum += dot(arm, arm);
        }
        m_scale = std::sqrt(sum / (n - 1));
        m_factor = 1 / m_scale;
    }

    int size() const { return m_size; }
    double scale() const { return m_scale; }
    /// False when all points are in one place, and on NaN and infinities.
    bool isProper() const { return m_scale > 0 && std::isfinite(m_scale) && std::isfinite(m_factor); }
    Point3D_d operator[](int i) const { return (widen(m_points[i]) - m_origin) * m_factor; }

private:
    int m_size;
    Point3D const * m_points;
    Point3D_d m_origin;
    double m_scale;
    double m_factor;
};

/// Normal of the plane of least squares; zero when there is none.
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

double weightOf(Point3D_d const & p) { return 0.1 / (dot(p, p) + 0.1); }

/// Weighted moments of the monomials of the points from `first` on: the lower triangle, mirrored at the end.
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

/// Solutions of the fit, normalised to a unit gradient at the origin.
struct Solutions
{
    double vectors[mostCoefficients][mostCoefficients];
    double values[mostCoefficients] = {}; ///< those that were not found stay 0
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

/// Whether the quadric bends in three directions, so that it may close around the points.
bool bendsInThreeDirections(CQuadraticForm const & form)
{
    CRotationMatrix vectors(form.GetQuadaricTerm());
    double * rows[3] = {vectors.m[0], vectors.m[1], vectors.m[2]};
    REmath::Detail::ScatterEigen eigen;
    return !REmath::Detail::decomposeScatter(rows, eigen) ||
           std::all_of(eigen.values, eigen.values + 3,
                       [](double value) { return value > 1e-7 || value < -1e-7; });
}

/// Whether the quadric leads past a good part of the points in a second sheet.
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

/// What the fit minimises.
double residual(CQuadraticForm const & form, ScaledPoints const & points, int first)
{
    double sum = 0;
    for (int i = first; i < points.size(); ++i) {
        Point3D_d const p = points[i];
        double const value = form.eval(p);
        sum += weightOf(p) * value * value;
    }
    return sum;
}

/// The same of the best sphere a |p|² + b . p through the origin, |b| = 1. With the best a for a given b it
/// is a quadratic form of b, and its least value the smallest eigenvalue.
double sphereResidual(ScaledPoints const & points)
{
    double moments[4][4] = {};
    for (int i = 1; i < points.size(); ++i) {
        Point3D_d const p = points[i];
        double const terms[4] = {p.x(), p.y(), p.z(), dot(p, p)};
        double const weight = weightOf(p);
        for (int row = 0; row < 4; ++row) {
            for (int col = 0; col <= row; ++col)
                moments[row][col] += weight * terms[row] * terms[col];
        }
    }
    double matrix[3][3];
    double * rows[3] = {matrix[0], matrix[1], matrix[2]};
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col <= row; ++col)
            matrix[row][col] = moments[row][col] - moments[3][row] * moments[3][col] / moments[3][3];
    }
    REmath::Detail::ScatterEigen eigen;
    bool const isSolved = REmath::Detail::decomposeScatter(rows, eigen) && eigen.smallest >= 0;
    return isSolved ? eigen.values[eigen.smallest] : 1e30;
}

/// The best acceptable solution. False when there is none.
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

/// Parameter t of the point p + t L of the quadric nearest to p: signed where the line meets it once, else a
/// magnitude, 1e20 where it misses it. `homogeneous` is the form without linear and free term, and
/// `squaredL` is L . L.
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

/// Second fundamental form of the quadric at the origin in a frame of tangents.
struct TangentFrame
{
    Point3D_d normal, tangent1, tangent2;
    double mean, halfGap; ///< the principal curvatures are mean -+ halfGap
};

/// False where the gradient or the difference of the principal curvatures is too small.
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

/// The settings with which curvatures are estimated.
CGetNormal2Prms curvaturePrms()
{
    CGetNormal2Prms prms;
    prms.Force2() = true;
    return prms;
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

template <class Function>
auto withDoubleNormal(float * normal, Function function)
{
    double wide[3] = {};
    auto const result = function(wide);
    std::transform(wide, wide + 3, normal, [](double value) { return static_cast<float>(value); });
    return result;
}

} // namespace

CGetNormal2Prms::~CGetNormal2Prms() = default;

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

bool GetNormal2(int n, Point3D const * points, CGetNormal2Prms const * prms, CQuadraticForm * form,
                float * const normal, float * const dist, double * scale)
{
    return withDoubleNormal(
        normal, [&](double * wide) { return GetNormal2(n, points, prms, form, wide, dist, scale); });
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

bool GetNormalAndQuadricApprShiftedNonScaled(int n, Point3D const * points, CQuadraticForm & form,
                                             float * normal)
{
    return withDoubleNormal(normal, [&](double * wide) {
        return GetNormalAndQuadricApprShiftedNonScaled(n, points, form, wide);
    });
}

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
    CGetNormal2Prms const prms = curvaturePrms();
    CQuadraticForm form;
    double scale = 0, unit[3];
    if (!GetNormal2(n, points, &prms, &form, unit, nullptr, &scale))
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
    CGetNormal2Prms const prms = curvaturePrms();
    CQuadraticForm form;
    double scale = 0, normal[3], curvatures[2];
    if (!GetNormal2(static_cast<int>(points.size()), points.data(), &prms, &form, normal, nullptr, &scale))
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

bool EstimateUmbilicCurvature(int n, Point3D const * pointArray, double * normal, double & curvature)
{
    if (n < 4)
        return false;
    ScaledPoints const points(n, pointArray);
    if (!points.isProper())
        return false;
    Point3D_d mean;
    for (int i = 1; i < n; ++i)
        mean += points[i];
    mean /= n;
    double meanSquare = 0;
    for (int i = 0; i < n; ++i) {
        Point3D_d const p = points[i] - mean;
        meanSquare += dot(p, p);
    }
    meanSquare /= n;
    // Relative to the mean, c = -a meanSquare is settled and the condition is 4 a² meanSquare + |b|² = 1: the
    // smallest eigenvector (2 a sqrt(meanSquare), b) of the moments of these four terms.
    double const factor = 0.5 / std::sqrt(meanSquare);
    double moments[4][4] = {};
    for (int i = 0; i < n; ++i) {
        Point3D_d const p = points[i] - mean;
        double const terms[4] = {(dot(p, p) - meanSquare) * factor, p.x(), p.y(), p.z()};
        for (int row = 0; row < 4; ++row) {
            for (int col = 0; col <= row; ++col)
                moments[row][col] += terms[row] * terms[col];
        }
    }
    double values[4], subdiagonal[4];
    double * rows[4] = {moments[0], moments[1], moments[2], moments[3]};
    tred2_d(rows, 4, values, subdiagonal);
    if (tqli_d(values, subdiagonal, 4, rows) == 0)
        return false;
    auto const least = static_cast<int>(std::min_element(values, values + 4) - values);
    // On a line or circle a second combination of the terms vanishes, and so do all spheres through it.
    double others[3], *end = others;
    for (int i = 0; i < 4; ++i) {
        if (i != least)
            *end++ = values[i];
    }
    if (!(*std::min_element(others, end) > 1e-10 * *std::max_element(others, end)))
        return false;

    double const a = factor * moments[0][least];
    Point3D_d const b(moments[1][least], moments[2][least], moments[3][least]);
    // |∇f| on the sphere, which is also 2 |a| times its radius.
    double const slope = std::sqrt(dot(b, b) + 4 * a * a * meanSquare);
    Point3D_d const gradient = b - 2 * a * mean;
    double const length = gradient.length();
    if (!(length > 1e-10 * slope))
        return false;
    // The gradient points away from the centre when a > 0.
    (gradient * ((a > 0 ? -1 : 1) / length)).toArray(normal);
    curvature = 2 * std::abs(a) / slope / points.scale();
    return true;
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

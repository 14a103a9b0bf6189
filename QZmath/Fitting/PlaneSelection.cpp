// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PlaneSelection.h>

#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/PlaneLimits.h>
#include <QZmath/Fitting/Samples/PointScatter.h>
#include <QZmath/Foundation/BrentZero.h>
#include <QZmath/Foundation/Coord3DRefs.h>
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <array>
#include <cmath>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;
using REmath::Detail::PointScatter;

namespace
{

constexpr double halfPi = 1.5707963267948966;
constexpr int limitSteps = 120;
// What a least eigenvalue and a least energy must stay below.
constexpr double greatestEnergy = 1e100;

// Center and normal, the latter before it is turned to the viewer.
struct Plane
{
    Point3D_d center;
    Point3D_d normal;
};

// The product is taken in `float`, the precision of the view.
void turnTo(Point3D const & viewDir, Point3D_d & normal)
{
    Point3D const rounded = normal.asArray();
    if (rounded.x() * viewDir.x() + rounded.y() * viewDir.y() + rounded.z() * viewDir.z() < 0)
        normal = -normal;
}

bool isFinite(Point3D_d const & point)
{
    return std::isfinite(point.x()) && std::isfinite(point.y()) && std::isfinite(point.z());
}

Point3D_d centroidOf(PointScatter const & scatter) { return scatter.centroid().data(); }

bool throughPoint(PointScatter const & scatter, Point3D_d const & fixedPoint, Plane & plane)
{
    double normal[3];
    if (!REmath::Detail::leastEigenvector(scatter.elementsAbout(fixedPoint.asArray()), greatestEnergy,
                                          normal))
        return false;
    plane = {fixedPoint, normal};
    return true;
}

bool freePlane(PointScatter const & scatter, Plane & plane)
{
    if (scatter.count() < 3 || !throughPoint(scatter, centroidOf(scatter), plane))
        return false;
    plane.normal.normalize();
    return true;
}

// The scatter matrix in the frame of (U, V, `axis`).
struct AxisFrame
{
    AxisFrame(std::array<double, 6> const & elements, Point3D_d const & axis)
    {
        double u[3];
        double v[3];
        BuildUCSbyVector(axis.asArray(), u, v);
        vectors[0] = u;
        vectors[1] = v;
        vectors[2] = axis;
        Point3D_d const rows[3] = {{elements[0], elements[1], elements[3]},
                                   {elements[1], elements[2], elements[4]},
                                   {elements[3], elements[4], elements[5]}};
        for (int col = 0; col < 3; ++col) {
            Point3D_d const image = {dot(rows[0], vectors[col]), dot(rows[1], vectors[col]),
                                     dot(rows[2], vectors[col])};
            for (int row = 0; row < 3; ++row)
                scatter[row][col] = dot(vectors[row], image);
        }
    }

    Point3D_d vectors[3];
    double scatter[3][3];
};

Point3D_d normalThroughLine(PointScatter const & scatter, Point3D_d const & fixedPoint,
                            Point3D_d const & fixedDir)
{
    AxisFrame const frame(scatter.elementsAbout(fixedPoint.asArray()), fixedDir);
    double const a = frame.scatter[0][0];
    double const b = frame.scatter[0][1];
    double const c = frame.scatter[1][1];
    auto const energy = [&](double phi) {
        double const cosine = std::cos(phi);
        double const sine = std::sin(phi);
        return (a * cosine + 2 * b * sine) * cosine + c * sine * sine;
    };
    double const theta = std::atan2(2 * b, a - c) / 2;
    double const phi = energy(theta + halfPi) < energy(theta) ? theta + halfPi : theta;
    return frame.vectors[0] * std::cos(phi) + frame.vectors[1] * std::sin(phi);
}

// Sum of squared heights over the planes through the centroid whose normal makes a fixed angle with an axis,
// as a function of the place of the normal on that cone.
class ConeEnergy
{
public:
    ConeEnergy(PointScatter const & scatter, Point3D_d const & axis, double angle)
        : m_frame(scatter.elements(), axis), m_sine(std::sin(angle)), m_cosine(std::cos(angle))
    {}

    Point3D_d normal(double psi) const
    {
        return (m_frame.vectors[0] * std::cos(psi) + m_frame.vectors[1] * std::sin(psi)) * m_sine +
               m_frame.vectors[2] * m_cosine;
    }

    double value(double psi) const
    {
        auto const & s = m_frame.scatter;
        double const c = std::cos(psi);
        double const d = std::sin(psi);
        return m_sine * m_sine * (s[0][0] * c * c + 2 * s[0][1] * c * d + s[1][1] * d * d) +
               2 * m_sine * m_cosine * (s[0][2] * c + s[1][2] * d) + m_cosine * m_cosine * s[2][2];
    }

    double derivative(double psi) const
    {
        auto const & s = m_frame.scatter;
        double const c = std::cos(psi);
        double const d = std::sin(psi);
        return 2 * m_sine *
               (m_sine * ((s[1][1] - s[0][0]) * c * d + s[0][1] * (c * c - d * d)) +
                m_cosine * (s[1][2] * c - s[0][2] * d));
    }

private:
    AxisFrame m_frame;
    double m_sine;
    double m_cosine;
};

// The energy has at most four extrema; each sign change of its derivative along the cone brackets one.
bool normalAtAngle(PointScatter const & scatter, Point3D_d const & fixedDir, double angle, Point3D_d & normal)
{
    constexpr double step = 0.06283185307179587;
    constexpr int steps = 100;
    ConeEnergy energy(scatter, fixedDir, angle * (2 * halfPi) / 180);
    auto const derivative = [](double psi, void * context) {
        return static_cast<ConeEnergy const *>(context)->derivative(psi);
    };
    double least = greatestEnergy;
    double best = 0;
    double before = energy.derivative(0);
    for (int k = 1; k <= steps; ++k) {
        double const after = energy.derivative(k * step);
        if (before * after <= 0) {
            int iterations = 100;
            int status = 0;
            double root = 0;
            BrentZeroFun(derivative, (k - 1) * step, k * step, 0, 12, iterations, root, status, &energy);
            double const value = energy.value(root);
            if (value < least) {
                least = value;
                best = root;
            }
        }
        before = after;
    }
    if (least > 1e99)
        return false;
    normal = energy.normal(best);
    return true;
}

} // namespace

bool RecognizePlaneSelectionFree(std::vector<Point3D> const & points, Point3D const & viewDir,
                                 Point3D_d & center, Point3D_d & normal)
{
    Plane plane;
    if (!freePlane(PointScatter(points.data(), points.size()), plane) || !isFinite(plane.center))
        return false;
    turnTo(viewDir, plane.normal);
    center = plane.center;
    normal = plane.normal;
    return true;
}

bool RecognizePlaneSelectionConstrained(std::vector<Point3D> const & points, Point3D const & viewDir,
                                        int constraint, double angle, bool useDistance, double distance,
                                        Point3D_d const & fixedPoint, Point3D_d const & fixedDir,
                                        Point3D_d & center, Point3D_d & normal, double & maxError,
                                        double & meanError, Point3D_d & basisU, Point3D_d & basisV,
                                        double * limitsU, double * limitsV)
{
    if (points.empty())
        return false;
    PointScatter const scatter(points.data(), points.size());
    Plane plane = {centroidOf(scatter), fixedDir};
    switch (constraint) {
    case PlaneFitFree:
        if (!freePlane(scatter, plane))
            return false;
        break;
    case PlaneFitNormalAndDist:
        turnTo(viewDir, plane.normal);
        if (useDistance) {
            double const height = dot(plane.center - fixedPoint, plane.normal);
            plane.center += plane.normal * ((height >= 0 ? distance : -distance) - height);
        }
        break;
    case PlaneFitNormal:
        break;
    case PlaneFitThroughPoint:
        if (!throughPoint(scatter, fixedPoint, plane))
            return false;
        break;
    case PlaneFitThroughLine:
        plane = {fixedPoint, normalThroughLine(scatter, fixedPoint, fixedDir)};
        break;
    case PlaneFitAngleToAxis:
        if (!normalAtAngle(scatter, fixedDir, angle, plane.normal))
            return false;
        break;
    default:
        return false;
    }
    turnTo(viewDir, plane.normal);

    double greatest = 0;
    double mean = 0;
    CalcPlaneFitError(points, plane.center, plane.normal, greatest, mean);
    if (!isFinite(plane.center) || !isFinite(plane.normal) || !std::isfinite(mean))
        return false;

    double u[3] = {};
    double v[3];
    REmath::CPtVecAdapder<std::vector<Point3D>> const refs(points);
    if (constraint == PlaneFitAngleToAxis) {
        cross(fixedDir, plane.normal).toArray(u);
        NormalizeVector(u);
    }
    if (dot(u, u) < 0.5)
        REmath::DefinePointsLimitsBasis(refs, plane.normal.asArray(), u, v, limitSteps);
    cross(plane.normal, u).toArray(v);
    if (!isFinite(u) || !isFinite(v))
        return false;

    REmath::GetSelectionLinearLimits(refs, u, limitsU);
    REmath::GetSelectionLinearLimits(refs, v, limitsV);
    center = plane.center;
    normal = plane.normal;
    maxError = greatest;
    meanError = mean;
    basisU = u;
    basisV = v;
    return true;
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/CircleFitting.h>

#include <QZmath/Fitting/LevenbergMarquardt.h>
#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/RobustRegression.h>
#include <QZmath/Fitting/WeightedFitTaskDetail.h>
#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/VectorGeometry.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

using REmath::Matrix;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;

namespace
{

constexpr int mostRefinements = 15;
constexpr double gradientLimit = 0.0001;

bool isFinite(Point3D_d const & p)
{
    return std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z());
}

/// Circle in plane coordinates; the third coordinate of the centre is 0.
struct PlaneCircle
{
    Point3D_d center;
    double radius = 0;

    bool isFinite() const { return ::isFinite(center) && std::isfinite(radius); }
};

double planeDistance(Point3D_d const & p, Point3D_d const & q)
{
    double const x = p.x() - q.x(), y = p.y() - q.y();
    return std::sqrt(x * x + y * y);
}

/// Maps points of space to coordinates in a plane, and back.
class TF_CBuilderUCS
{
public:
    /// The plane of least squares of `points`, whose centroid becomes the origin. False when there is none.
    bool build(std::vector<Point3D_d> const & points, Point3D_d & normal)
    {
        double coefficients[4];
        if (!FitPlaneToPointSet(points, coefficients, m_origin))
            return false;
        normal = {coefficients};
        BuildUCSbyVector(coefficients, m_u, m_v);
        return ::isFinite(m_u) && ::isFinite(m_v) && ::isFinite(m_origin);
    }

    Point3D_d operator()(Point3D_d const & point) const { return turn(point - Point3D_d(m_origin)); }

    std::vector<Point3D_d> operator()(std::vector<Point3D_d> const & points) const
    {
        std::vector<Point3D_d> result(points.size());
        std::transform(points.begin(), points.end(), result.begin(), *this);
        return result;
    }

    /// The same for a direction, which has no origin.
    Point3D_d turn(Point3D_d const & direction) const
    {
        return {dot(direction, m_u), dot(direction, m_v), 0};
    }

    Point3D_d toSpace(Point3D_d const & p) const
    {
        return Point3D_d(m_origin) + Point3D_d(m_u) * p.x() + Point3D_d(m_v) * p.y();
    }

    /// Bound of the error that rounding leaves in the plane coordinates of points up to `extent` apart.
    double rounding(double extent) const
    {
        double const magnitude =
            std::max({std::abs(m_origin[0]), std::abs(m_origin[1]), std::abs(m_origin[2])});
        return 4 * std::numeric_limits<double>::epsilon() * (magnitude + extent);
    }

private:
    double m_u[3], m_v[3], m_origin[3];
};

/// Solves `factor * matrix * solution = factor * right` for a column-major symmetric matrix; `right` becomes
/// the scaled right side.
template <int size>
bool solveNormalEquations(double (&matrix)[size * size], double (&right)[size], double factor,
                          double (&solution)[size])
{
    for (double & element : matrix)
        element *= factor;
    for (double & element : right)
        element *= factor;
    double *columns[size], *rightColumn[1], *solutionColumn[1];
    Matrix<double> a(matrix, columns, size, size);
    Matrix<double> const b(right, rightColumn, size, 1);
    Matrix<double> x(solution, solutionColumn, size, 1);
    return REmath::solveMat(a, b, x);
}

/// The centre relative to p0 of the circle through p0, p0 + a, p0 + b, times the determinant of their
/// products.
struct Circumcircle
{
    Circumcircle(Point3D_d const & a, Point3D_d const & b)
    {
        double const aa = dot(a, a), bb = dot(b, b), ab = dot(a, b);
        determinant = aa * bb - ab * ab;
        offset = a * (bb / 2 * (aa - ab) / determinant) + b * (aa / 2 * (bb - ab) / determinant);
    }

    double determinant;
    Point3D_d offset;
};

bool circleThrough(Point3D_d const & p0, Point3D_d const & p1, Point3D_d const & p2, PlaneCircle & circle)
{
    Circumcircle const through(p1 - p0, p2 - p0);
    if (!(through.determinant > 0))
        return false;
    circle.center = p0 + through.offset;
    circle.radius = through.offset.length();
    return circle.isFinite();
}

/// Numbers of the lowest and the highest sample along the axis along which they are farther apart, the first
/// of equal ones.
std::pair<std::size_t, std::size_t> extremes(std::vector<Point3D_d> const & samples)
{
    double low[2] = {1e100, 1e100}, high[2] = {-1e100, -1e100};
    std::size_t lowest[2] = {}, highest[2] = {};
    for (std::size_t i = 0; i < samples.size(); ++i) {
        for (int axis = 0; axis < 2; ++axis) {
            double const coordinate = samples[i].asArray()[axis];
            if (coordinate < low[axis]) {
                low[axis] = coordinate;
                lowest[axis] = i;
            }
            if (coordinate > high[axis]) {
                high[axis] = coordinate;
                highest[axis] = i;
            }
        }
    }
    int const axis = high[1] - low[1] > high[0] - low[0] ? 1 : 0;
    return {lowest[axis], highest[axis]};
}

/// The circle through three points far apart: the two extreme ones, and the one with the greatest sum of
/// distances from them.
bool roughCircle(std::vector<Point3D_d> const & samples, PlaneCircle & circle)
{
    auto const [first, second] = extremes(samples);
    std::size_t third = first;
    double greatest = -1;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (i == first || i == second)
            continue;
        double const sum =
            planeDistance(samples[i], samples[first]) + planeDistance(samples[i], samples[second]);
        if (sum > greatest) {
            greatest = sum;
            third = i;
        }
    }
    return circleThrough(samples[first], samples[second], samples[third], circle);
}

/// The differences |p - c|² - r² of the samples in the variables (cx, cy, r).
class FitCircleFunctor : public REmath::Functor7<int, int, int, double const *, double *, double *, int, int>
{
public:
    explicit FitCircleFunctor(std::vector<Point3D_d> const & samples) : m_samples(&samples) {}

    int operator()(int m, int, double const * x, double * fvec, double * fjac, int ldfjac,
                   int iflag) const override
    {
        auto const count = static_cast<std::size_t>(m), stride = static_cast<std::size_t>(ldfjac);
        Point3D_d const * const samples = m_samples->data();
        if (iflag == 1) {
            for (std::size_t i = 0; i < count; ++i) {
                double const dx = samples[i].x() - x[0], dy = samples[i].y() - x[1];
                fvec[i] = dx * dx + dy * dy - x[2] * x[2];
            }
        } else if (iflag == 2) {
            for (std::size_t i = 0; i < count; ++i) {
                fjac[i] = 2 * (x[0] - samples[i].x());
                fjac[i + stride] = 2 * (x[1] - samples[i].y());
                fjac[i + 2 * stride] = -2 * x[2];
            }
        }
        return 1;
    }

private:
    std::vector<Point3D_d> const * m_samples;
};

bool fitPlain(std::vector<Point3D_d> const & samples, PlaneCircle & circle)
{
    if (!roughCircle(samples, circle))
        return false;
    double x[3] = {circle.center.x(), circle.center.y(), circle.radius};
    std::vector<double> differences(samples.size());
    int const info = REmath::lmder1_adapter(FitCircleFunctor(samples), static_cast<int>(samples.size()), 3, x,
                                            differences.data(), 1e-12);
    circle = {{x[0], x[1], 0}, std::abs(x[2])};
    return info >= 1 && info <= 4 && circle.isFinite();
}

enum CircleMode
{
    CircleFree,
    CircleThroughPoint,
    CircleTangentAtPoint,
    CircleThroughTwoPoints
};

/// Plane coordinates turned by a quarter, or not.
class QuarterTurn
{
public:
    explicit QuarterTurn(bool isTurned) : m_isTurned(isTurned) {}
    Point3D_d forth(Point3D_d const & p) const { return m_isTurned ? Point3D_d(-p.y(), p.x(), 0) : p; }
    Point3D_d back(Point3D_d const & p) const { return m_isTurned ? Point3D_d(p.y(), -p.x(), 0) : p; }

private:
    bool m_isTurned;
};

/// Circle for the robust solver: free, or under a constraint.
class RobustCircleFit : public WeightedFitTask
{
public:
    /// The mode needs one fixed point, or two of them, or one and a unit tangent.
    RobustCircleFit(std::vector<Point3D_d> const & samples, CircleMode mode,
                    std::vector<Point3D_d> fixedPoints = {}, Point3D_d const & tangent = {})
        : m_points(&samples), m_mode(mode), m_fixedPoints(std::move(fixedPoints)), m_tangentDir(tangent)
    {}

    int parameterCount() override { return 3; }
    unsigned int sampleCount() override { return static_cast<unsigned int>(m_points->size()); }

    void storeParameters(std::vector<double> & parameters) override
    {
        parameters.assign({m_circle.radius, m_circle.center.x(), m_circle.center.y()});
    }

    bool isConverged(std::vector<double> const & parameters) override
    {
        double const limit = m_tolerance * m_circle.radius;
        return !(std::abs(m_circle.radius - parameters[0]) > limit) &&
               !(planeDistance({parameters[1], parameters[2], 0}, m_circle.center) > limit);
    }

    PlaneCircle const & circle() const { return m_circle; }

private:
    bool fit(std::vector<double> const & weights) override
    {
        return fitAlgebraic(weights) && refine(weights) && m_circle.isFinite();
    }

    /// The root of the difference of squares grows faster from zero than the distance: it counts small errors
    /// as larger, against which the outliers are judged.
    void findResiduals(std::vector<double> & residuals) const override
    {
        double const squaredRadius = m_circle.radius * m_circle.radius;
        for (std::size_t i = 0; i < residuals.size(); ++i) {
            Point3D_d const offset = (*m_points)[i] - m_circle.center;
            residuals[i] = std::sqrt(std::abs(dot(offset, offset) - squaredRadius));
        }
    }

    double perSample() const { return 1 / static_cast<double>(m_points->size()); }

    /// The circle x² + y² = 2 a x + 2 b y - c of least squares in this equation.
    bool fitAlgebraic(std::vector<double> const & weights)
    {
        double xx = 0, xy = 0, yy = 0, x1 = 0, y1 = 0, one = 0, sx = 0, sy = 0, s1 = 0;
        for (std::size_t i = 0; i < weights.size(); ++i) {
            double const x = (*m_points)[i].x(), y = (*m_points)[i].y();
            double const s = x * x + y * y;
            double const w = weights[i], wx = w * x, wy = w * y;
            xx += wx * x;
            xy += wx * y;
            yy += wy * y;
            x1 += wx;
            y1 += wy;
            one += w;
            sx += wx * s;
            sy += wy * s;
            s1 += w * s;
        }
        double matrix[9] = {4 * xx, 4 * xy, -2 * x1, 4 * xy, 4 * yy, -2 * y1, -2 * x1, -2 * y1, one};
        double right[3] = {2 * sx, 2 * sy, -s1};
        double abc[3];
        if (!solveNormalEquations(matrix, right, perSample(), abc))
            return false;
        m_circle = {{abc[0], abc[1], 0}, std::sqrt(std::abs(abc[0] * abc[0] + abc[1] * abc[1] - abc[2]))};
        return true;
    }

    /// Refines the algebraic circle, which stays when the refinement does not converge. False when a step
    /// cannot be computed.
    bool refine(std::vector<double> const & weights)
    {
        switch (m_mode) {
        case CircleFree:
            return refineFree(weights);
        case CircleThroughPoint:
            return refineThroughPoint(weights);
        case CircleTangentAtPoint:
            refineTangent(weights);
            return true;
        case CircleThroughTwoPoints:
            refineThroughTwoPoints();
            return true;
        }
        return true;
    }

    /// Gauss-Newton in centre and radius.
    bool refineFree(std::vector<double> const & weights)
    {
        PlaneCircle circle = m_circle;
        for (int iteration = 0; iteration < mostRefinements; ++iteration) {
            double xx = 0, xy = 0, yy = 0, x1 = 0, y1 = 0, one = 0, ex = 0, ey = 0, e1 = 0;
            for (std::size_t i = 0; i < weights.size(); ++i) {
                auto const [distance, ux, uy] = ray(circle.center, (*m_points)[i]);
                double const w = weights[i], wx = w * ux, wy = w * uy, error = distance - circle.radius;
                xx += wx * ux;
                xy += wx * uy;
                yy += wy * uy;
                x1 += wx;
                y1 += wy;
                one += w;
                ex += wx * error;
                ey += wy * error;
                e1 += w * error;
            }
            double matrix[9] = {xx, xy, x1, xy, yy, y1, x1, y1, one};
            double right[3] = {ex, ey, e1};
            double step[3];
            if (!solveNormalEquations(matrix, right, perSample(), step))
                return false;
            circle.center += Point3D_d(step[0], step[1], 0);
            circle.radius += step[2];
            if (Point3D_d(right).length() < gradientLimit) {
                m_circle = circle;
                break;
            }
        }
        return true;
    }

    /// Gauss-Newton in the centre; the radius follows from the fixed point.
    bool refineThroughPoint(std::vector<double> const & weights)
    {
        PlaneCircle circle = m_circle;
        Point3D_d const & fixed = m_fixedPoints[0];
        for (int iteration = 0; iteration < mostRefinements; ++iteration) {
            auto const [fixedDistance, fixedX, fixedY] = ray(circle.center, fixed);
            double xx = 0, xy = 0, yy = 0, ex = 0, ey = 0;
            for (std::size_t i = 0; i < weights.size(); ++i) {
                auto const [distance, ux, uy] = ray(circle.center, (*m_points)[i]);
                double const gx = ux - fixedX, gy = uy - fixedY;
                double const wx = weights[i] * gx, wy = weights[i] * gy, error = distance - circle.radius;
                xx += wx * gx;
                xy += wx * gy;
                yy += wy * gy;
                ex += wx * error;
                ey += wy * error;
            }
            double matrix[4] = {xx, xy, xy, yy};
            double right[2] = {ex, ey};
            double step[2];
            if (!solveNormalEquations(matrix, right, perSample(), step))
                return false;
            circle.center += Point3D_d(step[0], step[1], 0);
            circle.radius = planeDistance(fixed, circle.center);
            if (std::hypot(right[0], right[1]) < gradientLimit) {
                m_circle = circle;
                break;
            }
        }
        return true;
    }

    /// The centre moves along the normal of the tangent through the fixed point. The weights count once in
    /// the numerator of the step and squared in the denominator, which makes it longer than a Gauss-Newton
    /// step.
    void refineTangent(std::vector<double> const & weights)
    {
        Point3D_d const along{-m_tangentDir.y(), m_tangentDir.x(), 0};
        refineOnLine(
            m_fixedPoints[0], along,
            [&weights](std::size_t i, double gradient, double error, double & numerator,
                       double & denominator) {
                double const weighted = weights[i] * gradient;
                numerator += weighted * error;
                denominator += weighted * weighted;
            },
            true);
    }

    /// The centre moves along the bisector of the fixed points, until the sum of the distances is 0.
    void refineThroughTwoPoints()
    {
        Point3D_d const & p = m_fixedPoints[0];
        Point3D_d const & q = m_fixedPoints[1];
        Point3D_d const chord = p - q;
        refineOnLine(
            (p + q) / 2, {-chord.y(), chord.x(), 0},
            [](std::size_t, double gradient, double error, double & numerator, double & denominator) {
                numerator += error;
                denominator += gradient;
            },
            false);
    }

    /// Newton steps in the coordinate x of the centre on the line through `base` with the direction `along`,
    /// in coordinates turned by a quarter if the line is upright. `sum` adds the part of one sample to the
    /// numerator and the denominator of the step. The first step starts beside the line, from the algebraic
    /// circle. The radius follows from the first fixed point; with `keepsSide` the centre cannot cross it.
    template <class Sum>
    void refineOnLine(Point3D_d const & base, Point3D_d const & along, Sum sum, bool keepsSide)
    {
        // An upright line has no equation in x.
        QuarterTurn const quarter(std::abs(along.x()) <= 1e-12 * std::abs(along.y()));
        Point3D_d const direction = quarter.forth(along);
        Point3D_d const fixed = quarter.forth(m_fixedPoints[0]);
        Point3D_d const foot = quarter.forth(base);
        double const slope = direction.y() / direction.x();
        double const intercept = foot.y() - slope * foot.x();

        Point3D_d const start = quarter.forth(m_circle.center);
        PlaneCircle circle = {start, m_circle.radius};
        for (int iteration = 0; iteration < mostRefinements; ++iteration) {
            double const lineY = slope * circle.center.x() + intercept;
            double const fixedGradient = ((fixed.x() - circle.center.x()) + slope * (fixed.y() - lineY)) /
                                         planeDistance(fixed, circle.center);
            double numerator = 0, denominator = 0;
            for (std::size_t i = 0; i < m_points->size(); ++i) {
                Point3D_d const p = quarter.forth((*m_points)[i]);
                double const distance = planeDistance(p, circle.center);
                double const t = (p.x() - circle.center.x()) + slope * (p.y() - lineY);
                double const gradient = (distance > 0 ? -t / distance : 0.0) + fixedGradient;
                sum(i, gradient, distance - circle.radius, numerator, denominator);
            }
            // Where the algebraic circle is balanced already the denominator may vanish too. Later on 0 / 0
            // is the sign of a centre so far off that it sees all samples at the same distance; it is no
            // result.
            if (iteration > 0 || numerator != 0)
                circle.center.x() -= numerator / denominator;
            circle.center.y() = slope * circle.center.x() + intercept;
            circle.radius = planeDistance(fixed, circle.center);
            if (keepsSide && dot(fixed - start, fixed - circle.center) < 0)
                circle.center = fixed * 2 - circle.center;
            if (std::abs(numerator) * perSample() < gradientLimit) {
                m_circle = {quarter.back(circle.center), circle.radius};
                break;
            }
        }
    }

    struct Ray
    {
        double distance, x, y;
    };

    /// Distance and unit direction from the centre to `p`; a sample in the centre has no direction.
    static Ray ray(Point3D_d const & center, Point3D_d const & p)
    {
        double const x = p.x() - center.x(), y = p.y() - center.y();
        double const distance = std::sqrt(x * x + y * y);
        if (!(distance > 0))
            return {distance, 0, 0};
        return {distance, x / distance, y / distance};
    }

    std::vector<Point3D_d> const * m_points;
    PlaneCircle m_circle;
    double m_tolerance = 0.001; // of the radius
    CircleMode m_mode;
    std::vector<Point3D_d> m_fixedPoints;
    Point3D_d m_tangentDir;
};

/// Points in the coordinates of their own plane.
struct PlaneSamples
{
    /// False when the points are too many to count in `int`, have no plane, or lie on a line within rounding.
    bool place(std::vector<Point3D_d> const & points)
    {
        if (points.size() > std::numeric_limits<int>::max() || !plane.build(points, normal))
            return false;
        samples = plane(points);
        auto const [first, second] = extremes(samples);
        Point3D_d const base = samples[second] - samples[first];
        double const length = base.length(), limit = plane.rounding(length);
        return std::any_of(samples.begin(), samples.end(), [&, start = samples[first]](Point3D_d const & p) {
            return std::abs(cross(base, p - start).z()) > limit * length;
        });
    }

    /// Hands the circle over to space.
    bool finish(PlaneCircle const & circle, Point3D_d & center, Point3D_d & circleNormal,
                double & radius) const
    {
        center = plane.toSpace(circle.center);
        circleNormal = normal;
        radius = circle.radius;
        return isFinite(center);
    }

    bool solveRobustly(RobustCircleFit task, Point3D_d & center, Point3D_d & circleNormal,
                       double & radius) const
    {
        return CRobustRegressionSolver(task).solveRegression() == 0 &&
               finish(task.circle(), center, circleNormal, radius);
    }

    TF_CBuilderUCS plane;
    Point3D_d normal;
    std::vector<Point3D_d> samples;
};

/// Circle of least squares through two points, tangent to a direction at each: four equations for the centre
/// (a, b) and c = a² + b² - r².
bool fitToTwoTangents(Point3D_d const * fixed, Point3D_d const * directions, double rounding,
                      PlaneCircle & circle)
{
    Point3D_d const chord = fixed[1] - fixed[0];
    auto const isAlongChord = [&chord, rounding](Point3D_d const & d) {
        return !(std::abs(cross(chord, d).z()) > rounding * d.length());
    };
    if (isAlongChord(directions[0]) && isAlongChord(directions[1]))
        return false; // as only a line is
    Matrix<double> equations(4, 3), right(4, 1), solution(3, 1);
    for (int i = 0; i < 2; ++i) {
        Point3D_d const & p = fixed[i];
        Point3D_d const & d = directions[i];
        equations(2 * i, 0) = 2 * p.x();
        equations(2 * i, 1) = 2 * p.y();
        equations(2 * i, 2) = -1;
        right(2 * i, 0) = p.x() * p.x() + p.y() * p.y();
        equations(2 * i + 1, 0) = d.x();
        equations(2 * i + 1, 1) = d.y();
        right(2 * i + 1, 0) = p.x() * d.x() + p.y() * d.y();
    }
    Matrix<double> const transposed = equations.transpose();
    Matrix<double> normal = transposed * equations;
    if (!REmath::solveMat(normal, transposed * right, solution))
        return false;
    double const a = solution(0, 0), b = solution(1, 0);
    circle = {{a, b, 0}, std::sqrt(std::abs(a * a + b * b - solution(2, 0)))};
    return circle.isFinite();
}

} // namespace

bool makeCircleByThreePoints(Point3D_d const * points, Point3D_d & center, Point3D_d & normal,
                             double & radius)
{
    Point3D_d const a = points[1] - points[0], b = points[2] - points[0];
    Point3D_d const perpendicular = cross(a, b);
    if (!(dot(perpendicular, perpendicular) >= 1e-24))
        return false;
    Circumcircle const through(a, b);
    if (!(std::abs(through.determinant) >= 1e-12))
        return false;
    normal = perpendicular.unitLength();
    center = points[0] + through.offset;
    radius = (center - points[0]).length();
    // An overflow of the length leaves a zero normal.
    return isFinite(normal) && isFinite(center) && std::isfinite(radius) && dot(normal, normal) > 0;
}

bool FitCircleToPointSet(std::vector<Point3D_d> const & points, Point3D_d & center, Point3D_d & normal,
                         double & radius)
{
    if (points.size() == 3)
        return makeCircleByThreePoints(points.data(), center, normal, radius);
    PlaneSamples placed;
    PlaneCircle circle;
    return placed.place(points) && fitPlain(placed.samples, circle) &&
           placed.finish(circle, center, normal, radius);
}

bool FitCircleToPointSetRobust(std::vector<Point3D_d> const & points, Point3D_d & center, Point3D_d & normal,
                               double & radius)
{
    if (points.size() == 3)
        return makeCircleByThreePoints(points.data(), center, normal, radius);
    PlaneSamples placed;
    return placed.place(points) && placed.solveRobustly({placed.samples, CircleFree}, center, normal, radius);
}

bool FitCircleToPointSetWithFixedPointsRobust(std::vector<Point3D_d> const & points,
                                              std::vector<Point3D_d> const & fixedPoints, Point3D_d & center,
                                              Point3D_d & normal, double & radius)
{
    if (fixedPoints.empty() || fixedPoints.size() > 3)
        return false;
    if (fixedPoints.size() == 3)
        return makeCircleByThreePoints(fixedPoints.data(), center, normal, radius);
    PlaneSamples placed;
    if (!placed.place(points))
        return false;
    std::vector<Point3D_d> const fixed = placed.plane(fixedPoints);
    if (!std::all_of(fixed.begin(), fixed.end(), isFinite))
        return false;
    bool const isThroughTwo = fixed.size() == 2;
    if (isThroughTwo && fixed[0] == fixed[1])
        return false; // without a chord there is no bisector
    return placed.solveRobustly(
        {placed.samples, isThroughTwo ? CircleThroughTwoPoints : CircleThroughPoint, fixed}, center, normal,
        radius);
}

bool FitCircleByPointsWithDirs(std::vector<Point3D_d> const & points,
                               std::vector<Point3D_d> const & fixedPoints,
                               std::vector<Point3D_d> const & dirs, Point3D_d & center, Point3D_d & normal,
                               double & radius)
{
    PlaneSamples placed;
    if (fixedPoints.empty() || dirs.size() < fixedPoints.size() || !placed.place(points))
        return false;
    TF_CBuilderUCS const & plane = placed.plane;
    std::vector<Point3D_d> const fixed = plane(fixedPoints);
    if (fixed.size() == 2) {
        Point3D_d const directions[2] = {plane.turn(dirs[0]), plane.turn(dirs[1])};
        PlaneCircle circle;
        return fitToTwoTangents(fixed.data(), directions, plane.rounding(planeDistance(fixed[0], fixed[1])),
                                circle) &&
               placed.finish(circle, center, normal, radius);
    }
    Point3D_d const tangent = plane.turn(dirs[0]).unitLength();
    // A direction across the plane has no projection, and an overflow of its length leaves a zero vector.
    if (!isFinite(fixed[0]) || !isFinite(tangent) || !(dot(tangent, tangent) > 0))
        return false;
    return placed.solveRobustly({placed.samples, CircleTangentAtPoint, fixed, tangent}, center, normal,
                                radius);
}

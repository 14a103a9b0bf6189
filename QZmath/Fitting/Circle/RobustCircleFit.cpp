// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Circle/RobustCircleFit.h>

#include <QZmath/Foundation/Matrix.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace REmath::Detail
{

namespace
{

constexpr int mostRefinements = 15;
constexpr double gradientLimit = 0.0001;

// Sums over weighted samples of the products of (x, y, 1) with itself and with e. They are the normal
// equations of a fit by least squares whose error at a sample is e, with the gradient (x, y, 1) or (x, y).
struct NormalSums
{
    void add(double weight, double x, double y, double e)
    {
        double const wx = weight * x, wy = weight * y;
        xx += wx * x;
        xy += wx * y;
        yy += wy * y;
        x1 += wx;
        y1 += wy;
        one += weight;
        ex += wx * e;
        ey += wy * e;
        e1 += weight * e;
    }

    double xx = 0, xy = 0, yy = 0, x1 = 0, y1 = 0, one = 0, ex = 0, ey = 0, e1 = 0;
};

// Solves `factor * matrix * solution = factor * right` for a column-major symmetric matrix; `right` becomes
// the scaled right side.
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
    return solveMat(a, b, x);
}

struct Ray
{
    double distance, x, y;
};

// Distance and unit direction from the centre to `p`; a sample in the centre has no direction.
Ray rayTo(Point3D_d const & center, Point3D_d const & p)
{
    double const x = p.x() - center.x(), y = p.y() - center.y();
    double const distance = std::sqrt(x * x + y * y);
    if (!(distance > 0))
        return {distance, 0, 0};
    return {distance, x / distance, y / distance};
}

// Plane coordinates turned by a quarter, or not.
class QuarterTurn
{
public:
    explicit QuarterTurn(bool isTurned) : m_isTurned(isTurned) {}
    Point3D_d forth(Point3D_d const & p) const { return m_isTurned ? Point3D_d(-p.y(), p.x(), 0) : p; }
    Point3D_d back(Point3D_d const & p) const { return m_isTurned ? Point3D_d(p.y(), -p.x(), 0) : p; }

private:
    bool m_isTurned;
};

} // namespace

void RobustCircleFit::storeParameters(std::vector<double> & parameters)
{
    parameters.assign({m_circle.radius, m_circle.center.x(), m_circle.center.y()});
}

bool RobustCircleFit::isConverged(std::vector<double> const & parameters)
{
    double const limit = m_tolerance * m_circle.radius;
    return !(std::abs(m_circle.radius - parameters[0]) > limit) &&
           !(planeDistance({parameters[1], parameters[2], 0}, m_circle.center) > limit);
}

bool RobustCircleFit::fit(std::vector<double> const & weights)
{
    return fitAlgebraic(weights) && refine(weights) && m_circle.isFinite();
}

// The root of the difference of squares grows faster from zero than the distance: it counts small errors
// as larger, against which the outliers are judged.
void RobustCircleFit::findResiduals(std::vector<double> & residuals) const
{
    double const squaredRadius = m_circle.radius * m_circle.radius;
    for (std::size_t i = 0; i < residuals.size(); ++i) {
        Point3D_d const offset = (*m_points)[i] - m_circle.center;
        residuals[i] = std::sqrt(std::abs(dot(offset, offset) - squaredRadius));
    }
}

// The circle x² + y² = 2 a x + 2 b y - c of least squares in this equation.
bool RobustCircleFit::fitAlgebraic(std::vector<double> const & weights)
{
    NormalSums sums;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        double const x = (*m_points)[i].x(), y = (*m_points)[i].y();
        sums.add(weights[i], x, y, x * x + y * y);
    }
    auto const [xx, xy, yy, x1, y1, one, sx, sy, s1] = sums;
    double matrix[9] = {4 * xx, 4 * xy, -2 * x1, 4 * xy, 4 * yy, -2 * y1, -2 * x1, -2 * y1, one};
    double right[3] = {2 * sx, 2 * sy, -s1};
    double abc[3];
    if (!solveNormalEquations(matrix, right, perSample(), abc))
        return false;
    m_circle = {{abc[0], abc[1], 0}, std::sqrt(std::abs(abc[0] * abc[0] + abc[1] * abc[1] - abc[2]))};
    return true;
}

// Refines the algebraic circle, which stays when the refinement does not converge. False when a step
// cannot be computed.
bool RobustCircleFit::refine(std::vector<double> const & weights)
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

// Gauss-Newton steps. The gradient at a sample is the unit direction to it less that of `fixedRay`, which is
// asked once a step. `step` moves the circle by the solution of the normal equations and returns the length
// of their right side, or a negative number when they have no solution.
template <class FixedRay, class Step>
bool RobustCircleFit::refineBySteps(std::vector<double> const & weights, FixedRay fixedRay, Step step)
{
    PlaneCircle circle = m_circle;
    for (int iteration = 0; iteration < mostRefinements; ++iteration) {
        Ray const fixed = fixedRay(circle);
        NormalSums sums;
        for (std::size_t i = 0; i < weights.size(); ++i) {
            auto const [distance, x, y] = rayTo(circle.center, (*m_points)[i]);
            sums.add(weights[i], x - fixed.x, y - fixed.y, distance - circle.radius);
        }
        double const gradient = step(sums, circle);
        if (gradient < 0)
            return false;
        if (gradient < gradientLimit) {
            m_circle = circle;
            break;
        }
    }
    return true;
}

// Steps in centre and radius.
bool RobustCircleFit::refineFree(std::vector<double> const & weights)
{
    auto const step = [this](NormalSums const & sums, PlaneCircle & circle) {
        auto const [xx, xy, yy, x1, y1, one, ex, ey, e1] = sums;
        double matrix[9] = {xx, xy, x1, xy, yy, y1, x1, y1, one};
        double right[3] = {ex, ey, e1};
        double move[3];
        if (!solveNormalEquations(matrix, right, perSample(), move))
            return -1.0;
        circle.center += Point3D_d(move[0], move[1], 0);
        circle.radius += move[2];
        return Point3D_d(right).length();
    };
    return refineBySteps(
        weights, [](PlaneCircle const &) { return Ray{}; }, step);
}

// Steps in the centre; the radius follows from the fixed point.
bool RobustCircleFit::refineThroughPoint(std::vector<double> const & weights)
{
    Point3D_d const & fixed = m_fixedPoints[0];
    auto const step = [&](NormalSums const & sums, PlaneCircle & circle) {
        double matrix[4] = {sums.xx, sums.xy, sums.xy, sums.yy};
        double right[2] = {sums.ex, sums.ey};
        double move[2];
        if (!solveNormalEquations(matrix, right, perSample(), move))
            return -1.0;
        circle.center += Point3D_d(move[0], move[1], 0);
        circle.radius = planeDistance(fixed, circle.center);
        return std::hypot(right[0], right[1]);
    };
    return refineBySteps(
        weights, [&](PlaneCircle const & circle) { return rayTo(circle.center, fixed); }, step);
}

// Newton steps in the coordinate x of the centre on the line through `base` with the direction `along`,
// in coordinates turned by a quarter if the line is upright. `sum` adds the part of one sample to the
// numerator and the denominator of the step. The first step starts beside the line, from the algebraic
// circle. The radius follows from the first fixed point; with `keepsSide` the centre cannot cross it.
template <class Sum>
void RobustCircleFit::refineOnLine(Point3D_d const & base, Point3D_d const & along, Sum sum, bool keepsSide)
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
        // Where the algebraic circle is balanced already the denominator may vanish too. Later on, 0 / 0 is
        // the sign of a centre so far off that all samples are at the same distance from it: no result.
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

// The centre moves along the normal of the tangent through the fixed point. The weights count once in
// the numerator of the step and squared in the denominator, which makes it longer than a Gauss-Newton
// step.
void RobustCircleFit::refineTangent(std::vector<double> const & weights)
{
    Point3D_d const along{-m_tangentDir.y(), m_tangentDir.x(), 0};
    refineOnLine(
        m_fixedPoints[0], along,
        [&weights](std::size_t i, double gradient, double error, double & numerator, double & denominator) {
            double const weighted = weights[i] * gradient;
            numerator += weighted * error;
            denominator += weighted * weighted;
        },
        true);
}

// The centre moves along the bisector of the fixed points, until the sum of the distances is 0.
void RobustCircleFit::refineThroughTwoPoints()
{
    Point3D_d const & p = m_fixedPoints[0];
    Point3D_d const & q = m_fixedPoints[1];
    Point3D_d const chord = p - q;
    refineOnLine((p + q) / 2, {-chord.y(), chord.x(), 0},
                 [](std::size_t, double gradient, double error, double & numerator, double & denominator) {
                     numerator += error;
                     denominator += gradient;
                 },
                 false);
}

} // namespace REmath::Detail

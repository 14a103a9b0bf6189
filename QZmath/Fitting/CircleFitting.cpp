// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/CircleFitting.h>

#include <QZmath/Fitting/Circle/PlaneCircle.h>
#include <QZmath/Fitting/Circle/RobustCircleFit.h>
#include <QZmath/Fitting/RobustRegression.h>
#include <QZmath/Fitting/Samples/PlaneFrame.h>
#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

using REmath::Matrix;
using REmath::Point3D_d;
using namespace REmath::Detail;

namespace
{

// Maps points of space to coordinates in a plane.
class TF_CBuilderUCS : public PlaneFrame
{
public:
    // The plane of least squares of `points`. False when there is none.
    bool build(std::vector<Point3D_d> const & points)
    {
        return fit(points) && isFinite(m_axisU) && isFinite(m_axisV) && isFinite(m_origin);
    }

    Point3D_d operator()(Point3D_d const & point) const { return toPlane(point); }

    std::vector<Point3D_d> operator()(std::vector<Point3D_d> const & points) const
    {
        std::vector<Point3D_d> result(points.size());
        std::transform(points.begin(), points.end(), result.begin(),
                       [this](Point3D_d const & point) { return toPlane(point); });
        return result;
    }

    // Bound of the error that rounding leaves in the plane coordinates of points up to `extent` apart.
    double rounding(double extent) const
    {
        double const magnitude =
            std::max({std::abs(m_origin.x()), std::abs(m_origin.y()), std::abs(m_origin.z())});
        return 4 * std::numeric_limits<double>::epsilon() * (magnitude + extent);
    }
};

// Points in the coordinates of their own plane.
struct PlaneSamples
{
    // False when the points are too many to count in `int`, have no plane, or lie on a line within rounding.
    bool place(std::vector<Point3D_d> const & points)
    {
        if (points.size() > std::numeric_limits<int>::max() || !plane.build(points))
            return false;
        samples = plane(points);
        auto const [first, second] = extremes(samples);
        Point3D_d const base = samples[second] - samples[first];
        double const length = base.length(), limit = plane.rounding(length);
        return std::any_of(samples.begin(), samples.end(), [&, start = samples[first]](Point3D_d const & p) {
            return std::abs(cross(base, p - start).z()) > limit * length;
        });
    }

    // Hands the circle over to space.
    bool finish(PlaneCircle const & circle, Point3D_d & center, Point3D_d & circleNormal,
                double & radius) const
    {
        center = plane.toSpace(circle.center.x(), circle.center.y());
        circleNormal = plane.m_normal;
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
    std::vector<Point3D_d> samples;
};

// Circle of least squares through two points, tangent to a direction at each: four equations for the centre
// (a, b) and c = a² + b² - r².
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
    return placed.place(points) && fitPlainCircle(placed.samples, circle) &&
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
        Point3D_d const directions[2] = {plane.directionToPlane(dirs[0]), plane.directionToPlane(dirs[1])};
        PlaneCircle circle;
        return fitToTwoTangents(fixed.data(), directions, plane.rounding(planeDistance(fixed[0], fixed[1])),
                                circle) &&
               placed.finish(circle, center, normal, radius);
    }
    Point3D_d const tangent = plane.directionToPlane(dirs[0]).unitLength();
    // A direction across the plane has no projection, and an overflow of its length leaves a zero vector.
    if (!isFinite(fixed[0]) || !isFinite(tangent) || !(dot(tangent, tangent) > 0))
        return false;
    return placed.solveRobustly({placed.samples, CircleTangentAtPoint, fixed, tangent}, center, normal,
                                radius);
}

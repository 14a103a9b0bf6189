// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/LineFitting.h>

#include <QZmath/Fitting/RobustRegression.h>
#include <QZmath/Fitting/Samples/WeightedFitTask.h>
#include <QZmath/Fitting/Samples/WeightedScatter.h>
#include <QZmath/Foundation/SymmetricEigen.h>
#include <QZmath/Foundation/UnitScatterDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::dot;
using REmath::Detail::weightedMean;
using REmath::Detail::weightedScatter;

namespace
{

bool isFinite(Point3D_d const & p)
{
    return std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z());
}

template <class Point>
Point3D_d wide(Point const & point)
{
    return {point.asArray()};
}

// Direction of the largest eigenvalue of the symmetric matrix with the elements xx, xy, yy, xz, yz, zz; the
// first one of equal eigenvalues. False when there is no positive eigenvalue.
bool principalAxis(std::array<double, 6> const & elements, Point3D_d & axis)
{
    auto const [xx, xy, yy, xz, yz, zz] = elements;
    // The line of most point sets, with the sign that the iteration gives it: it leads upwards.
    REmath::Detail::UnitScatter const unit(xx, xy, xz, yy, yz, zz);
    if (unit.eigenvectorOf(unit.greatestEigenvalue(), 0.25, axis) && std::abs(axis.z()) > 1e-3) {
        if (axis.z() < 0)
            axis = -axis;
        return true;
    }
    double scatter[3][3] = {{xx, xy, xz}, {xy, yy, yz}, {xz, yz, zz}};
    double * rows[3] = {scatter[0], scatter[1], scatter[2]};
    double values[3], subdiagonal[3];
    tred2_d(rows, 3, values, subdiagonal);
    if (tqli_d(values, subdiagonal, 3, rows) == 0)
        return false;
    double const first = std::max(values[0], 0.0);
    int const largest = values[2] > std::max(values[1], first) ? 2 : first < values[1] ? 1 : 0;
    if (!(values[largest] > 0))
        return false;
    axis = {rows[0][largest], rows[1][largest], rows[2][largest]};
    axis.normalize();
    return isFinite(axis);
}

bool lineThroughTwo(Point3D_d const & first, Point3D_d const & second, Point3D_d & origin,
                    Point3D_d & direction)
{
    Point3D_d const difference = second - first;
    if (!(dot(difference, difference) > 0))
        return false;
    origin = (first + second) / 2;
    direction = difference.unitLength();
    // An overflow of the length leaves a zero vector.
    return isFinite(origin) && isFinite(direction) && dot(direction, direction) > 0;
}

//// Fits the line to points with weights, or to all alike with null ones. With `throughOrigin` the line goes
// through `origin` as it comes in.
template <class Point>
bool fitLine(std::vector<Point> const & points, double const * weights, bool throughOrigin,
             Point3D_d & origin, Point3D_d & direction)
{
    std::size_t const count = points.size();
    if (count < 2)
        return false;
    if (count == 2 && !throughOrigin)
        return lineThroughTwo(wide(points[0]), wide(points[1]), origin, direction);
    if (!throughOrigin && !weightedMean(points.data(), weights, count, origin))
        return false;
    return principalAxis(weightedScatter(points.data(), weights, count, origin), direction) &&
           isFinite(origin);
}

// Line for the robust solver, free or through a fixed point.
template <class Point>
class RobustLinearFit : public WeightedFitTask
{
public:
    explicit RobustLinearFit(std::vector<Point> const & points) : m_points(&points) {}
    RobustLinearFit(std::vector<Point> const & points, Point3D_d const & fixedPoint)
        : m_points(&points), m_origin(fixedPoint), m_throughFixedPoint(1)
    {}

    int parameterCount() override { return 6; }
    unsigned int sampleCount() override { return static_cast<unsigned int>(m_points->size()); }

    void storeParameters(std::vector<double> & parameters) override
    {
        parameters.resize(6);
        m_origin.toArray(parameters.data());
        m_direction.toArray(parameters.data() + 3);
    }

    bool isConverged(std::vector<double> const & parameters) override
    {
        double const cosine = dot(Point3D_d(parameters.data() + 3), m_direction);
        return cosine * cosine > 1 - 2 * m_directionTolerance;
    }

    Point3D_d const & origin() const { return m_origin; }
    Point3D_d const & direction() const { return m_direction; }

private:
    bool fit(std::vector<double> const & weights) override
    {
        return fitLine(*m_points, weights.data(), m_throughFixedPoint != 0, m_origin, m_direction);
    }

    void findResiduals(std::vector<double> & residuals) const override
    {
        for (std::size_t i = 0; i < residuals.size(); ++i) {
            Point3D_d const offset = wide((*m_points)[i]) - m_origin;
            double const along = dot(offset, m_direction);
            residuals[i] = std::sqrt(std::max(0.0, dot(offset, offset) - along * along));
        }
    }

    std::vector<Point> const * m_points;
    Point3D_d m_origin;
    Point3D_d m_direction;
    double m_directionTolerance = 0.001; // of 1 - |cosine|
    int m_throughFixedPoint = 0;         // 1: m_origin is given and stays
};

template <class Point>
bool solve(std::vector<Point> const & points, RobustLinearFit<Point> && task, Point3D_d & origin,
           Point3D_d & direction)
{
    if (points.size() > std::numeric_limits<int>::max())
        return false; // the solver counts in int
    if (CRobustRegressionSolver(task).solveRegression() != 0)
        return false;
    origin = task.origin();
    direction = task.direction();
    return true;
}

} // namespace

bool FitLineToPointSet(std::vector<Point3D_d> const & points, Point3D_d & origin, Point3D_d & direction)
{
    return fitLine(points, nullptr, false, origin, direction);
}

bool FitLineToPointSet(std::vector<Point3D> const & points, Point3D_d & origin, Point3D_d & direction)
{
    return fitLine(points, nullptr, false, origin, direction);
}

bool FitLineToPointSetRobust(std::vector<Point3D_d> const & points, Point3D_d & origin, Point3D_d & direction)
{
    return solve(points, RobustLinearFit<Point3D_d>(points), origin, direction);
}

bool FitLineToPointSetRobust(std::vector<Point3D> const & points, Point3D_d & origin, Point3D_d & direction)
{
    return solve(points, RobustLinearFit<Point3D>(points), origin, direction);
}

bool FitLineToPointSetThroughPointRobust(std::vector<Point3D_d> const & points, Point3D_d const & fixedPoint,
                                         Point3D_d & direction)
{
    Point3D_d origin;
    return solve(points, RobustLinearFit<Point3D_d>(points, fixedPoint), origin, direction);
}

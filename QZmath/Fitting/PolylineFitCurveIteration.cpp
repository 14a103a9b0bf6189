// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Polyline/Constraints.h>
#include <QZmath/Fitting/Polyline/CurveForm.h>
#include <QZmath/Fitting/PolylineFitCurve.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

// The fit of all curves and boundaries at once. The unknowns p are the four parameters of each segment that
// is not a free curve, then those of each boundary that ties something: x, y and, with a direction, u, v.

using PolylineDetail::CurveForm;
using REmath::Matrix;
using REmath::Point3D_d;
using REmath::Detail::index;

namespace
{

// Values per boundary of a type.
int boundaryUnknowns(int type) { return type == BndCondPointDir ? 4 : 2; }

double square(double x) { return x * x; }

// Appends rows to a matrix of constraints, which has a column per unknown and one for the value.
class ConstraintRows
{
public:
    explicit ConstraintRows(int columns) : m_columns(columns) {}

    void begin(double value)
    {
        m_elements.resize(m_elements.size() + index(m_columns), 0.0);
        row()[m_columns - 1] = value;
    }
    template <class... Coefficients>
    void put(int column, Coefficients... coefficients)
    {
        double * target = row() + column;
        ((*target++ = coefficients), ...);
    }
    // Holds unknowns as they are, one row for each.
    void hold(int column, int count)
    {
        for (int i = 0; i < count; ++i) {
            begin(0);
            put(column + i, 1.0);
        }
    }
    Matrix<double> matrix() const
    {
        Matrix<double> result(static_cast<int>(m_elements.size()) / m_columns, m_columns);
        for (int r = 0; r < result.rows(); ++r) {
            for (int c = 0; c < m_columns; ++c)
                result(r, c) = m_elements[index(r * m_columns + c)];
        }
        return result;
    }

private:
    double * row() { return m_elements.data() + m_elements.size() - m_columns; }

    int m_columns;
    std::vector<double> m_elements; // row by row
};

} // namespace

int CPolylineFitCurve::getParamIndexBySegmentNumber(int segment) const
{
    auto const begin = m_curveTypes.begin();
    auto const free = std::count(begin, begin + segment, PolylineCurveNurbs);
    return 4 * (segment - static_cast<int>(free));
}

// Whether the boundary ties nothing in the fit.
bool CPolylineFitCurve::isBndCondFree(int boundary) const
{
    if (m_bndCondTypes[index(boundary)] == BndCondFree)
        return true;
    bool const isFirstEnd = boundary == 0 && !m_closed;
    return (!isFirstEnd && isNurbs(segmentBefore(boundary))) || (hasSegment(boundary) && isNurbs(boundary));
}

// Whether the boundary is an end of an open polyline.
bool CPolylineFitCurve::isBndCondFixed(int boundary) const
{
    return boundaryCount() > 0 && !m_closed && (boundary == 0 || boundary == boundaryCount() - 1);
}

// Per segment that is not a free curve, a 4 by 4 block, side by side: the mean of w w^T over its points,
// with w = (x² + y², x, y, 1), so that (A, B, C, D) block (A, B, C, D)^T is the mean squared distance.
void CPolylineFitCurve::MakePointsMatrix(Matrix & points) const
{
    points.resize(4, getParamIndexBySegmentNumber(segmentCount()));
    for (int segment = 0; segment < segmentCount(); ++segment) {
        Points const & samples = m_segments[index(segment)];
        if (isNurbs(segment) || samples.empty())
            continue;
        double sums[4][4] = {};
        for (Point3D_d const & point : samples) {
            double const w[4] = {square(point.x()) + square(point.y()), point.x(), point.y(), 1};
            for (int i = 0; i < 4; ++i) {
                for (int j = i; j < 4; ++j)
                    sums[i][j] += w[i] * w[j];
            }
        }
        int const begin = getParamIndexBySegmentNumber(segment);
        for (int i = 0; i < 4; ++i) {
            for (int j = 0; j < 4; ++j)
                points(j, begin + i) =
                    sums[std::min(i, j)][std::max(i, j)] / static_cast<double>(samples.size());
        }
    }
}

// Root of the mean squared distance of all fitted points plus the squares of what the ties are off, each tie
// in full. Boundary 0 ties segment 0 twice, also in a closed polyline: its neighbour before is clamped, here
// and in the constraints.
double CPolylineFitCurve::getResiduals(std::vector<double> const & p, int bndStart) const
{
    double sum = 0;
    std::size_t count = 0;
    for (int segment = 0; segment < segmentCount(); ++segment) {
        if (isNurbs(segment))
            continue;
        CurveForm const form = CurveForm::read(p.data() + getParamIndexBySegmentNumber(segment));
        Points const & samples = m_segments[index(segment)];
        for (Point3D_d const & point : samples)
            sum += square(form.value(point.x(), point.y()));
        count += samples.size();
    }
    if (count > 0)
        sum /= static_cast<double>(count);
    int column = bndStart;
    for (int boundary = 0; boundary < boundaryCount(); ++boundary) {
        if (isBndCondFree(boundary))
            continue;
        int const type = m_bndCondTypes[index(boundary)];
        double const * const bnd = p.data() + column;
        column += boundaryUnknowns(type);
        for (int const segment : {std::max(boundary - 1, 0), boundary}) {
            if (!hasSegment(segment))
                continue;
            CurveForm const form = CurveForm::read(p.data() + getParamIndexBySegmentNumber(segment));
            sum += square(form.value(bnd[0], bnd[1]));
            if (type == BndCondPointDir)
                sum += square(form.tangency(bnd[0], bnd[1], bnd[2], bnd[3]));
        }
    }
    return std::sqrt(sum);
}

// One row per constraint: its gradient by p, and in the last column its value at p. Norms and straightness
// of the curves first, then boundary by boundary.
void CPolylineFitCurve::MakeConstrMatrix(int bndStart, std::vector<double> const & p,
                                         Matrix & constraints) const
{
    ConstraintRows rows(static_cast<int>(p.size()) + 1);
    for (int column = 0; column < bndStart; column += 4) {
        CurveForm const form = CurveForm::read(p.data() + column);
        rows.begin(square(form.b) - 1 + square(form.c) - 4 * form.a * form.d);
        rows.put(column, -4 * form.d, 2 * form.b, 2 * form.c, -4 * form.a);
        if (form.isStraight())
            rows.hold(column, 1);
    }
    int column = bndStart;
    for (int boundary = 0; boundary < boundaryCount(); ++boundary) {
        if (isBndCondFree(boundary))
            continue;
        int const type = m_bndCondTypes[index(boundary)];
        double const * const bnd = p.data() + column;
        double const x = bnd[0], y = bnd[1];
        if (isBndCondFixed(boundary))
            rows.hold(column, boundaryUnknowns(type));
        for (int const segment : {std::max(boundary - 1, 0), boundary}) {
            if (!hasSegment(segment))
                continue;
            int const curve = getParamIndexBySegmentNumber(segment);
            CurveForm const form = CurveForm::read(p.data() + curve);
            rows.begin(form.value(x, y));
            rows.put(curve, x * x + y * y, x, y, 1.0);
            rows.put(column, form.valueByX(x), form.valueByY(y));
            if (type == BndCondPointDir) {
                double const u = bnd[2], v = bnd[3];
                rows.begin(form.tangency(x, y, u, v));
                rows.put(curve, 2 * x * v - 2 * y * u, v, -u, 0.0);
                rows.put(column, 2 * form.a * v, -2 * form.a * u, -form.valueByY(y), form.valueByX(x));
                rows.begin(u * u + v * v - 1);
                rows.put(column + 2, 2 * u, 2 * v);
            }
        }
        column += boundaryUnknowns(type);
    }
    constraints = rows.matrix();
}

// The changes of p that meet the constraints to first order, and the normal equations for the best of them.
// Gives the number of unknowns left; without any there are no equations.
int CPolylineFitCurve::formMatrix(int bndStart, std::vector<double> const & p, Matrix const & points,
                                  Matrix & freedom, Matrix & normal, Matrix & rightSide) const
{
    Matrix constraints;
    MakeConstrMatrix(bndStart, p, constraints);
    freedom = PolylineDetail::eliminateConstraints(constraints);
    int const unknowns = freedom.cols() - 1;
    if (unknowns > 0)
        PolylineDetail::formNormalEquations(points, p, freedom, normal, rightSide);
    return unknowns;
}

// Levenberg-Marquardt steps in the space that the linearised constraints leave. The damping only grows, so
// that late steps do little but to restore the constraints.
void CPolylineFitCurve::fitPolylineSegments()
{
    std::vector<double> p;
    for (int segment = 0; segment < segmentCount(); ++segment) {
        auto const params = m_curveParams.begin() + 4 * segment;
        if (!isNurbs(segment))
            p.insert(p.end(), params, params + 4);
    }
    int const bndStart = static_cast<int>(p.size());
    for (int boundary = 0; boundary < boundaryCount(); ++boundary) {
        auto const params = m_bndParams.begin() + 4 * boundary;
        if (!isBndCondFree(boundary))
            p.insert(p.end(), params, params + boundaryUnknowns(m_bndCondTypes[index(boundary)]));
    }
    if (p.empty())
        return;

    constexpr int outerLimit = 20, innerLimit = 3;
    Matrix points, freedom, normal, rightSide, damped, y;
    MakePointsMatrix(points);
    double const startResidual = getResiduals(p, bndStart);
    double damping = 0.0001;
    std::vector<double> trial;
    bool isDone = false;
    for (int outer = 0; outer < outerLimit && !isDone; ++outer) {
        damping += 0.04;
        double const residual = getResiduals(p, bndStart);
        int const unknowns = formMatrix(bndStart, p, points, freedom, normal, rightSide);
        if (unknowns == 0)
            break;
        double gradient2 = 0;
        for (int i = 0; i < unknowns; ++i)
            gradient2 += square(rightSide(i, 0));
        bool isBetter = false;
        for (int inner = 0; inner < innerLimit && !isBetter && !isDone; ++inner) {
            damping *= 10;
            damped = normal;
            for (int i = 0; i < unknowns; ++i)
                damped(i, i) += (normal(i, i) + 1) * damping;
            if (!solveMat(damped, rightSide, y))
                y.reset();
            trial = p;
            for (std::size_t i = 0; i < p.size(); ++i) {
                int const row = static_cast<int>(i);
                double change = freedom(row, unknowns);
                for (int col = 0; col < unknowns; ++col)
                    change += freedom(row, col) * y(col, 0);
                trial[i] += change;
            }
            isDone = std::sqrt(gradient2) < m_fitTolerance;
            isBetter = !isDone && residual > getResiduals(trial, bndStart);
        }
        if (isDone || isBetter)
            p = trial;
    }
    if (!(startResidual > getResiduals(p, bndStart)))
        return;

    auto next = p.cbegin();
    for (int segment = 0; segment < segmentCount(); ++segment) {
        if (!isNurbs(segment)) {
            std::copy_n(next, 4, m_curveParams.begin() + 4 * segment);
            next += 4;
        }
    }
    for (int boundary = 0; boundary < boundaryCount(); ++boundary) {
        if (!isBndCondFree(boundary)) {
            int const size = boundaryUnknowns(m_bndCondTypes[index(boundary)]);
            std::copy_n(next, size, m_bndParams.begin() + 4 * boundary);
            next += size;
        }
    }
}

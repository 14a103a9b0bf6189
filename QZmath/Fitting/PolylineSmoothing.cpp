// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PolylineSmoothing.h>

#include <QZmath/Backend/Blas.h>
#include <QZmath/Backend/Lapack.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

// The smoothing pass, with its temporary. `Value` is a number or a point.
template <class Value>
class TF_SmoothingPass
{
public:
    // The second step is left out for a `counterWeight` of 0.
    TF_SmoothingPass(double weight, double counterWeight, bool closed)
        : m_weight(weight), m_counterWeight(counterWeight), m_closed(closed)
    {}

    void run(int passes, Value * values, std::size_t size)
    {
        m_smoothed.resize(size);
        for (int pass = 0; pass < passes; ++pass) {
            step(m_weight, values, m_smoothed.data(), size);
            if (m_counterWeight != 0)
                step(-m_counterWeight, m_smoothed.data(), values, size);
            else
                std::copy(m_smoothed.begin(), m_smoothed.end(), values);
        }
    }

private:
    static double mix(double own, double a, double b, double left, double right)
    {
        return a * own + b * (left + right);
    }
    static Point3D_d mix(Point3D_d const & own, double a, double b, Point3D_d const & left,
                         Point3D_d const & right)
    {
        return {mix(own.x(), a, b, left.x(), right.x()), mix(own.y(), a, b, left.y(), right.y()),
                mix(own.z(), a, b, left.z(), right.z())};
    }
    static Point3D mix(Point3D const & own, double a, double b, Point3D const & left, Point3D const & right)
    {
        auto const wide = [](float coord) { return static_cast<double>(coord); };
        return {mix(wide(own.x()), a, b, wide(left.x()), wide(right.x())),
                mix(wide(own.y()), a, b, wide(left.y()), wide(right.y())),
                mix(wide(own.z()), a, b, wide(left.z()), wide(right.z()))};
    }

    // Moves every value by `weight` towards the middle of its neighbours; the ends of an open sequence stay.
    void step(double weight, Value const * from, Value * to, std::size_t size) const
    {
        double const a = 1 - weight, b = weight / 2;
        std::size_t const last = size - 1;
        for (std::size_t i = 1; i < last; ++i)
            to[i] = mix(from[i], a, b, from[i - 1], from[i + 1]);
        if (!m_closed) {
            to[0] = from[0];
            to[last] = from[last];
        } else {
            to[0] = mix(from[0], a, b, from[last], from[last == 0 ? 0 : 1]);
            if (last != 0)
                to[last] = mix(from[last], a, b, from[last - 1], from[0]);
        }
    }

    double m_weight;
    double m_counterWeight;
    bool m_closed;
    std::vector<Value> m_smoothed;
};

// The list of fixed points as positions of the sequence, of which a closed polyline has one less than
// points: the two indices of its common point count once. False when an index is out of range.
bool readFixedPoints(CPolylineSmoothParams const & params, std::size_t pointCount,
                     std::vector<std::size_t> & fixed)
{
    if (params.GetPtrFixedPtIdx() == nullptr)
        return true;
    bool hasStart = false, hasEnd = false;
    for (int const index : *params.GetPtrFixedPtIdx()) {
        if (index < 0 || static_cast<std::size_t>(index) >= pointCount)
            return false;
        auto const position = static_cast<std::size_t>(index);
        if (params.GetIsClosed() && position == pointCount - 1) {
            hasEnd = true;
        } else {
            hasStart = hasStart || position == 0;
            fixed.push_back(position);
        }
    }
    if (hasEnd && !hasStart)
        fixed.push_back(0);
    return true;
}

bool hasDuplicates(std::vector<std::size_t> positions)
{
    std::sort(positions.begin(), positions.end());
    return std::adjacent_find(positions.begin(), positions.end()) != positions.end();
}

template <class Point>
bool isFinite(Point const & point)
{
    return std::isfinite(point.x()) && std::isfinite(point.y()) && std::isfinite(point.z());
}

template <class Point>
bool smooth(std::vector<Point> & points, CPolylineSmoothParams const & params)
{
    if (points.size() < 2)
        return true;
    std::vector<std::size_t> fixed;
    if (!readFixedPoints(params, points.size(), fixed))
        return false;
    bool const closed = params.GetIsClosed();
    std::size_t const size = closed ? points.size() - 1 : points.size();
    std::size_t const fixedCount = fixed.size();
    double const weight = params.GetWeight();
    double const counterWeight =
        params.GetPreserveShape() ? weight / (1 - static_cast<double>(0.1F) * weight) : 0;
    if (!std::isfinite(weight) || !std::isfinite(counterWeight))
        return false;

    std::vector<Point> originals;
    for (std::size_t const position : fixed)
        originals.push_back(points[position]);
    TF_SmoothingPass<Point>(weight, counterWeight, closed).run(params.GetNIter(), points.data(), size);
    if (hasDuplicates(fixed) || !std::all_of(points.begin(), points.end(), isFinite<Point>))
        return false;
    if (fixedCount == 0) {
        if (closed)
            points.back() = points.front();
        return true;
    }

    std::vector<double> responses(fixedCount * size);
    TF_SmoothingPass<double> pass(weight, counterWeight, closed);
    for (std::size_t j = 0; j < fixedCount; ++j) {
        double * const response = responses.data() + j * size;
        response[fixed[j]] = 1;
        pass.run(params.GetNIter(), response, size);
    }
    std::vector<double> matrix(fixedCount * fixedCount), pushes(3 * fixedCount);
    for (std::size_t i = 0; i < fixedCount; ++i) {
        for (std::size_t j = 0; j < fixedCount; ++j)
            matrix[j * fixedCount + i] = responses[j * size + fixed[i]];
        for (std::size_t axis = 0; axis < 3; ++axis)
            pushes[axis * fixedCount + i] = static_cast<double>(originals[i].asArray()[axis]) -
                                            static_cast<double>(points[fixed[i]].asArray()[axis]);
    }
    std::vector<int> pivots(fixedCount);
    int const order = static_cast<int>(fixedCount);
    if (!QzBackend::factorLu(order, matrix.data(), pivots.data()) ||
        !QzBackend::solveLu(order, 3, matrix.data(), pivots.data(), pushes.data()))
        return false;
    if (!std::all_of(pushes.begin(), pushes.end(), [](double push) { return std::isfinite(push); }))
        return false;

    std::vector<double> correction(3 * size);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t j = 0; j < fixedCount; ++j)
            QzBackend::axpy(size, pushes[axis * fixedCount + j], responses.data() + j * size,
                            correction.data() + axis * size);
    }
    for (std::size_t i = 0; i < size; ++i)
        points[i] = Point(static_cast<double>(points[i].x()) + correction[i],
                          static_cast<double>(points[i].y()) + correction[size + i],
                          static_cast<double>(points[i].z()) + correction[2 * size + i]);
    for (std::size_t i = 0; i < fixedCount; ++i)
        points[fixed[i]] = originals[i];
    if (closed)
        points.back() = points.front();
    return true;
}

} // namespace

CPolylineSmoothParams::CPolylineSmoothParams() { CPolylineSmoothParams::SetDefaultValues(); }

CPolylineSmoothParams::CPolylineSmoothParams(bool closed, double weight, int nIter, bool preserveShape,
                                             std::vector<int> * fixed)
    : m_closed(closed), m_weight(weight), m_nIter(nIter), m_preserveShape(preserveShape),
      m_ptrFixedPtIdx(fixed)
{}

CPolylineSmoothParams::~CPolylineSmoothParams() = default;

// In the constructor the virtual call below reaches this class's own form.
void CPolylineSmoothParams::SetDefaultValues() { SetDefaultValuesPolyline(); }

void CPolylineSmoothParams::SetDefaultValuesPolyline()
{
    m_closed = false;
    m_weight = 0.4;
    m_nIter = 10;
    m_preserveShape = true;
    m_ptrFixedPtIdx = nullptr;
}

bool smoothPolylineWithFixedPoints(std::vector<Point3D> & points, CPolylineSmoothParams const & params)
{
    return smooth(points, params);
}

bool smoothPolylineWithFixedPoints(std::vector<Point3D_d> & points, CPolylineSmoothParams const & params)
{
    return smooth(points, params);
}

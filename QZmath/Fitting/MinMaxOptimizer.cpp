// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/MinMaxOptimizer.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>

namespace REmath
{
namespace
{

double dotProduct(Point3D_d const & a, Point3D_d const & b)
{
    return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}

double squaredDiagonal(CMinMaxTask const & task)
{
    Point3D_d const diagonal = task.GetLimitMax() - task.GetLimitMin();
    return dotProduct(diagonal, diagonal);
}

// A point with the values of all functions there.
struct Evaluation
{
    Evaluation(CMinMaxTask const & task, Point3D_d const & at)
        : point(at), values(static_cast<std::size_t>(task.NFunctions()))
    {
        evaluate(task);
    }

    void evaluate(CMinMaxTask const & task)
    {
        minimum = std::numeric_limits<double>::max();
        isProper = std::isfinite(point.x()) && std::isfinite(point.y()) && std::isfinite(point.z());
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] = task.FnByIdx(static_cast<int>(i))(point);
            isProper = isProper && !std::isnan(values[i]);
            if (values[i] < minimum)
                minimum = values[i];
        }
    }

    Point3D_d point;
    std::vector<double> values;
    double minimum;
    bool isProper; // the point is finite and every function has a value there
};

} // namespace

class CMinMaxOptimizer::Impl
{
public:
    Impl(CMinMaxTask const & task, CMinMaxParams const & params)
        : m_task(&task), m_params(&params),
          m_delta(std::max(1e-5, squaredDiagonal(task) * params.GetGradCalcRelDelta()))
    {}

    void run(Point3D_d & result) const
    {
        result = m_task->GetInitApprox();
        if (m_task->NFunctions() == 0)
            return;
        Evaluation current(*m_task, result);
        Evaluation attempt = current;
        std::vector<std::size_t> order(current.values.size());
        for (int iteration = 0; iteration < m_params->GetMaxIter(); ++iteration) {
            double const before = current.minimum;
            makeStep(current, attempt, order);
            result = current.point;
            if (before + m_params->GetTolerance() > current.minimum)
                return;
        }
    }

private:
    Point3D_d gradient(std::size_t function, Evaluation const & at) const
    {
        CMinMaxTask::Function const & f = m_task->FnByIdx(static_cast<int>(function));
        double const value = at.values[function];
        Point3D_d const & p = at.point;
        return {(f(Point3D_d(p.x() + m_delta, p.y(), p.z())) - value) / m_delta,
                (f(Point3D_d(p.x(), p.y() + m_delta, p.z())) - value) / m_delta,
                (f(Point3D_d(p.x(), p.y(), p.z() + m_delta)) - value) / m_delta};
    }

    // The first gradient that is not nearly zero, in order of rising values; false when there is none.
    bool findDirection(Evaluation const & at, std::vector<std::size_t> & order, Point3D_d & direction) const
    {
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(), [&at](std::size_t left, std::size_t right) {
            double const a = at.values[left], b = at.values[right];
            if (std::isnan(a) || std::isnan(b))
                return !std::isnan(a) || (std::isnan(b) && left < right);
            return a < b || (a == b && left < right);
        });
        for (std::size_t const function : order) {
            direction = gradient(function, at);
            if (dotProduct(direction, direction) > 1e-8)
                return true;
        }
        return false;
    }

    // The greatest multiple of the direction to try.
    double stepLimit(Evaluation const & at, Point3D_d const & direction) const
    {
        double const length2 = dotProduct(direction, direction);
        double limit = std::sqrt(squaredDiagonal(*m_task) / length2);
        for (std::size_t function = 0; function < at.values.size(); ++function) {
            if (!(at.values[function] > at.minimum))
                continue;
            double const rise = dotProduct(gradient(function, at), direction);
            if (rise < 0)
                limit = std::min(limit, (at.values[function] - at.minimum) / (length2 - rise));
        }
        double const * const to = direction.asArray();
        for (int axis = 0; axis < 3; ++axis) {
            if (!(std::abs(to[axis]) >= 1e-10))
                continue;
            double const position = at.point.asArray()[axis];
            double const room = to[axis] > 0 ? m_task->GetLimitMax().asArray()[axis] - position
                                             : position - m_task->GetLimitMin().asArray()[axis];
            limit = std::min(limit, std::abs(room / to[axis]) * 0.98);
        }
        return limit;
    }

    // Moves `current` to a better point on its direction, if one is found. `attempt` is room for the search.
    void makeStep(Evaluation & current, Evaluation & attempt, std::vector<std::size_t> & order) const
    {
        Point3D_d direction;
        if (!findDirection(current, order, direction))
            return;
        double length = stepLimit(current, direction);
        for (int tried = 0; tried < m_params->GetMaxGradientMoveAttempts(); ++tried) {
            attempt.point = current.point + length * direction;
            if (m_task->GetProjector() != nullptr)
                m_task->GetProjector()->Project(attempt.point);
            attempt.evaluate(*m_task);
            if (attempt.isProper && attempt.minimum > current.minimum + m_params->GetTolerance()) {
                std::swap(current, attempt);
                return;
            }
            length *= m_params->GetGradientScale();
        }
    }

    CMinMaxTask const * m_task;
    CMinMaxParams const * m_params;
    double m_delta;
};

CMinMaxTask::IProjector::~IProjector() = default;

CMinMaxTask::CMinMaxTask() = default;
CMinMaxTask::CMinMaxTask(CMinMaxTask const & other) = default;
CMinMaxTask & CMinMaxTask::operator=(CMinMaxTask const & other) = default;
CMinMaxTask::~CMinMaxTask() = default;

void CMinMaxTask::AddFunctor(Function const * function)
{
    if (function != nullptr)
        m_functions.push_back(function);
}

void CMinMaxParams::SetDefault() { *this = CMinMaxParams(); }

CMinMaxOptimizer::CMinMaxOptimizer(CMinMaxTask const & task, CMinMaxParams const & params)
    : m_impl(std::make_unique<Impl>(task, params))
{}

CMinMaxOptimizer::CMinMaxOptimizer(CMinMaxOptimizer const & other)
    : m_impl(std::make_unique<Impl>(*other.m_impl))
{}

CMinMaxOptimizer & CMinMaxOptimizer::operator=(CMinMaxOptimizer const & other)
{
    *m_impl = *other.m_impl;
    return *this;
}

CMinMaxOptimizer::~CMinMaxOptimizer() = default;

void CMinMaxOptimizer::Run(Point3D_d & result) const { m_impl->run(result); }

} // namespace REmath

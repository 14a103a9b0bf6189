// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/ActiveSet/DualActiveSet.h>

#include <QZmath/Backend/Blas.h>
#include <QZmath/Fitting/ActiveSet/VectorMagnitude.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

constexpr int maxRefinements = 6;
constexpr int maxContradictions = 3;
constexpr int maxDoubts = 3;
constexpr int maxProximalIterations = 300;
// Violation of a solution relative to the bound and to x that is certainly not rounding.
constexpr double feasibility = 1e-8;
// What a gradient component may be off balance, relative to its own terms.
constexpr double balance = 1e-3;
// How exactly a ray has to keep to the constraints, and its curvature relative to that of the lift.
constexpr double rayTolerance = 1e-9;
constexpr double rayCurvature = 1e-3;

} // namespace

void CDualActiveSet::evaluateRows()
{
    std::fill_n(m_rowValues, m_rows, 0.0);
    std::fill_n(m_rowSpreads, m_rows, 0.0);
    for (Index j = 0; j < m_size; ++j) {
        double const * const column = m_program.matrix + j * static_cast<Index>(m_program.leadingMatrix);
        double const value = m_x[j], spread = m_spread[j];
        for (Index i = 0; i < m_rows; ++i) {
            m_rowValues[i] += column[i] * value;
            m_rowSpreads[i] += std::abs(column[i]) * spread;
        }
    }
}

// Moves x and the multipliers to the minimum on the working set of the objective plus half the lift times
// the squared distance from the start of the round, by the residuals. Returns a scale of the gradient.
double CDualActiveSet::correct()
{
    evaluateRows();
    double scale = 0;
    for (Index j = 0; j < m_size; ++j) {
        double const curvature = QzBackend::dot(m_size, m_program.hessian + j * m_size, m_x);
        m_residual[j] = -(curvature + m_program.gradient[j] + m_lift[j] * (m_x[j] - m_previous[j]));
        scale = std::max(scale, std::abs(curvature) + std::abs(m_program.gradient[j]));
    }
    for (Index k = 0; k < m_active; ++k) {
        auto const id = static_cast<Index>(m_set[k]);
        addNormal(id, m_multipliers[k], m_residual);
        m_projection[k] = -slack(id);
    }
    solveUpperTransposed(m_projection);
    for (Index k = 0; k < m_size; ++k) {
        double const along = QzBackend::dot(m_size, m_j + k * m_size, m_residual);
        if (k < m_active)
            m_dual[k] = m_projection[k] - along;
        else
            m_projection[k] = along;
    }
    solveUpper(m_dual);
    for (Index k = 0; k < m_active; ++k)
        m_multipliers[k] += m_dual[k];
    for (Index k = 0; k < m_size; ++k)
        QzBackend::axpy(m_size, m_projection[k], m_j + k * m_size, m_x);
    noteSpread(vectorLength(m_projection, m_size));
    return scale;
}

// The greatest residual of the gradient equation and of the working set, relative to its terms. Gradient
// components are weighed by the lengths of the rows of J, which makes them comparable.
double CDualActiveSet::relativeResidual()
{
    evaluateRows();
    for (Index j = 0; j < m_size; ++j) {
        double const * const column = m_program.hessian + j * m_size;
        double sum = m_program.gradient[j], magnitude = std::abs(sum);
        for (Index i = 0; i < m_size; ++i) {
            double const term = column[i] * m_x[i];
            sum += term;
            magnitude += std::abs(term);
        }
        m_residual[j] = sum;
        m_scratch[j] = magnitude + m_lift[j] * m_spread[j];
    }
    double worst = 0;
    for (Index k = 0; k < m_active; ++k) {
        auto const id = static_cast<Index>(m_set[k]);
        std::fill_n(m_dual, m_size, 0.0);
        addNormal(id, m_multipliers[k], m_dual);
        for (Index j = 0; j < m_size; ++j) {
            m_residual[j] -= m_dual[j];
            m_scratch[j] += std::abs(m_dual[j]);
        }
        double const scale = slackScale(id);
        if (scale > 0)
            worst = std::max(worst, std::abs(slack(id)) / scale);
    }
    double residual = 0, magnitude = 0;
    m_largestForce = std::max(m_largestForce, largestMagnitude(m_multipliers, m_active));
    m_isBalanced = true;
    for (Index j = 0; j < m_size; ++j) {
        double const rest = std::abs(m_residual[j]), terms = m_scratch[j] - m_lift[j] * m_spread[j];
        m_isBalanced = m_isBalanced && (rest <= balance * terms || rest <= feasibility * m_largestForce);
        double const weighed = std::abs(m_residual[j]) * m_rowLength[j];
        if (!std::isfinite(weighed))
            return std::numeric_limits<double>::infinity();
        residual = std::max(residual, weighed);
        magnitude = std::max(magnitude, m_scratch[j] * m_rowLength[j]);
    }
    return residual == 0 ? worst : std::max(residual / magnitude, worst);
}

// Corrects, and drops inequalities until all multipliers have the right sign. False at the limit.
bool CDualActiveSet::restoreDualFeasibility(int maxIterations)
{
    for (;;) {
        double const scale = correct();
        Index worst = m_active;
        double least = -m_tolerance * scale;
        for (Index k = 0; k < m_active; ++k) {
            if (m_multipliers[k] < least && !isEquality(static_cast<Index>(m_set[k]))) {
                least = m_multipliers[k];
                worst = k;
            }
        }
        if (worst == m_active)
            return true;
        if (m_iterations >= maxIterations)
            return false;
        ++m_iterations;
        drop(worst);
    }
}

// Takes the violated constraint into the working set, dropping what stands in its way.
CDualActiveSet::Result CDualActiveSet::admit(Index id, int maxIterations)
{
    double multiplier = 0;
    for (;;) {
        if (m_iterations >= maxIterations)
            return Result::IterationLimit;
        ++m_iterations;
        project(id);
        bool const isIndependent = !combine(id);
        double const rest = vectorLength(m_projection + m_active, m_size - m_active);

        // The first multiplier to reach 0; of those that do so nearly together, the one with the best pivot.
        double const leastRate = roundingUnits * m_epsilon * largestMagnitude(m_dual, m_active);
        double const blur = 10 * m_epsilon * largestMagnitude(m_multipliers, m_active);
        double limit = std::numeric_limits<double>::infinity();
        Index blocking = m_active;
        auto const canLeave = [&](Index k) {
            return m_dual[k] > leastRate && !isEquality(static_cast<Index>(m_set[k]));
        };
        for (Index k = 0; k < m_active; ++k) {
            if (canLeave(k))
                limit = std::min(limit, (std::max(m_multipliers[k], 0.0) + blur) / m_dual[k]);
        }
        for (Index k = 0; k < m_active; ++k) {
            if (canLeave(k) && std::max(m_multipliers[k], 0.0) / m_dual[k] <= limit &&
                (blocking == m_active || m_dual[k] > m_dual[blocking]))
                blocking = k;
        }

        if (!isIndependent && blocking == m_active) {
            m_conflict = static_cast<int>(id);
            if (isContradiction(id))
                return Result::Infeasible;
            // A repetition of the working set, violated by rounding only.
            m_place[id] = -1;
            return multiplier == 0 || restoreDualFeasibility(maxIterations) ? Result::Solved
                                                                            : Result::IterationLimit;
        }
        double const full =
            isIndependent ? std::max(-slack(id), 0.0) / rest / rest : std::numeric_limits<double>::infinity();
        double const partial = blocking == m_active
                                   ? std::numeric_limits<double>::infinity()
                                   : std::max(m_multipliers[blocking], 0.0) / m_dual[blocking];
        double const step = std::min(full, partial);
        for (Index k = 0; k < m_active; ++k) {
            m_multipliers[k] -= step * m_dual[k];
            if (m_multipliers[k] < 0 && !isEquality(static_cast<Index>(m_set[k])))
                m_multipliers[k] = 0;
        }
        multiplier += step;
        if (isIndependent) {
            for (Index k = m_active; k < m_size; ++k)
                QzBackend::axpy(m_size, step * m_projection[k], m_j + k * m_size, m_x);
            noteSpread(step * rest);
            if (id < m_rows)
                m_rowValues[id] += step * rest * rest * m_norms[id];
        }
        // Both are infinite where the quotient of a huge multiplier overflows: a dependent one never enters.
        if (isIndependent && full <= partial) {
            add(id, multiplier);
            return Result::Solved;
        }
        drop(blocking);
    }
}

// Admits violated constraints, the worst first, until there is none.
CDualActiveSet::Result CDualActiveSet::restorePrimalFeasibility(int maxIterations)
{
    for (;;) {
        evaluateRows();
        Index const count = m_rows + 2 * m_size;
        Index worst = count;
        double violation = 0;
        for (Index id = 0; id < count; ++id) {
            if (m_place[id] != 0 || !exists(id))
                continue;
            double const excess = -slack(id);
            if (excess > violation && excess > m_tolerance * slackScale(id)) {
                violation = excess;
                worst = id;
            }
        }
        if (worst == count)
            return Result::Solved;
        Result const result = admit(worst, maxIterations);
        if (result != Result::Solved)
            return result;
    }
}

// Whether all constraints but those that were passed over hold, measured by x alone. A long step over a
// nearly singular working set makes the error levels, and what they excuse, too great for that round.
bool CDualActiveSet::areOthersMet() const
{
    double const size = largestMagnitude(m_x, m_size);
    double const tolerance = std::max(feasibility, m_looseTolerance);
    for (Index id = 0; id < m_rows + 2 * m_size; ++id) {
        if (m_place[id] == -1 || !exists(id))
            continue;
        double const excess = isEquality(id) ? std::abs(slack(id)) : -slack(id);
        if (excess > tolerance * (std::abs(bound(id)) + size))
            return false;
    }
    return true;
}

// Whether the constraints that were passed over hold as well as can be asked.
bool CDualActiveSet::arePassedOverMet()
{
    // Being dependent, their slacks take over the errors of others.
    double const spread = largestMagnitude(m_spread, m_size);
    for (Index id = 0; id < m_rows + 2 * m_size; ++id) {
        if (m_place[id] != -1)
            continue;
        double const excess = isEquality(id) ? std::abs(slack(id)) : -slack(id);
        if (excess > m_looseTolerance * (slackScale(id) + spread)) {
            m_conflict = static_cast<int>(id);
            return false;
        }
    }
    return true;
}

// Two proximal steps alike show a direction without curvature. If the objective falls along it, x goes on to
// the constraint that ends it. True when there is none, so that the objective falls for ever: by at least
// `leastSlope` relative to the slopes along the variables.
bool CDualActiveSet::followRay(double leastSlope)
{
    for (Index j = 0; j < m_size; ++j) {
        m_scratch[j] = m_direction[j];
        m_direction[j] = m_x[j] - m_previous[j];
        m_scratch[j] -= m_direction[j];
    }
    double const * const d = m_direction;
    double const size = largestMagnitude(d, m_size);
    if (!(size > rayTolerance * largestMagnitude(m_x, m_size)) ||
        !(largestMagnitude(m_scratch, m_size) <= 1e-6 * size))
        return false;
    double slope = 0, slopeScale = 0, curvature = 0, lift = 0;
    for (Index j = 0; j < m_size; ++j) {
        double const * const column = m_program.hessian + j * m_size;
        slope += m_program.gradient[j] * d[j];
        slopeScale += std::abs(m_program.gradient[j] * d[j]);
        curvature += d[j] * QzBackend::dot(m_size, column, d);
        lift += m_lift[j] * d[j] * d[j];
    }
    if (!(slope < -roundingUnits * m_epsilon * slopeScale) || !(curvature <= rayCurvature * lift))
        return false;

    auto const leading = static_cast<Index>(m_program.leadingMatrix);
    std::fill_n(m_rowRates, m_rows, 0.0);
    for (Index j = 0; j < m_size; ++j)
        QzBackend::axpy(m_rows, d[j], m_program.matrix + j * leading, m_rowRates);
    double const noise = rayTolerance * vectorLength(d, m_size);
    double end = std::numeric_limits<double>::infinity();
    for (Index id = 0; id < m_rows + 2 * m_size; ++id) {
        if (!exists(id))
            continue;
        double const rate =
            id < m_rows ? m_rowRates[id] / m_norms[id] : (isUpper(id) ? -d[variable(id)] : d[variable(id)]);
        if (isEquality(id) && std::abs(rate) > noise)
            return false;
        if (rate < -noise)
            end = std::min(end, std::max(slack(id), 0.0) / -rate);
    }
    if (std::isinf(end))
        return slope < -leastSlope * slopeScale;
    for (Index j = 0; j < m_size; ++j) {
        m_x[j] += end * d[j];
        m_direction[j] = 0;
    }
    return false;
}

// Repeats proximal steps, or refinements, until the residuals are small.
CDualActiveSet::Result CDualActiveSet::settle(int maxIterations)
{
    std::fill_n(m_direction, m_size, 0.0);
    std::fill_n(m_leastSpread, m_size, 0.0);
    m_largestForce = largestMagnitude(m_program.gradient, m_size);
    double best = std::numeric_limits<double>::infinity();
    int idle = 0, contradictions = 0, doubts = 0;
    int const rounds = m_isLifted ? maxProximalIterations : maxRefinements;
    for (int round = 0; round < rounds; ++round) {
        for (Index id = 0; id < m_rows + 2 * m_size; ++id) {
            if (m_place[id] == -1 && !isEquality(id))
                m_place[id] = 0;
        }
        std::copy_n(m_x, m_size, m_previous);
        std::fill_n(m_spread, m_size, 0.0);
        noteSpread(0.0);
        if (!restoreDualFeasibility(maxIterations))
            return Result::IterationLimit;
        Result const result = restorePrimalFeasibility(maxIterations);
        if (result != Result::Solved)
            return result;
        double const residual = relativeResidual();
        idle = residual < 0.5 * best ? 0 : idle + 1;
        best = std::min(best, residual);
        // One refinement in any case, and no more once they are in vain.
        bool const isNearlySolved = residual <= m_looseTolerance;
        bool const isSolved = residual <= m_tolerance && round > 0;
        if (!isSolved && m_isLifted && followRay(isNearlySolved ? rayTolerance : roundingUnits * m_epsilon))
            return Result::Unbounded;
        if (!isSolved && !(isNearlySolved && idle >= 3))
            continue;
        // At a solution of nearly 0 the doubts stay.
        if (!m_isBalanced && m_isLifted)
            continue;
        if (doubts < maxDoubts && round + 1 < rounds && !areOthersMet()) {
            ++doubts;
            continue;
        }
        // What was passed over may have become independent when the working set changed: the next rounds will
        // tell, unless there have been enough.
        if (arePassedOverMet())
            return Result::Solved;
        if (++contradictions == maxContradictions)
            return Result::Infeasible;
    }
    return Result::IterationLimit;
}

CDualActiveSet::Result CDualActiveSet::solve(double const * start, int const * warmSet, int maxIterations)
{
    m_iterations = 0;
    m_active = 0;
    std::copy_n(start, m_size, m_x);
    if (!prepareConstraints())
        return Result::Infeasible;
    if (!factor(start))
        return Result::NotConvex;
    for (Index j = 0; j < m_size; ++j)
        m_x[j] = m_isLifted ? std::max(-noBound, std::min(start[j], noBound)) : 0.0;
    if (!install(warmSet))
        return Result::Infeasible;
    Result const result = settle(maxIterations);
    for (Index k = 0; k < m_active; ++k) {
        auto const id = static_cast<Index>(m_set[k]);
        if (id >= m_rows)
            m_x[variable(id)] = isUpper(id) ? m_program.upper[variable(id)] : m_program.lower[variable(id)];
    }
    return result;
}

int CDualActiveSet::conflict() const
{
    return isUpper(static_cast<Index>(m_conflict)) ? m_conflict - m_program.variables : m_conflict;
}

int CDualActiveSet::describe(double * rowMultipliers, double * lowerMultipliers, double * upperMultipliers,
                             int * activeSet) const
{
    std::fill_n(rowMultipliers, m_rows, 0.0);
    std::fill_n(lowerMultipliers, m_size, 0.0);
    std::fill_n(upperMultipliers, m_size, 0.0);
    std::fill_n(activeSet, m_rows + m_size, 0);
    for (Index k = 0; k < m_active; ++k) {
        auto const id = static_cast<Index>(m_set[k]);
        // What is negative by rounding is 0.
        double const multiplier = isEquality(id) ? m_multipliers[k] : std::max(m_multipliers[k], 0.0);
        if (id < m_rows) {
            rowMultipliers[id] = multiplier / m_norms[id];
            activeSet[id] = 1;
            continue;
        }
        // The bounds of a fixed variable share its multiplier by sign.
        bool const isAtUpper = isUpper(id) != (multiplier < 0);
        Index const j = variable(id);
        activeSet[m_rows + j] = isAtUpper ? 1 : -1;
        (isAtUpper ? upperMultipliers : lowerMultipliers)[j] = std::abs(multiplier);
    }
    // Both bounds of a variable, which an unfinished search may hold, make one flag.
    return static_cast<int>(m_rows + m_size) -
           static_cast<int>(std::count(activeSet, activeSet + m_rows + m_size, 0));
}

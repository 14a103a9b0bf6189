// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/ActiveSet/DualActiveSet.h>

#include <QZmath/Backend/Blas.h>
#include <QZmath/Backend/Lapack.h>
#include <QZmath/Fitting/ActiveSet/VectorMagnitude.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

// Lift of a semidefinite H relative to its diagonal. Directions with less curvature take long to settle.
constexpr double relativeLift = 1.0 / 1.0e9;

} // namespace

std::size_t CDualActiveSet::numbersNeeded(std::size_t variables, std::size_t rows)
{
    return 2 * variables * variables + 13 * variables + 4 * rows;
}

std::size_t CDualActiveSet::integersNeeded(std::size_t variables, std::size_t rows)
{
    return 3 * variables + rows;
}

CDualActiveSet::CDualActiveSet(QuadraticProgramView const & program, double tolerance, double epsilon,
                               double * numbers, int * integers)
    : m_program(program), m_size(static_cast<Index>(program.variables)),
      m_rows(static_cast<Index>(program.rows)), m_tolerance(tolerance),
      m_looseTolerance(std::min(roundingUnits * tolerance, std::max(tolerance, 1e-8))), m_epsilon(epsilon)
{
    auto const take = [&numbers](Index count) { return (numbers += count) - count; };
    m_j = take(m_size * m_size);
    m_r = take(m_size * m_size);
    for (double ** vector :
         {&m_lift, &m_rowLength, &m_x, &m_previous, &m_direction, &m_projection, &m_dual, &m_residual,
          &m_scratch, &m_multipliers, &m_errorLevels, &m_spread, &m_leastSpread})
        *vector = take(m_size);
    for (double ** vector : {&m_norms, &m_rowValues, &m_rowSpreads, &m_rowRates})
        *vector = take(m_rows);
    m_set = integers;
    m_place = integers + m_size;
}

// --- constraints, scaled to unit normals ---

bool CDualActiveSet::exists(Index id) const
{
    if (id < m_rows)
        return m_norms[id] > 0;
    Index const j = variable(id);
    if (!isUpper(id))
        return std::abs(m_program.lower[j]) < noBound;
    // The lower bound of a fixed variable stands for both.
    return std::abs(m_program.upper[j]) < noBound && m_program.lower[j] != m_program.upper[j];
}

bool CDualActiveSet::isEquality(Index id) const
{
    if (id < m_rows)
        return id < static_cast<Index>(m_program.equalities);
    return !isUpper(id) && m_program.lower[variable(id)] == m_program.upper[variable(id)];
}

// Right side of n'x >= bound.
double CDualActiveSet::bound(Index id) const
{
    if (id < m_rows)
        return m_program.rightSide[id] / m_norms[id];
    return isUpper(id) ? -m_program.upper[variable(id)] : m_program.lower[variable(id)];
}

double CDualActiveSet::slack(Index id) const
{
    if (id < m_rows)
        return (m_rowValues[id] - m_program.rightSide[id]) / m_norms[id];
    Index const j = variable(id);
    return isUpper(id) ? m_program.upper[j] - m_x[j] : m_x[j] - m_program.lower[j];
}

// What the rounding error of a slack scales with.
double CDualActiveSet::slackScale(Index id) const
{
    return std::abs(bound(id)) + (id < m_rows ? m_rowSpreads[id] / m_norms[id] : m_spread[variable(id)]);
}

// Takes into account that x has just got a step J y with y of the given length. Exact zeros, which are
// frequent in x, would otherwise be refined down to the smallest numbers.
void CDualActiveSet::noteSpread(double stepLength)
{
    for (Index j = 0; j < m_size; ++j) {
        double const spread = std::abs(m_x[j]) + m_rowLength[j] * stepLength;
        m_leastSpread[j] = std::max(m_leastSpread[j], m_epsilon * spread);
        m_spread[j] = std::max({m_spread[j], spread, m_leastSpread[j]});
    }
}

void CDualActiveSet::addNormal(Index id, double factor, double * vector) const
{
    if (id < m_rows) {
        double const * element = m_program.matrix + id;
        double const scale = factor / m_norms[id];
        for (Index j = 0; j < m_size; ++j)
            vector[j] += scale * element[j * static_cast<Index>(m_program.leadingMatrix)];
    } else {
        vector[variable(id)] += isUpper(id) ? -factor : factor;
    }
}

// Sets the norms of the rows. False when a row without coefficients or a pair of bounds contradicts itself.
bool CDualActiveSet::prepareConstraints()
{
    auto const leading = static_cast<Index>(m_program.leadingMatrix);
    for (Index i = 0; i < m_rows; ++i) {
        for (Index j = 0; j < m_size; ++j)
            m_scratch[j] = m_program.matrix[i + j * leading];
        m_norms[i] = vectorLength(m_scratch, m_size);
        double const right = m_program.rightSide[i];
        if (m_norms[i] > 0 && std::isfinite(right / m_norms[i]))
            continue;
        m_norms[i] = 0;
        if (right > 0 || (right < 0 && isEquality(i))) {
            m_conflict = static_cast<int>(i);
            return false;
        }
    }
    for (Index j = 0; j < m_size; ++j) {
        double const lower = m_program.lower[j], upper = m_program.upper[j];
        if (std::abs(lower) < noBound && std::abs(upper) < noBound && lower > upper) {
            m_conflict = static_cast<int>(m_rows + j);
            return false;
        }
    }
    std::fill_n(m_place, m_rows + 2 * m_size, 0);
    return true;
}

// --- factors of H ---

// Makes J = L^-T of H plus the lift times `liftFactor`, with the lengths of its rows.
bool CDualActiveSet::tryFactor(double liftFactor)
{
    QzBackend::CBlasSingleThread const serial;
    std::copy_n(m_program.hessian, m_size * m_size, m_r);
    for (Index j = 0; j < m_size; ++j)
        m_r[j * m_size + j] += liftFactor * m_lift[j];
    int const size = m_program.variables;
    if (!QzBackend::choleskyLower(size, m_r, size) || !QzBackend::invertLowerTriangle(size, m_r, size))
        return false;
    for (Index j = 0; j < m_size; ++j) {
        for (Index k = 0; k < m_size; ++k)
            m_j[k * m_size + j] = k < j ? 0.0 : m_r[j * m_size + k];
        m_rowLength[j] = vectorLength(m_r + j * m_size + j, m_size - j);
    }
    return true;
}

// What is left of a diagonal element that should be 0, since H is mostly a product of matrices.
double CDualActiveSet::leastCurvature() const
{
    double const rounding = roundingUnits * m_epsilon;
    return rounding * rounding * largestMagnitude(m_program.hessian, m_size * m_size);
}

// Sets the lift of each variable. False when the diagonal alone shows that H is not positive semidefinite.
bool CDualActiveSet::chooseLift(double const * start)
{
    double const rounding = roundingUnits * m_epsilon * static_cast<double>(m_size) *
                            largestMagnitude(m_program.hessian, m_size * m_size);
    double const least = leastCurvature();
    // Variables without curvature get a lift that lets the first iteration go some way beyond the bounds and
    // the coordinates of the start.
    double reach = 1;
    for (Index id = 0; id < m_rows + 2 * m_size; ++id) {
        if (exists(id))
            reach = std::max(reach, std::abs(bound(id)));
    }
    for (Index j = 0; j < m_size; ++j)
        reach = std::max(reach, std::min(std::abs(start[j]), noBound));
    double const slope = largestMagnitude(m_program.gradient, m_size);
    for (Index j = 0; j < m_size; ++j) {
        double const * const column = m_program.hessian + j * m_size;
        m_lift[j] = relativeLift * column[j];
        if (column[j] > least)
            continue;
        if (largestMagnitude(column, m_size) > rounding)
            return false;
        m_lift[j] = slope > 0 ? slope / (roundingUnits * reach) : 1.0;
    }
    return true;
}

// False when H is not positive semidefinite.
bool CDualActiveSet::factor(double const * start)
{
    double const sizeRounding = roundingUnits * m_epsilon * static_cast<double>(m_size);
    std::fill_n(m_lift, m_size, 0.0);
    m_isLifted = false;
    bool const isDefinite = tryFactor(0.0);
    if (isDefinite) {
        // H_jj (H^-1)_jj does not depend on the units of the variables and grows with the condition of H.
        double worst = 0, least = std::numeric_limits<double>::infinity();
        for (Index j = 0; j < m_size; ++j) {
            double const curvature = m_program.hessian[j * m_size + j];
            worst = std::max(worst, curvature * m_rowLength[j] * m_rowLength[j]);
            least = std::min(least, curvature);
        }
        if (worst * sizeRounding < 1 && least > leastCurvature())
            return true;
    }
    m_isLifted = true;
    if (!chooseLift(start))
        return false;
    double const slightLift = std::max(sizeRounding, m_tolerance) / relativeLift;
    return (isDefinite || tryFactor(slightLift)) && tryFactor(std::max(1.0, 100 * slightLift));
}

// --- the working set and its factors ---

// Sets `m_projection` to J'n, and the level of its rounding errors.
void CDualActiveSet::project(Index id)
{
    double level = 0;
    if (id < m_rows) {
        std::fill_n(m_scratch, m_size, 0.0);
        addNormal(id, 1.0, m_scratch);
        for (Index j = 0; j < m_size; ++j)
            level += std::abs(m_scratch[j]) * m_rowLength[j];
        for (Index k = 0; k < m_size; ++k)
            m_projection[k] = QzBackend::dot(m_size, m_j + k * m_size, m_scratch);
    } else {
        Index const j = variable(id);
        double const sign = isUpper(id) ? -1.0 : 1.0;
        level = m_rowLength[j];
        for (Index k = 0; k < m_size; ++k)
            m_projection[k] = sign * m_j[k * m_size + j];
    }
    m_errorLevel = m_ownErrorLevel = roundingUnits * m_epsilon * level;
}

// Adds the constraint that was projected last and does not depend on the working set.
void CDualActiveSet::add(Index id, double multiplier)
{
    Index const q = m_active;
    double const rest = vectorLength(m_projection + q, m_size - q);
    // The reflection 1 - 2 v v' / v'v that turns the rest onto its first axis, with v scaled by the rest.
    double * const v = m_projection + q;
    double const pivot = v[0] > 0 ? -rest : rest;
    double const first = v[0];
    std::copy_n(m_projection, q, m_r + q * m_size);
    m_r[q * m_size + q] = pivot;
    v[0] = first - pivot;
    double const factor = 1 / (rest * (rest + std::abs(first)));
    std::fill_n(m_scratch, m_size, 0.0);
    for (Index k = q; k < m_size; ++k)
        QzBackend::axpy(m_size, m_projection[k], m_j + k * m_size, m_scratch);
    for (Index k = q; k < m_size; ++k)
        QzBackend::axpy(m_size, -factor * m_projection[k], m_scratch, m_j + k * m_size);
    m_set[q] = static_cast<int>(id);
    m_multipliers[q] = multiplier;
    m_errorLevels[q] = m_ownErrorLevel;
    m_place[id] = 1;
    ++m_active;
}

void CDualActiveSet::drop(Index position)
{
    m_place[m_set[position]] = 0;
    --m_active;
    for (Index k = position; k < m_active; ++k) {
        m_set[k] = m_set[k + 1];
        m_multipliers[k] = m_multipliers[k + 1];
        m_errorLevels[k] = m_errorLevels[k + 1];
        std::copy_n(m_r + (k + 1) * m_size, k + 2, m_r + k * m_size);
    }
    // Rotations of rows k and k + 1 clear what stands below the diagonal.
    for (Index k = position; k < m_active; ++k) {
        double * const corner = m_r + k * m_size + k;
        double const radius = std::hypot(corner[0], corner[1]);
        if (!(radius > 0))
            continue;
        double const c = corner[0] / radius, s = corner[1] / radius;
        auto const rotate = [c, s](double & upper, double & lower) {
            double const kept = upper;
            upper = c * kept + s * lower;
            lower = c * lower - s * kept;
        };
        for (Index column = k; column < m_active; ++column)
            rotate(m_r[column * m_size + k], m_r[column * m_size + k + 1]);
        double * const left = m_j + k * m_size;
        for (Index j = 0; j < m_size; ++j)
            rotate(left[j], left[j + m_size]);
    }
}

// R^-1 times the first elements of the vector, in place.
void CDualActiveSet::solveUpper(double * vector) const
{
    for (Index k = m_active; k-- > 0;) {
        vector[k] /= m_r[k * m_size + k];
        for (Index i = 0; i < k; ++i)
            vector[i] -= vector[k] * m_r[k * m_size + i];
    }
}

// R'^-1 times the first elements of the vector, in place.
void CDualActiveSet::solveUpperTransposed(double * vector) const
{
    for (Index k = 0; k < m_active; ++k) {
        for (Index i = 0; i < k; ++i)
            vector[k] -= vector[i] * m_r[k * m_size + i];
        vector[k] /= m_r[k * m_size + k];
    }
}

// Sets `m_dual` to the combination of the working set that comes nearest to the projected constraint.
// Returns whether it depends on the working set.
bool CDualActiveSet::combine(Index id)
{
    std::copy_n(m_projection, m_active, m_dual);
    solveUpper(m_dual);
    // What the combination leaves has the errors of all that go into it.
    for (Index k = 0; k < m_active; ++k)
        m_errorLevel += std::abs(m_dual[k]) * m_errorLevels[k];
    if (vectorLength(m_projection + m_active, m_size - m_active) > m_errorLevel)
        return false;
    // These coefficients alone decide what happens to the constraint: take the errors out that come with an
    // ill-conditioned H, by the residual of the normals themselves.
    for (int refinement = 0; refinement < 2; ++refinement) {
        std::fill_n(m_residual, m_size, 0.0);
        addNormal(id, 1.0, m_residual);
        for (Index k = 0; k < m_active; ++k)
            addNormal(static_cast<Index>(m_set[k]), -m_dual[k], m_residual);
        for (Index k = 0; k < m_active; ++k)
            m_scratch[k] = QzBackend::dot(m_size, m_j + k * m_size, m_residual);
        solveUpper(m_scratch);
        for (Index k = 0; k < m_active; ++k)
            m_dual[k] += m_scratch[k];
    }
    return true;
}

// Whether the constraint, whose normal is the combination `m_dual` of those of the working set, asks for
// more than the combination of their right sides. So this does not depend on x.
bool CDualActiveSet::isContradiction(Index id) const
{
    double gap = bound(id), scale = std::abs(gap), largestBound = 0;
    for (Index k = 0; k < m_active; ++k) {
        double const other = bound(static_cast<Index>(m_set[k]));
        gap -= m_dual[k] * other;
        scale += std::abs(m_dual[k] * other);
        largestBound = std::max(largestBound, std::abs(other));
    }
    // Coefficients that should be 0 are not quite.
    double const rounding = roundingUnits * m_epsilon * largestMagnitude(m_dual, m_active) * largestBound;
    return (isEquality(id) ? std::abs(gap) : gap) > m_looseTolerance * scale + rounding;
}

// Fills the empty working set with all equalities and with what the warm set names. False when equalities
// contradict each other.
bool CDualActiveSet::install(int const * warmSet)
{
    m_active = 0;
    Index const count = m_rows + 2 * m_size;
    for (Index id = 0; id < count; ++id) {
        if (!exists(id) || !isEquality(id))
            continue;
        project(id);
        if (!combine(id)) {
            add(id, 0.0);
            continue;
        }
        if (isContradiction(id)) {
            m_conflict = static_cast<int>(id);
            return false;
        }
        m_place[id] = -1;
    }
    for (Index id = 0; warmSet != nullptr && id < count && m_active < m_size; ++id) {
        int const flag = warmSet[id < m_rows ? id : m_rows + variable(id)];
        if ((id < m_rows ? flag == 0 : isUpper(id) ? flag <= 0 : flag >= 0) || !exists(id) || isEquality(id))
            continue;
        project(id);
        if (!combine(id))
            add(id, 0.0);
    }
    return true;
}

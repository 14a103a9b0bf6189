// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

namespace REmath
{

/// What the last solve of a solver that iterates was like.
template <class T>
struct IterationReport
{
    /// The sum over the right parts.
    int iterationsUsed = 0;
    /// Did a right part reach the limit of iterations without the residual asked for?
    bool isLimitReached = false;
    /// In that case the largest norm of a residual in terms of the norm of its right part, by a product of
    /// its own; otherwise 0.
    T relativeResidual = 0;

    /// Takes the residual that a right part was left with at the limit. One that is not a number is the
    /// worst.
    void noteStopped(T residual, T eps)
    {
        if (residual <= eps)
            return;
        isLimitReached = true;
        if (std::isnan(residual) || residual > relativeResidual)
            relativeResidual = residual;
    }
};

/// The queries of a solver that keeps such a report.
template <class T>
class IterationReporter
{
public:
    IterationReport<T> const & getIterationReport() const { return m_report; }
    int getIterationsUsed() const { return m_report.iterationsUsed; }
    bool isIterationLimitReached() const { return m_report.isLimitReached; }
    T getRelativeResidual() const { return m_report.relativeResidual; }

protected:
    IterationReport<T> m_report;
};

} // namespace REmath

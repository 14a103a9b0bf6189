// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/RobustRegression.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace
{

constexpr int iterationLimit = 50;
constexpr double deviationsPerMedian = 1.4826; // of the absolute value of a normal deviate
constexpr double cutOff = 2;                   // in scales

} // namespace

IRegressionAnalysisTask::~IRegressionAnalysisTask() = default;

CRobustRegressionSolver::CRobustRegressionSolver(IRegressionAnalysisTask & task) : m_task(task) {}

int CRobustRegressionSolver::solveRegression()
{
    std::size_t const count = m_task.sampleCount();
    m_residuals.resize(count);
    m_suppWeights.assign(count, 1.0);
    m_sigma = m_sigmaFloor = -1;
    if (int const code = m_task.fitInitial(m_residuals); code != 0 || count == 0)
        return code;
    m_task.storeParameters(m_previousParameters);
    for (int iteration = 1; iteration < iterationLimit; ++iteration) {
        updateVariance();
        calculateSuppWeights();
        if (int const code = m_task.fitWeighted(m_suppWeights, m_residuals); code != 0)
            return code;
        if (m_task.isConverged(m_previousParameters))
            break;
        m_task.storeParameters(m_previousParameters);
    }
    return 0;
}

void CRobustRegressionSolver::updateVariance()
{
    m_sortBuffer.assign(m_residuals.begin(), m_residuals.end());
    // Selection needs an order, and a sample without a distance lies farther away than any other.
    for (double & residual : m_sortBuffer) {
        if (std::isnan(residual))
            residual = std::numeric_limits<double>::infinity();
    }
    // The lower of the two medians of an even number.
    auto const median = m_sortBuffer.begin() + static_cast<std::ptrdiff_t>((m_sortBuffer.size() - 1) / 2);
    std::nth_element(m_sortBuffer.begin(), median, m_sortBuffer.end());
    double const scale = deviationsPerMedian * *median;
    if (m_sigmaFloor < 0)
        m_sigmaFloor = scale;
    m_sigma = std::max(m_sigmaFloor, scale);
}

void CRobustRegressionSolver::calculateSuppWeights()
{
    m_suppCount = 0;
    for (std::size_t sample = 0; sample < m_residuals.size(); ++sample) {
        double const residual = m_residuals[sample];
        double weight = 0;
        if (residual < cutOff * m_sigma) {
            double const scaled = residual / m_sigma;
            double const root = 1 / (1 + scaled * scaled);
            weight = root * root;
            ++m_suppCount;
        }
        m_suppWeights[sample] = weight;
    }
}

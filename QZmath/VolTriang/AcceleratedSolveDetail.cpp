// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/AcceleratedSolveDetail.h>

#include <QZmath/VolTriang/LogLineDetail.h>
#include <QZmath/VolTriang/WorkTeamDetail.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <cmath>

namespace VolTr
{

namespace
{

int const maxIterations = 200;

} // namespace

CSingleVarLimitedPolynom const & kernelFactor(Kernel const & kernel)
{
    return kernel.getSummand(0).getMultiplier(0);
}

AcceleratedSolve::AcceleratedSolve(BrickLattice const & lattice, Kernel const & kernel, VsUt::IDebugLog * log)
    : m_lattice(lattice), m_system(lattice, kernelFactor(kernel), bestBrickPasses()), m_log(log)
{
    logText(m_log, "Use accelerated solver");
    logValues(m_log, "System size", lattice.nodes().size());
}

void AcceleratedSolve::makeRightPart(VectorField const & field, CProgressCounter * progress)
{
    std::vector<int> const & nodes = m_lattice.nodes();
    // The solution follows the scale of the field, which `float` may not hold.
    double greatest = 0.0;
    for (auto const & component : field) {
        for (int const node : nodes) {
            double const magnitude = std::fabs(component->getBasisCoefficient(node));
            greatest = magnitude <= greatest ? greatest : magnitude; // a NaN stays
        }
    }
    double const scale = greatest > 0.0 ? 1.0 / greatest : 1.0;
    std::array<BrickSystem::Vector, 3> values;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        values[axis].assign(nodes.size() + brickEdge, 0.0f);
        for (std::size_t index = 0; index < nodes.size(); ++index)
            values[axis][index] = static_cast<float>(field[axis]->getBasisCoefficient(nodes[index]) * scale);
    }
    WorkTeam::run(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), progress,
                  [&](WorkTeam & team) { m_right = m_system.rightPart(values, team); });
}

std::vector<float> AcceleratedSolve::amplitudes(double tolerance, CProgressCounter * progress)
{
    logValues(m_log, "Tolerance", tolerance);
    BrickSystem::Solution solution;
    WorkTeam::run(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), progress, [&](WorkTeam & team) {
        solution = m_system.solve(m_right, tolerance, maxIterations, team);
    });
    logValues(m_log, "Iterations used", solution.iterations);
    logValues(m_log, "Relative residual", solution.relativeResidual);
    if (!solution.hasConverged) {
        logText(m_log, "Accelerated solver did not converge");
        return {};
    }
    for (int depth = m_lattice.firstDepth(); depth < m_lattice.endDepth(); ++depth) {
        BrickLevel const & level = m_lattice.level(depth);
        float const factor = static_cast<float>(m_system.amplitudeOfUnknown(depth));
        for (std::size_t index = level.firstNode.front(); index < level.firstNode.back(); ++index)
            solution.values[index] *= factor;
    }
    return std::move(solution.values);
}

} // namespace VolTr

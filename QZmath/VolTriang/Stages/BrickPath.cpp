// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/BrickPath.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/ParallelPieces.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/BrickSplat.h>
#include <QZmath/VolTriang/Stages/BrickedFunction.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/RunPhases.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/Tree/NodeDepths.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

int const maxIterations = 200;
std::size_t const nodesPerPiece = 1 << 15;

// Calls body(begin, end) for pieces of a range of nodes, on any thread.
template <class Body>
void forPieces(LoopTeam & team, std::size_t first, std::size_t last, Body const & body)
{
    QzBackend::forRanges(team, last - first, nodesPerPiece,
                         [&](std::size_t begin, std::size_t end) { body(first + begin, first + end); });
}

// The one-variable factor of the kernel, the same on each axis.
CSingleVarLimitedPolynom const & kernelFactor(Kernel const & kernel)
{
    return kernel.getSummand(0).getMultiplier(0);
}

} // namespace

bool BrickPath::canServe(NodeDepths const & depths, Kernel const & kernel)
{
    return BrickSystem::canServe(depths.end - depths.begin, kernelFactor(kernel)) &&
           BrickFunction::canServe(depths.end - 1, kernelFactor(kernel));
}

void BrickPath::registerPhases(RunPhases & phases) const
{
    phases.add("update right part", 5);
    phases.add("solve", 30);
}

void BrickPath::prepare(StageContext const & context)
{
    LoopTeam::run(context.threads, context.progress, [&](LoopTeam & team) {
        m_lattice.emplace(context.octree, team);
        m_system.emplace(*m_lattice, kernelFactor(*context.basis.getSamplePtr()), bestBrickPasses(), team);
    });
}

void BrickPath::splat(StageContext const & context)
{
    LoopTeam::run(context.threads, context.progress,
                  [&](LoopTeam & team) { m_field = splatOnBricks(context, *m_lattice, nullptr, team); });
}

void BrickPath::assemble(StageContext const & context, RunPhases & phases)
{
    RunPhases::Scope phase(phases, "update right part");
    makeRightPart(context);
}

void BrickPath::makeRightPart(StageContext const & context)
{
    context.report.solver = CReconstructionReport::Solver::accelerated;
    logText(context.log, "Use accelerated solver");
    logValues(context.log, "System size", m_field.size());
    // The solution follows the scale of the field, which `float` may not hold. Components that are not finite
    // make the iteration fail.
    LoopTeam::run(context.threads, context.progress, [&](LoopTeam & team) {
        std::vector<double> greatestOf(m_field.size() / nodesPerPiece + 1, 0.0);
        forPieces(team, 0, m_field.size(), [&](std::size_t begin, std::size_t end) {
            double greatest = 0.0;
            for (std::size_t index = begin; index < end; ++index) {
                for (double const component : m_field[index])
                    greatest = std::max(greatest, std::fabs(component));
            }
            greatestOf[begin / nodesPerPiece] = greatest;
        });
        double const greatest = *std::max_element(greatestOf.begin(), greatestOf.end());
        double const scale = greatest > 0.0 ? 1.0 / greatest : 1.0;
        std::array<BrickSystem::Vector, 3> values;
        for (BrickSystem::Vector & component : values)
            QzBackend::assignLarge(team, component, m_field.size() + brickEdge, 0.0f);
        forPieces(team, 0, m_field.size(), [&](std::size_t begin, std::size_t end) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                for (std::size_t index = begin; index < end; ++index)
                    values[axis][index] = static_cast<float>(m_field[index][axis] * scale);
            }
        });
        m_field = decltype(m_field)();
        m_right = m_system->rightPart(values, team);
    });
}

std::unique_ptr<ImplicitFunction> BrickPath::solve(StageContext const & context)
{
    double const tolerance = context.params.getSolverTolerance();
    logValues(context.log, "Tolerance", tolerance);
    BrickSystem::Solution solution;
    LoopTeam::run(context.threads, context.progress, [&](LoopTeam & team) {
        solution = m_system->solve(m_right, tolerance, maxIterations, team);
    });
    context.report.iterations = solution.iterations;
    context.report.relativeResidual = solution.relativeResidual;
    context.report.converged = solution.hasConverged;
    logValues(context.log, "Iterations used", solution.iterations);
    logValues(context.log, "Relative residual", solution.relativeResidual);
    if (!solution.hasConverged) {
        logText(context.log, "Accelerated solver did not converge");
        return nullptr;
    }
    std::unique_ptr<ImplicitFunction> function;
    LoopTeam::run(context.threads, context.progress, [&](LoopTeam & team) {
        toAmplitudes(solution.values, team);
        m_system.reset(); // its memory serves the function
        m_right = decltype(m_right)();
        function = std::make_unique<BrickedFunction>(BrickFunction(
            *m_lattice, context.octree, kernelFactor(*context.basis.getSamplePtr()), solution.values, team));
    });
    return function;
}

// Up to a common positive factor.
void BrickPath::toAmplitudes(std::vector<float> & unknowns, LoopTeam & team) const
{
    for (int depth = m_lattice->firstDepth(); depth < m_lattice->endDepth(); ++depth) {
        BrickLevel const & level = m_lattice->level(depth);
        float const factor = static_cast<float>(m_system->amplitudeOfUnknown(depth));
        forPieces(team, level.firstNode.front(), level.firstNode.back(),
                  [&](std::size_t begin, std::size_t end) {
                      for (std::size_t index = begin; index < end; ++index)
                          unknowns[index] *= factor;
                  });
    }
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/BrickPath.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/BrickedFunction.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/RunPhases.h>
#include <QZmath/VolTriang/Stages/SampleSplat.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/Tree/NodeDepths.h>
#include <QZmath/VolTriang/Tree/TrilinearShare.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

int const maxIterations = 200;

// Finds the compact index of a node from its place.
class NodeFinder
{
public:
    explicit NodeFinder(BrickLevel const & level) : m_level(&level)
    {
        m_rowStarts.reserve(level.rows.size());
        for (int brick = 0; brick < level.bricksNumber(); ++brick) {
            unsigned start = 0;
            for (int row = 0; row < brickRows; ++row) {
                m_rowStarts.push_back(static_cast<std::uint16_t>(start));
                start += rowCounts.of[level.rowsOf(brick)[row]];
            }
        }
    }

    // The node must exist.
    std::size_t indexOf(int x, int y, int z)
    {
        std::array<int, 3> const place = {x >> 3, y >> 3, z >> 3};
        if (m_brick < 0 || m_level->bricks[static_cast<std::size_t>(m_brick)] != place)
            m_brick = m_level->find(place[0], place[1], place[2]);
        std::size_t const row = static_cast<std::size_t>(m_brick * brickRows + (x & 7) * brickEdge + (y & 7));
        unsigned const before = m_level->rows[row] & ((1U << (z & 7)) - 1);
        return m_level->firstNode[static_cast<std::size_t>(m_brick)] + m_rowStarts[row] +
               rowCounts.of[before];
    }

private:
    BrickLevel const * m_level;
    std::vector<std::uint16_t> m_rowStarts;
    int m_brick = BrickLevel::noBrick; // of the last node
};

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
    m_lattice.emplace(context.octree);
    m_system.emplace(*m_lattice, kernelFactor(*context.basis.getSamplePtr()), bestBrickPasses());
}

void BrickPath::splat(StageContext const & context)
{
    IInputSamples const & samples = context.samples;
    COctree const & octree = context.octree;
    int const samplesNumber = samples.pointsNumber();
    int const samplesPerStep = 1024;
    int const deepest = m_lattice->endDepth() - 1;
    int const first = m_lattice->firstDepth();
    m_field.assign(m_lattice->nodes().size(), {0.0, 0.0, 0.0});
    std::vector<std::optional<NodeFinder>> finders(static_cast<std::size_t>(m_lattice->endDepth()));
    for (int sample = 0; sample < samplesNumber; ++sample) {
        if (context.progress != nullptr && sample % samplesPerStep == 0)
            context.progress->SetPosFloat(static_cast<double>(sample) / samplesNumber);
        SplatShare const splat = splatShareOf(context.density, sample, first, deepest);
        std::optional<NodeFinder> & finder = finders[static_cast<std::size_t>(splat.depth)];
        if (!finder)
            finder.emplace(m_lattice->level(splat.depth));

        float const * const point = samples.getSampleCoords3(sample);
        float const * const normal = samples.getSampleNormal3(sample);
        CTreeNode node;
        octree.makeCellNode(&node, splat.depth, octree.getCellOffset(octree.getCellByCoordinates(sample)), 0);
        double low[3];
        octree.cellCoordsToReal(low, node.shift());
        double const edge = octree.getCellSize(splat.depth);
        int place[3];
        double share[3][2];
        for (int axis = 0; axis < 3; ++axis) {
            place[axis] = node.shift().coord(axis) >> (octree.getLeafCellDepth() - splat.depth);
            share[axis][0] = trilinearShare(point[axis], low[axis], edge);
            share[axis][1] = trilinearShare(point[axis], low[axis] + edge, edge);
        }
        for (int x = 0; x < 2; ++x) {
            for (int y = 0; y < 2; ++y) {
                double const shareXY = share[0][x] * share[1][y] * splat.weight;
                for (int z = 0; z < 2; ++z) {
                    std::array<double, 3> & value =
                        m_field[finder->indexOf(place[0] + x, place[1] + y, place[2] + z)];
                    double const factor = shareXY * share[2][z];
                    for (std::size_t axis = 0; axis < 3; ++axis)
                        value[axis] += normal[axis] * factor;
                }
            }
        }
    }
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
    double greatest = 0.0;
    for (std::array<double, 3> const & value : m_field) {
        for (double const component : value)
            greatest = std::max(greatest, std::fabs(component));
    }
    double const scale = greatest > 0.0 ? 1.0 / greatest : 1.0;
    std::array<BrickSystem::Vector, 3> values;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        values[axis].assign(m_field.size() + brickEdge, 0.0f);
        for (std::size_t index = 0; index < m_field.size(); ++index)
            values[axis][index] = static_cast<float>(m_field[index][axis] * scale);
    }
    m_field = {};
    LoopTeam::run(context.threads, context.progress,
                  [&](LoopTeam & team) { m_right = m_system->rightPart(values, team); });
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
    toAmplitudes(solution.values);
    m_system.reset(); // its memory serves the function
    m_right = {};
    return std::make_unique<BrickedFunction>(BrickFunction(
        *m_lattice, context.octree, kernelFactor(*context.basis.getSamplePtr()), solution.values));
}

// Up to a common positive factor.
void BrickPath::toAmplitudes(std::vector<float> & unknowns) const
{
    for (int depth = m_lattice->firstDepth(); depth < m_lattice->endDepth(); ++depth) {
        BrickLevel const & level = m_lattice->level(depth);
        float const factor = static_cast<float>(m_system->amplitudeOfUnknown(depth));
        for (std::size_t index = level.firstNode.front(); index < level.firstNode.back(); ++index)
            unknowns[index] *= factor;
    }
}

} // namespace VolTr

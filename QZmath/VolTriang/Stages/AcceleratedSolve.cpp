// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/AcceleratedSolve.h>

#include <QZmath/VolTriang/Bricks/WorkTeam.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/SampleSplat.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>

namespace VolTr
{

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

    /// The node must exist.
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

} // namespace

CSingleVarLimitedPolynom const & kernelFactor(Kernel const & kernel)
{
    return kernel.getSummand(0).getMultiplier(0);
}

AcceleratedSolve::AcceleratedSolve(BrickLattice const & lattice, Kernel const & kernel, VsUt::IDebugLog * log)
    : m_lattice(lattice), m_system(lattice, kernelFactor(kernel), bestBrickPasses()), m_log(log)
{}

void AcceleratedSolve::splat(IInputSamples const & samples, COctree const & octree,
                             SampleDensity const * density, CProgressCounter * progress)
{
    int const samplesNumber = samples.pointsNumber();
    int const samplesPerStep = 1024;
    int const deepest = m_lattice.endDepth() - 1;
    int const first = m_lattice.firstDepth();
    m_field.assign(m_lattice.nodes().size(), {0.0, 0.0, 0.0});
    std::vector<std::optional<NodeFinder>> finders(static_cast<std::size_t>(m_lattice.endDepth()));
    for (int sample = 0; sample < samplesNumber; ++sample) {
        if (progress != nullptr && sample % samplesPerStep == 0)
            progress->SetPosFloat(static_cast<double>(sample) / samplesNumber);
        float weight = 1.0f;
        int depth = deepest;
        if (density != nullptr) {
            weight = density->weights.at(static_cast<std::size_t>(sample));
            depth = splatDepth(weight, density->averageDensity, first, deepest);
        }
        std::optional<NodeFinder> & finder = finders[static_cast<std::size_t>(depth)];
        if (!finder)
            finder.emplace(m_lattice.level(depth));

        float const * const point = samples.getSampleCoords3(sample);
        float const * const normal = samples.getSampleNormal3(sample);
        CTreeNode node;
        octree.makeCellNode(&node, depth, octree.getCellOffset(octree.getCellByCoordinates(sample)), 0);
        double low[3];
        octree.cellCoordsToReal(low, node.shift());
        double const edge = octree.getCellSize(depth);
        int place[3];
        double share[3][2];
        for (int axis = 0; axis < 3; ++axis) {
            place[axis] = node.shift().coord(axis) >> (octree.getLeafCellDepth() - depth);
            // As in the trilinear weight, where an axis without extent does not count.
            bool const counts = !(edge < 1e-10);
            share[axis][0] = counts ? 1.0 - std::fabs(point[axis] - low[axis]) / edge : 1.0;
            share[axis][1] = counts ? 1.0 - std::fabs(point[axis] - (low[axis] + edge)) / edge : 1.0;
        }
        for (int x = 0; x < 2; ++x) {
            for (int y = 0; y < 2; ++y) {
                double const shareXY = share[0][x] * share[1][y] * weight;
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

void AcceleratedSolve::makeRightPart(CProgressCounter * progress)
{
    logText(m_log, "Use accelerated solver");
    logValues(m_log, "System size", m_field.size());
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

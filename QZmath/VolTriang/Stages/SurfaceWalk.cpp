// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SurfaceWalk.h>

#include <QZmath/VolTriang/Octree.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace VolTr
{

namespace
{

int const partsPerThread = 4;
std::ptrdiff_t const samplesPerTurn = 1 << 15; // and part

double reachOf(StageContext const & context)
{
    double const reach = context.params.getReach();
    return reach > 0.0 && std::isfinite(reach) ? reach : 0.0;
}

} // namespace

std::optional<SupportedCubes> findSupportedCubes(CubeFrame const & frame, StageContext const & context)
{
    double const reach = reachOf(context);
    if (reach == 0.0)
        return std::nullopt;
    double const leafCell = context.octree.getUnit();
    // Samples of one cell mostly mark the same blocks, and cells in a row many of the same bricks.
    COctree const & octree = context.octree;
    SupportedCubes const none(frame, reach * leafCell, (reach + 1.0) * leafCell);
    std::optional<SupportedCubes> cubes;
    QzBackend::LoopTeam::run(context.threads, context.progress, [&](QzBackend::LoopTeam & team) {
        int const cells = octree.getCellsNumberOnDeepestLevel();
        int const * const samples = octree.getSamplesBegin(0); // of all cells in a row
        std::ptrdiff_t const samplesNumber = octree.getSamplesEnd(cells - 1) - samples;
        int const parts = team.threads() == 1 ? 1 : partsPerThread * team.threads();
        std::vector<std::optional<SupportedCubes>> marked(static_cast<std::size_t>(parts));
        for (std::optional<SupportedCubes> & own : marked)
            own.emplace(none);
        // Each part goes on by some samples at a time.
        std::ptrdiff_t const perPart = (samplesNumber - 1) / parts + 1;
        for (std::ptrdiff_t done = 0; done < perPart; done += samplesPerTurn) {
            team.forEach(parts, [&](int part) {
                std::ptrdiff_t const end =
                    std::min({samplesNumber, part * perPart + done + samplesPerTurn, (part + 1) * perPart});
                for (std::ptrdiff_t n = part * perPart + done; n < end; ++n)
                    marked[static_cast<std::size_t>(part)]->add(context.samples.getSampleCoords3(samples[n]));
            });
        }
        cubes = std::move(marked[0]);
        for (std::size_t part = 1; part < marked.size(); ++part) {
            team.serve();
            cubes->add(*marked[part]);
            marked[part].reset();
        }
    });
    return cubes;
}

CubeBox findLimits(CubeFrame const & frame, LevelSet const & levelSet, StageContext const & context)
{
    bool const endsAtOctree = context.params.getAllComponents() || reachOf(context) > 0.0;
    double const margin = (reachOf(context) + 1.0) * context.octree.getUnit() + std::fabs(frame.edge);
    CParallelepiped const nodes = context.octree.getNodesBoundaryBox();
    CParallelepiped const cells = context.octree.getCellsBoundaryBox();
    CubeBox box;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        int const bound = levelSet.lattice.bounds[axis];
        box.low[axis] = -bound;
        box.high[axis] = bound;
        if (!endsAtOctree)
            continue;
        double const low = std::min(nodes.getMin()[axis], cells.getMin()[axis] - margin);
        double const high = std::max(nodes.getMax()[axis], cells.getMax()[axis] + margin);
        box.low[axis] = std::max(box.low[axis], frame.indexOf(high, axis));
        box.high[axis] = std::min(box.high[axis], frame.indexOf(low, axis));
    }
    return box;
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SurfaceWalk.h>

#include <QZmath/VolTriang/Octree.h>

#include <algorithm>
#include <cmath>

namespace VolTr
{

namespace
{

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
    std::optional<SupportedCubes> cubes;
    cubes.emplace(frame, reach * leafCell, (reach + 1.0) * leafCell);
    // Samples of one cell mostly mark the same blocks.
    COctree const & octree = context.octree;
    for (int cell = 0; cell < octree.getCellsNumberOnDeepestLevel(); ++cell) {
        for (int const * it = octree.getSamplesBegin(cell); it != octree.getSamplesEnd(cell); ++it)
            cubes->add(context.samples.getSampleCoords3(*it));
    }
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

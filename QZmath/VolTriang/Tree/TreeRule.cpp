// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Tree/TreeRule.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Tree/NodeDepths.h>
#include <QZmath/VolTriang/Tree/NodesPositioning.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

namespace VolTr
{

namespace
{

// Saturation bound of lattice coordinates: beyond any node of the deepest tree, with room for a step more.
double const latticeBound = 1.5 * (1 << 30);
int const samplesPerChunk = 1 << 15;

} // namespace

std::unique_ptr<INodesPositioningPolicy> makeTreePolicy(int depth, bool useCenter, int detalizationLevel)
{
    char const * const depthError = "Incorrect tree depth detected in VolTr::COctree constructor";
    if (depth < 0 || depth > COctree::MAX_DEPTH)
        throw CVescaTextException(depthError);
    std::unique_ptr<INodesPositioningPolicy> policy =
        makeNodesPositioningPolicy(useCenter, depth, nodeDepthsOf(depth, useCenter, detalizationLevel).begin);
    if (depth < policy->getMinimalDepth())
        throw CVescaTextException(depthError);
    return policy;
}

int TreeCube::toLattice(double value, int axis, int ifNaN) const
{
    if (max[axis] == min[axis])
        return 0;
    double const coord = std::floor(cellsPerAxis * (value - min[axis]) / (max[axis] - min[axis]));
    if (std::isnan(coord))
        return ifNaN;
    return static_cast<int>(std::clamp(coord, -latticeBound, latticeBound));
}

CInt3 TreeCube::cellOf(float const * point) const
{
    CInt3 cell;
    for (int axis = 0; axis < 3; ++axis)
        cell.coordMod(axis) = std::clamp(toLattice(point[axis], axis, 0), 0, cellsPerAxis - 1);
    return cell;
}

TreeCube makeTreeCube(IInputSamples const & samples, INodesPositioningPolicy const & policy,
                      QzBackend::LoopTeam & team)
{
    struct Bounds
    {
        float low[3] = {FLT_MAX, FLT_MAX, FLT_MAX};
        float high[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    };
    int const samplesNumber = samples.pointsNumber();
    std::vector<Bounds> bounds(static_cast<std::size_t>(samplesNumber / samplesPerChunk + 1));
    team.forEach(static_cast<int>(bounds.size()), [&](int chunk) {
        Bounds & own = bounds[static_cast<std::size_t>(chunk)];
        int const first = chunk * samplesPerChunk;
        for (int sample = first; sample < first + std::min(samplesPerChunk, samplesNumber - first);
             ++sample) {
            float const * point = samples.getSampleCoords3(sample);
            for (int axis = 0; axis < 3; ++axis) {
                // The team rethrows what is thrown for the least index, which is that of the first bad
                // sample.
                if (!std::isfinite(point[axis]))
                    throw CVescaTextException("Sample " + std::to_string(sample) +
                                              " has a coordinate that is not finite");
                own.low[axis] = std::min(own.low[axis], point[axis]);
                own.high[axis] = std::max(own.high[axis], point[axis]);
            }
        }
    });
    Bounds all;
    for (Bounds const & own : bounds) {
        for (int axis = 0; axis < 3; ++axis) {
            all.low[axis] = std::min(all.low[axis], own.low[axis]);
            all.high[axis] = std::max(all.high[axis], own.high[axis]);
        }
    }
    return makeTreeCube(all.low, all.high, policy);
}

TreeCube makeTreeCube(float const * low3, float const * high3, INodesPositioningPolicy const & policy)
{
    // The floor makes a single sample, and samples that all coincide, legal.
    double extent = 1e-10;
    for (int axis = 0; axis < 3; ++axis)
        extent = std::max(extent, static_cast<double>(high3[axis]) - low3[axis]);
    TreeCube cube;
    cube.cellsPerAxis = policy.getCellsPerAxis();
    cube.size = (policy.getBoxMargin() + 1.0) * extent;
    for (int axis = 0; axis < 3; ++axis) {
        double const center = (static_cast<double>(low3[axis]) + high3[axis]) * 0.5;
        cube.min[axis] = center - cube.size * 0.5;
        cube.max[axis] = center + cube.size * 0.5;
    }
    return cube;
}

} // namespace VolTr

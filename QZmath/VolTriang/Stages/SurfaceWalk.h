// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/CubeWalk.h>
#include <QZmath/VolTriang/Stages/LevelSet.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <optional>

namespace VolTr
{

/// The cubes within the reach of samples; none when the parameters set no limit.
std::optional<SupportedCubes> findSupportedCubes(CubeFrame const & frame, StageContext const & context);

/// The cubes that a walk may visit. Where samples support a surface, these are the ones that the octree's
/// nodes span: beyond, the implicit function falls to zero, and its level set is a wall around the octree.
CubeBox findLimits(CubeFrame const & frame, LevelSet const & levelSet, StageContext const & context);

/// Walks over what the parameters want of a surface, and hands it to a sink.
/// \tparam Cubes see `CubeWalk`
template <class Cubes>
void walkSurface(Cubes & cubes, CubeFrame const & frame, LevelSet const & levelSet,
                 StageContext const & context, TriangleSink & sink)
{
    CVolTriangulationParams const & params = context.params;
    std::optional<SupportedCubes> const support = findSupportedCubes(frame, context);
    CubeWalk<Cubes> walk(cubes, findLimits(frame, levelSet, context), support ? &*support : nullptr, sink);
    CubeIndex const first = {0, 0, 0};
    if (walk.isSupported(first))
        walk.walkFrom(first);
    int const samplesNumber = params.getAllComponents() || support ? context.samples.pointsNumber() : 0;
    for (int sample = 0; sample < samplesNumber; ++sample) {
        if (!params.getAllComponents() && walk.counts().pieces > 0)
            break;
        float const * const point = context.samples.getSampleCoords3(sample);
        walk.walkNear({frame.indexOf(point[0], 0), frame.indexOf(point[1], 1), frame.indexOf(point[2], 2)});
    }
    walk.followPatches(params.getLargestGap());

    typename CubeWalk<Cubes>::Counts const & counts = walk.counts();
    context.report.pieces = counts.pieces;
    context.report.closedPatches = counts.closedPatches;
    context.report.abandonedPatches = counts.abandonedPatches;
    context.report.endsAtLimit = counts.hasMetLimit;
    sink.finish();
}

} // namespace VolTr

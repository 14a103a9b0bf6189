// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Export.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/CubeWalk.h>
#include <QZmath/VolTriang/Stages/LevelSet.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace VolTr
{

/// The cubes within the reach of samples; none when the parameters set no limit.
QZMATH_SISTER_API std::optional<SupportedCubes> findSupportedCubes(CubeFrame const & frame,
                                                                   StageContext const & context);

/// The cubes that a walk may visit. Where samples support a surface, these are the ones that the octree's
/// nodes span: beyond, the implicit function falls to zero, and its level set is a wall around the octree.
QZMATH_SISTER_API CubeBox findLimits(CubeFrame const & frame, LevelSet const & levelSet,
                                     StageContext const & context);

/// Walks over what the parameters want of a surface, and hands it to a sink.
/// \tparam Cubes see `CubeWalk`
template <class Cubes>
void walkSurface(Cubes & cubes, CubeFrame const & frame, LevelSet const & levelSet,
                 StageContext const & context, TriangleSink & sink)
{
    CVolTriangulationParams const & params = context.params;
    std::optional<SupportedCubes> const support = findSupportedCubes(frame, context);
    CubeWalk<Cubes> walk(cubes, findLimits(frame, levelSet, context), support ? &*support : nullptr, sink);
    CubeIndex const middle = {0, 0, 0};
    if (walk.isSupported(middle))
        walk.walkFrom(middle);
    auto const cubeOf = [&](int sample) -> CubeIndex {
        float const * const point = context.samples.getSampleCoords3(sample);
        return {frame.indexOf(point[0], 0), frame.indexOf(point[1], 1), frame.indexOf(point[2], 2)};
    };
    // Mostly the walks before have been near a sample. Which these are is found out for many at a time, so
    // that few are left to be asked one after the other.
    int const samplesNumber = params.getAllComponents() || support ? context.samples.pointsNumber() : 0;
    int const samplesPerTask = 1024;
    std::vector<std::uint8_t> isLeft;
    int length = 4 * samplesPerTask;
    for (int first = 0; first < samplesNumber; first += length) {
        length = std::min(samplesNumber - first, std::min(2 * length, 1 << 20));
        isLeft.assign(static_cast<std::size_t>(length), 0);
        QzBackend::LoopTeam::run(context.threads, context.progress, [&](QzBackend::LoopTeam & team) {
            team.forEach((length + samplesPerTask - 1) / samplesPerTask, [&](int task) {
                for (int n = task * samplesPerTask; n < std::min(length, (task + 1) * samplesPerTask); ++n)
                    isLeft[static_cast<std::size_t>(n)] = !walk.isSettled(cubeOf(first + n));
            });
        });
        for (int n = 0; n < length; ++n) {
            if (!params.getAllComponents() && walk.counts().pieces > 0)
                break;
            if (context.progress != nullptr && n % samplesPerTask == 0)
                context.progress->SetPosFloat(0.0); // it never falls back
            if (isLeft[static_cast<std::size_t>(n)] != 0)
                walk.walkNear(cubeOf(first + n));
        }
        if (!params.getAllComponents() && walk.counts().pieces > 0)
            break;
    }
    walk.followPatches(params.getLargestGap());
    cubes.passOn(sink);

    typename CubeWalk<Cubes>::Counts const & counts = walk.counts();
    context.report.pieces = counts.pieces;
    context.report.closedPatches = counts.closedPatches;
    context.report.abandonedPatches = counts.abandonedPatches;
    context.report.endsAtLimit = counts.hasMetLimit;
    sink.finish();
}

} // namespace VolTr

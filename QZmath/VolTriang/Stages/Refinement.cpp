// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/Refinement.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/CloudPeers.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/SampleFeet.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace VolTr
{

namespace
{

void tellWidths(SampleSurface::Widths const & widths, StageContext const & context)
{
    CReconstructionReport::Refinement & report = context.report.refinement;
    for (std::size_t n = 0; n < static_cast<std::size_t>(widths.levels); ++n) {
        logValues(context.log, "Refinement width, left-out error", widths.cells[n], widths.errors[n]);
        report.widths.push_back({widths.cells[n], widths.errors[n]});
    }
    report.width = widths.cells[0] * std::exp2(widths.level);
    report.noise = widths.noise;
    logValues(context.log, "Refinement width chosen", report.width);
    logValues(context.log, "Noise estimate", report.noise);
}

} // namespace

std::unique_ptr<SampleSurface> fitToSamples(StageContext const & context, EvaluableFunction const & function,
                                            double isoValue, double edge, CloudPeers * peers)
{
    COctree const & octree = context.octree;
    SampleSurface::Input input;
    input.samples = &context.samples;
    input.weights = context.density != nullptr ? &context.density->weights : nullptr;
    std::copy(octree.getBoxMin(), octree.getBoxMin() + 3, input.origin.begin());
    input.cubeEdge = octree.getCellSize(0);
    input.deepestCell = octree.getCellSize(octree.getNodeDepthEnd() - 1);
    input.edge = edge;
    input.depth = octree.getLeafCellDepth();
    input.peers = peers;
    std::int64_t const samples = peers != nullptr ? peers->samples() : context.samples.pointsNumber();
    if (samples == 0 || !(input.cubeEdge > 0.0) || !std::isfinite(input.cubeEdge))
        return nullptr;

    std::unique_ptr<SampleSurface> surface;
    QzBackend::LoopTeam::run(context.threads, context.progress, [&](QzBackend::LoopTeam & team) {
        SampleFeet const feet(context, function, isoValue, team, 0.4, peers);
        input.samplesPerCell = feet.samplesPerLeafCell;
        input.order = feet.order.data();
        input.count = static_cast<int>(feet.order.size());
        input.feet = feet.offsets.data();
        surface = std::make_unique<SampleSurface>(input, team);
        team.setPosition(1.0);
    });
    tellWidths(surface->widths(), context);
    return surface;
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/IsoSurface.h>

#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/LevelSet.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/MeshSink.h>
#include <QZmath/VolTriang/Stages/RefiningSink.h>
#include <QZmath/VolTriang/Stages/SampleSurface.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <memory>

namespace VolTr
{

using REmath::Point3D_d;

namespace
{

double squaredDistance(double const * a, double const * b)
{
    double sum = 0.0;
    for (int axis = 0; axis < 3; ++axis)
        sum += (a[axis] - b[axis]) * (a[axis] - b[axis]);
    return sum;
}

// Walks from the middle of the octree toward the samples. The point moves with every sample that is nearer to
// it than the last step was long, so the result is a sample near the middle, not always the nearest.
Point3D_d findStartPoint(IInputSamples const & samples, COctree const & octree, CProgressCounter * progress)
{
    int const samplesPerTurn = 1 << 20;
    double start[3];
    octree.getBoxCenter(start);
    double best = DBL_MAX;
    int const samplesNumber = samples.pointsNumber();
    for (int sample = 0; sample < samplesNumber; ++sample) {
        if (progress != nullptr && sample % samplesPerTurn == 0)
            progress->SetPosFloat(0.0);
        float const * coords = samples.getSampleCoords3(sample);
        double const point[3] = {coords[0], coords[1], coords[2]};
        double const distance = squaredDistance(start, point);
        if (distance < best) {
            best = distance;
            std::copy(point, point + 3, start);
        }
    }
    return Point3D_d(start[0], start[1], start[2]);
}

// Cubes on each side of the start point, in `float` and truncated; saturated where
// that leaves the `int` range.
int cubesPerSide(float reconstructFactor, int leafCellDepth)
{
    float const cubes = reconstructFactor * static_cast<float>(1 << leafCellDepth) + 1.0f;
    if (std::isnan(cubes))
        return 0;
    float const bound = 1 << 30;
    return static_cast<int>(std::clamp(cubes, -bound, bound));
}

SurfaceLattice makeLattice(StageContext const & context)
{
    SurfaceLattice lattice;
    CVolTriangulationParams const & params = context.params;
    lattice.edge = polygoniserEdge(context);
    int const cubes = cubesPerSide(params.getReconstructFactor(), context.octree.getLeafCellDepth());
    std::fill(lattice.bounds, lattice.bounds + 3, cubes);
    lattice.start = findStartPoint(context.samples, context.octree, context.progress);
    return lattice;
}

// The faces of a cube as large as the lattice.
int expectedFacesOf(SurfaceLattice const & lattice)
{
    double const cubes = lattice.bounds[0];
    return static_cast<int>(std::min(6.0 * cubes * cubes, static_cast<double>(INT_MAX)));
}

void tellMoves(RefiningSink::Moves const & moves, StageContext const & context)
{
    CReconstructionReport::Refinement & report = context.report.refinement;
    report.movedShare = moves.movedShare;
    report.rmsMove = moves.rms;
    report.greatestMove = moves.greatest;
    report.unfoldedVertices = moves.halved;
    logValues(context.log, "Share of vertices moved", moves.movedShare);
    logValues(context.log, "Rms and greatest move", moves.rms, moves.greatest);
}

} // namespace

double polygoniserEdge(StageContext const & context)
{
    CVolTriangulationParams const & params = context.params;
    return context.octree.getCellSize(params.getOctreeDepth() - 1) / params.getReconstructFactor();
}

void extractIsoSurface(StageContext const & context, ImplicitFunction const & function, double isoValue,
                       SampleSurface const * surface, ITriangulationTarget & target,
                       std::function<void()> const & isWalked)
{
    VsUt::IDebugLog * const log = context.log;
    logText(log, "<Marching cubes>");
    SurfaceLattice const lattice = makeLattice(context);
    int const expectedFaces = expectedFacesOf(lattice);
    logValues(log, "Edge length", lattice.edge);
    logValues(log, "Bounds", lattice.bounds[0], lattice.bounds[1], lattice.bounds[2]);
    logValues(log, "Start point", lattice.start.x(), lattice.start.y(), lattice.start.z());
    logValues(log, "Expected faces number", expectedFaces);

    SurfaceEnd const end(context.samples, context.octree, lattice.edge);
    LevelSet const levelSet = {isoValue, lattice, context.params.getClosed() ? nullptr : &end};
    CReconstructionReport & report = context.report;
    auto const polygonise = [&](auto & sink) {
        bool const isDone = function.polygonise(levelSet, context, sink);
        report.vertices = sink.vertexCount();
        report.triangles = sink.triangleCount();
        if (isDone && sink.triangleCount() > 0)
            return;
        if (report.failure.empty())
            report.failure = "no cube of the lattice is crossed near the start point";
        char const * const text = "Failed to reconstruct iso-value surface";
        logText(log, text);
        throw CVolTriangulationError(text);
    };
    if (surface != nullptr) {
        RefiningSink sink(*surface, function, lattice.edge, context, target, expectedFaces);
        {
            CPrgCntSubPhase phase(context.progress, 0.0, 0.7, 0, true);
            polygonise(sink);
        }
        if (isWalked && !context.params.getEstimateResultNormals())
            isWalked();
        CPrgCntSubPhase phase(context.progress, 0.7, 0.3, 0, true);
        sink.complete();
        tellMoves(sink.moves(), context);
    } else {
        MeshSink sink(target, function, lattice.edge * 4.0, context, expectedFaces);
        polygonise(sink);
    }
    logValues(log, "Added vertexes", report.vertices);
    logValues(log, "Added triangles", report.triangles);
    logText(log, "</Marching cubes>");
}

} // namespace VolTr

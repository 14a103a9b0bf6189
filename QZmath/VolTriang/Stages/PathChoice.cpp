// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/PathChoice.h>

#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/BrickPath.h>
#include <QZmath/VolTriang/Stages/ExactPath.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Tree/NodeDepths.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <algorithm>

namespace VolTr
{

namespace
{

bool canBricksServe(CVolTriangulationParams const & params, Kernel const & kernel, VsUt::IDebugLog * log)
{
    // The tree refuses other depths.
    int const depth = std::clamp(params.getOctreeDepth(), 0, COctree::MAX_DEPTH);
    if (BrickPath::canServe(nodeDepthsOf(depth, params.getUseCenter(), params.getDetalizationLevel()),
                            kernel))
        return true;
    logText(log, "Accelerated solver cannot serve this kernel or depth");
    return false;
}

} // namespace

Kernel makeReconstructionKernel(float scaleFactor)
{
    Kernel kernel = makeApproxGaussian<Kernel>();
    if (scaleFactor > 0.0f) {
        double const scale = 1.0 / scaleFactor;
        double const scales[3] = {scale, scale, scale};
        kernel.scaleArgument(scales);
    }
    return kernel;
}

PathChoice choosePath(IInputSamples const & samples, CVolTriangulationParams const & params,
                      Kernel const & kernel, VsUt::IDebugLog * log)
{
    using Path = CReconstructionReport::Path;
    using Reason = CReconstructionReport::Reason;
    if (!params.getAccelerated())
        return {Path::exact, Reason::asParameters};
    if (params.getPrefferedSolver() != 0)
        return {Path::exact, Reason::solverChosen};
    if (!canBricksServe(params, kernel, log))
        return {Path::exact, Reason::kernelOrDepth};
    // Without samples there are no nodes, and the exact path tells of the empty system.
    if (samples.pointsNumber() <= 0)
        return {Path::exact, Reason::noSamples};
    return {Path::accelerated, Reason::asParameters};
}

std::unique_ptr<ReconstructionPath> makePath(CReconstructionReport::Path path,
                                             CVolTriangulationParams const & params, int threads)
{
    if (path == CReconstructionReport::Path::accelerated)
        return std::make_unique<BrickPath>();
    double const solveShare = params.getOctreeDepth() >= 9 ? 200 : 30;
    return std::make_unique<ExactPath>(threads, solveShare);
}

} // namespace VolTr

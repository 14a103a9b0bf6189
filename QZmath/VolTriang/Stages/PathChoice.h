// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>
#include <QZmath/VolTriang/Stages/ReconstructionPath.h>

#include <memory>

namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

class CVolTriangulationParams;
class IInputSamples;

/// The kernel of a reconstruction: the sample kernel, wider or narrower by a factor; others than those above
/// 0 leave it as it is.
QZMATH_SISTER_API Kernel makeReconstructionKernel(float scaleFactor);

/// Which path a run takes, and why: the bricks when they are wanted and can serve, else the stored system.
struct PathChoice
{
    CReconstructionReport::Path path;
    CReconstructionReport::Reason reason;
};

PathChoice choosePath(IInputSamples const & samples, CVolTriangulationParams const & params,
                      Kernel const & kernel, VsUt::IDebugLog * log);

/// \param threads of the run, at least 1
std::unique_ptr<ReconstructionPath> makePath(CReconstructionReport::Path path,
                                             CVolTriangulationParams const & params, int threads);

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#pragma once

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

/// The path that a run takes: the bricks when they are wanted and can serve, else the stored system.
std::unique_ptr<ReconstructionPath> choosePath(IInputSamples const & samples,
                                               CVolTriangulationParams const & params, Kernel const & kernel,
                                               int threads, VsUt::IDebugLog * log);

} // namespace VolTr

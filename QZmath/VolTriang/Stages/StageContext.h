// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Stages/PipelineTypes.h>

class CProgressCounter;
namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

class COctree;
class CReconstructionReport;
class CVolTriangulationParams;
class IInputSamples;
struct SampleDensity;

/// What the stages of a run share. It only refers: all of it is the run's.
struct StageContext
{
    IInputSamples const & samples;
    CVolTriangulationParams const & params;
    COctree const & octree;
    Basis const & basis;           ///< the kernel on the nodes of the octree
    SampleDensity const * density; ///< null when all samples have weight 1 and belong to the deepest depth
    CProgressCounter * progress;   ///< may be null
    VsUt::IDebugLog * log;         ///< may be null
    CReconstructionReport & report;
    int threads; ///< at least 1
};

} // namespace VolTr

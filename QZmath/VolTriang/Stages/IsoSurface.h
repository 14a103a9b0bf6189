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

class BrickFunction;
class COctree;
class CVolTriangulationParams;
class IInputSamples;
class ITriangulationTarget;

/// Polygonises the level set of a function and hands it to the target.
/// \param gradBasis bases of the partial derivatives, for normals; null when none are wanted
/// \throws CVolTriangulationError "Failed to reconstruct iso-value surface"
void extractIsoSurface(Combination const & function, double isoValue, GradientBasis const * gradBasis,
                       IInputSamples const & samples, COctree const & octree,
                       CVolTriangulationParams const & params, ITriangulationTarget & target,
                       CProgressCounter * progress, VsUt::IDebugLog * log);

/// The same of a function in bricks, on up to `threads` threads; the target is called on the calling one.
void extractIsoSurface(BrickFunction const & function, double isoValue, bool withNormals,
                       IInputSamples const & samples, COctree const & octree,
                       CVolTriangulationParams const & params, ITriangulationTarget & target,
                       CProgressCounter * progress, VsUt::IDebugLog * log, int threads);

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace VolTr
{

class ITriangulationTarget;
class ImplicitFunction;
class SampleSurface;
struct StageContext;

/// Edge of the polygoniser's cubes.
double polygoniserEdge(StageContext const & context);

/// Polygonises the level set of a function and hands it to the target, on the calling thread.
/// \param surface onto which the vertices are moved; null when they stay on the level set
/// \throws CVolTriangulationError "Failed to reconstruct iso-value surface"
void extractIsoSurface(StageContext const & context, ImplicitFunction const & function, double isoValue,
                       SampleSurface const * surface, ITriangulationTarget & target);

} // namespace VolTr

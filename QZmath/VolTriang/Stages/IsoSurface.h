// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <functional>

namespace VolTr
{

class ITriangulationTarget;
class ImplicitFunction;
class SampleSurface;
struct StageContext;

/// Edge of the polygoniser's cubes.
QZMATH_SISTER_API double polygoniserEdge(StageContext const & context);

/// Polygonises the level set of a function and hands it to the target, on the calling thread.
/// \param surface onto which the vertices are moved; null when they stay on the level set
/// \param isWalked called when neither this function nor its target asks `function` for anything any more,
/// while
///                 the mesh is still to be handed over; may be empty
/// \throws CVolTriangulationError "Failed to reconstruct iso-value surface"
void extractIsoSurface(StageContext const & context, ImplicitFunction const & function, double isoValue,
                       SampleSurface const * surface, ITriangulationTarget & target,
                       std::function<void()> const & isWalked = {});

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace VolTr
{

class ITriangulationTarget;
class ImplicitFunction;
struct StageContext;

/// Polygonises the level set of a function and hands it to the target, on the calling thread.
/// \throws CVolTriangulationError "Failed to reconstruct iso-value surface"
void extractIsoSurface(StageContext const & context, ImplicitFunction const & function, double isoValue,
                       ITriangulationTarget & target);

} // namespace VolTr

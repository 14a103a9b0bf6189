// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Stages/SampleSurface.h>

#include <memory>

namespace VolTr
{

class CloudPeers;
class EvaluableFunction;
struct StageContext;

/// The surface as the samples of a run see it, near the level set of its function. Null where there is
/// nothing to see: no samples, or all of them at one point.
/// \param edge  of the polygoniser's cubes
/// \param peers null when the samples of the run are the whole cloud
QZMATH_SISTER_API std::unique_ptr<SampleSurface> fitToSamples(StageContext const & context,
                                                              EvaluableFunction const & function,
                                                              double isoValue, double edge,
                                                              CloudPeers * peers = nullptr);

} // namespace VolTr

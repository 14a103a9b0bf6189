// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>

namespace VolTr
{

class BrickFunction;
struct StageContext;

/// Weighted mean of a function at the samples; 0 when the weights sum up to 0. Each form of the function has
/// an order of its own in which it adds, the same for any number of threads.
QZMATH_SISTER_API double calcMeanIsoValue(Combination const & function, StageContext const & context);
QZMATH_SISTER_API double calcMeanIsoValue(BrickFunction const & function, StageContext const & context);

} // namespace VolTr

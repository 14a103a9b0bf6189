// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Stages/PipelineTypes.h>

#include <vector>

class CProgressCounter;

namespace VolTr
{

class BrickFunction;
class COctree;
class IInputSamples;

/// Weighted mean of a function at the samples, on one task per physical thread; 0 when the weights sum up to
/// 0. The result is the same to the bit for any number of threads. \param weights null when all are 1
double calcMeanIsoValue(Combination const & function, IInputSamples const & samples, COctree const & octree,
                        std::vector<float> const * weights, CProgressCounter * progress);

/// The same of a function in bricks, on up to `threads` threads.
double calcMeanIsoValue(BrickFunction const & function, IInputSamples const & samples, COctree const & octree,
                        std::vector<float> const * weights, CProgressCounter * progress, int threads);

} // namespace VolTr

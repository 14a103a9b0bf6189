// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>

#include <vector>

class CProgressCounter;
namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

class COctree;
class IInputSamples;

/// Weight of every sample, the inverse of its relative density; the unit is arbitrary. A sample without an
/// estimate has weight 0.
struct SampleDensity
{
    std::vector<float> weights;
    float averageDensity = 0.0f;
};

/// The estimate by its definition: counts the samples around each node of a depth with trilinear weights,
/// and adds the counts to `values` at the samples in the node's support, times the node's basis function.
/// Each node visits its samples anew, so this is slow.
QZMATH_SISTER_API void addDensityByNodes(IInputSamples const & samples, COctree const & octree,
                                         Basis const & basis, int depth, std::vector<float> & values);

/// Counts the samples around each node of a depth with trilinear weights, and spreads the counts back to the
/// samples with the node's basis function; the kernel is a single product. What comes out is proportional to
/// the density, or 0. Linear in the samples. The same bits for any number of threads.
QZMATH_SISTER_API std::vector<float> countAroundSamples(IInputSamples const & samples, COctree const & octree,
                                                        Basis const & basis, int estimationDepth, int threads,
                                                        CProgressCounter * progress);

/// The weights of all samples from these counts.
QZMATH_SISTER_API SampleDensity estimateSampleDensity(IInputSamples const & samples, COctree const & octree,
                                                      Basis const & basis, int estimationDepth, int threads,
                                                      CProgressCounter * progress, VsUt::IDebugLog * log);

} // namespace VolTr

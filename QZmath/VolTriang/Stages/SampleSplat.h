// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Stages/PipelineTypes.h>

class CProgressCounter;

namespace VolTr
{

class COctree;
class IInputSamples;
struct SampleDensity;

/// Depth at which a sample is splatted. A region four times thinner than the average goes one depth up, and
/// so on by powers of four; denser ones stay at the deepest. A density of 0, or one that is not finite,
/// counts as dense.
///
/// \param first, deepest  depths that carry nodes, both included
int splatDepth(float weight, float averageDensity, int first, int deepest);

/// Distributes the normals of all samples with trilinear weights on the nodes around them.
/// \param density null when all samples have weight 1 and are splatted at the deepest depth
void splatNormals(IInputSamples const & samples, COctree const & octree, SampleDensity const * density,
                  VectorField & field, CProgressCounter * progress);

} // namespace VolTr

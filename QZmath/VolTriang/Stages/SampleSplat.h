// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>

namespace VolTr
{

struct SampleDensity;
struct StageContext;

/// How a sample counts in the field.
struct SplatShare
{
    float weight;
    int depth; ///< of the nodes that get it
};

/// A region four times thinner than the average goes one depth up, and so on by powers of four; denser ones
/// stay at the deepest. A density of 0, or one that is not finite, counts as dense. Without a density the
/// weight is 1 and the depth the deepest.
///
/// \param first, deepest  depths that carry nodes, both included
QZMATH_SISTER_API SplatShare splatShareOf(SampleDensity const * density, int sample, int first, int deepest);

/// Distributes the normals of all samples with trilinear weights on the nodes around them.
void splatNormals(StageContext const & context, VectorField & field);

} // namespace VolTr

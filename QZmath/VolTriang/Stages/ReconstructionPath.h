// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>

#include <memory>

namespace VolTr
{

class RunPhases;
struct StageContext;

/// A way from the samples in their octree to the implicit function. The stages run once, in the order in
/// which they stand here.
class QZMATH_SISTER_API ReconstructionPath
{
public:
    virtual ~ReconstructionPath();

    /// Registers the phases from the assembly to the solution, with their expected shares of the time.
    virtual void registerPhases(RunPhases & phases) const = 0;

    /// Makes what belongs to the nodes of the octree.
    virtual void prepare(StageContext const & context) = 0;

    /// Distributes the normals of all samples on the nodes around them, as the components of a vector field.
    virtual void splat(StageContext const & context) = 0;

    /// Sets the system up, in phases that it opens itself.
    virtual void assemble(StageContext const & context, RunPhases & phases) = 0;

    /// \return null when the iteration did not converge and another path has to answer
    virtual std::unique_ptr<ImplicitFunction> solve(StageContext const & context) = 0;
};

} // namespace VolTr

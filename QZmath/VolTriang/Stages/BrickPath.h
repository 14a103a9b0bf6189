// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Bricks/BrickSystem.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>
#include <QZmath/VolTriang/Stages/ReconstructionPath.h>

#include <array>
#include <optional>
#include <vector>

namespace VolTr
{

struct NodeDepths;

/// The path without a matrix, over the nodes in bricks.
class QZMATH_SISTER_API BrickPath final : public ReconstructionPath
{
public:
    /// Can the bricks hold nodes of these depths with this kernel?
    static bool canServe(NodeDepths const & depths, Kernel const & kernel);

    void registerPhases(RunPhases & phases) const override;
    void prepare(StageContext const & context) override;
    void splat(StageContext const & context) override;
    void assemble(StageContext const & context, RunPhases & phases) override;
    std::unique_ptr<ImplicitFunction> solve(StageContext const & context) override;

private:
    void makeRightPart(StageContext const & context);
    void toAmplitudes(std::vector<float> & unknowns, QzBackend::LoopTeam & team) const;

    std::optional<BrickLattice> m_lattice;
    std::optional<BrickSystem> m_system;
    std::vector<std::array<double, 3>> m_field; // compact
    BrickSystem::Vector m_right;
};

} // namespace VolTr

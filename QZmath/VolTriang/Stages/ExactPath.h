// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Stages/PipelineTypes.h>
#include <QZmath/VolTriang/Stages/ReconstructionPath.h>
#include <QZmath/VolTriang/Stages/SystemAssembly.h>

namespace VolTr
{

/// The path over a stored matrix and a solver of the library's own.
class ExactPath final : public ReconstructionPath
{
public:
    /// \param threads    of the run: two or more assemble matrix and right part at the same time
    /// \param solveShare expected share of the solution where the assembly has 100
    ExactPath(int threads, double solveShare);

    void registerPhases(RunPhases & phases) const override;
    void prepare(StageContext const & context) override;
    void splat(StageContext const & context) override;
    void assemble(StageContext const & context, RunPhases & phases) override;
    std::unique_ptr<ImplicitFunction> solve(StageContext const & context) override;

private:
    int m_threads;
    double m_solveShare;
    GradientBasis m_gradBasis;
    VectorField m_field;
    ReconstructionSolver m_system;
};

} // namespace VolTr

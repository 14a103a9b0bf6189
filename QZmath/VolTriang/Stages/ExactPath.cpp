// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/ExactPath.h>

#include <QZmath/VolTriang/Stages/CombinationFunction.h>
#include <QZmath/VolTriang/Stages/RunPhases.h>
#include <QZmath/VolTriang/Stages/SampleSplat.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <utility>

namespace VolTr
{

ExactPath::ExactPath(int threads, double solveShare) : m_threads(threads), m_solveShare(solveShare) {}

void ExactPath::registerPhases(RunPhases & phases) const
{
    if (m_threads < 2) {
        phases.add("right_part", 50);
        phases.add("matrix", 50);
    } else {
        phases.add("matrix+right_part", 100);
    }
    phases.add("update right part", 5);
    phases.add("solve", m_solveShare);
}

void ExactPath::prepare(StageContext const & context)
{
    m_gradBasis = makeGradientBasis(context.basis);
    for (std::size_t axis = 0; axis < 3; ++axis)
        m_field[axis] = std::make_unique<Combination>(m_gradBasis[axis].get());
}

void ExactPath::splat(StageContext const & context) { splatNormals(context, m_field); }

void ExactPath::assemble(StageContext const & context, RunPhases & phases)
{
    m_system = chooseSolver(context);
    assembleSystem(context, m_gradBasis, m_field, m_system, phases);
    // As large as the unknown function, and of no use from here on.
    m_field = {};
    m_gradBasis = {};
}

std::unique_ptr<ImplicitFunction> ExactPath::solve(StageContext const & context)
{
    return std::make_unique<CombinationFunction>(solveEquation(context, std::move(m_system)));
}

} // namespace VolTr

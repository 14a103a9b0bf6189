// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SolverChoice.h>

namespace VolTr
{

namespace
{

// From here on the factor of the direct solver, and then the stored matrix, becomes
// too large for most machines.
std::int64_t const leastUnknownsOfIterative = 200000;
std::int64_t const leastUnknownsOfDecomposing = 1000000;

} // namespace

CReconstructionReport::Solver solverOf(int prefferedSolver, std::int64_t unknowns)
{
    using Solver = CReconstructionReport::Solver;
    switch (prefferedSolver) {
    case 0:
        if (unknowns < leastUnknownsOfIterative)
            return Solver::direct;
        return unknowns < leastUnknownsOfDecomposing ? Solver::iterative : Solver::decomposing;
    case 1:
    case 2:
        return Solver::direct;
    case 3:
        return Solver::iterative;
    case 4:
        return Solver::decomposing;
    default:
        return Solver::none;
    }
}

} // namespace VolTr

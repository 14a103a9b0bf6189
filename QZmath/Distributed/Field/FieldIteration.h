// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/VolTriang/Bricks/BrickSystem.h>

#include <functional>

namespace QZmath::Distributed
{

class RankLattice;

struct IterationResult
{
    int iterations = 0;
    double relativeResidual = 0.0;
    bool hasConverged = false;
};

/// Solves the system of the reconstruction over all ranks by PETSc's conjugate gradients on the
/// preconditioned matrix. Collective.
///
/// \param right     the right part at own nodes and on replicated depths; becomes the solution there
/// \param goOn      called once an iteration with the relative residual; false ends the iteration on all
/// ranks \throws CUserIntrException on all ranks when `goOn` said so on any of them
IterationResult solveField(Communicator const & ranks, RankLattice const & lattice,
                           VolTr::BrickSystem & system, VolTr::BrickSystem::Vector & right, double tolerance,
                           int maxIterations, QzBackend::LoopTeam & team,
                           std::function<bool(double)> const & goOn);

} // namespace QZmath::Distributed

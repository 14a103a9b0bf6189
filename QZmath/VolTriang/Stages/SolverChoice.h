// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/ReconstructionReport.h>

#include <cstdint>

namespace VolTr
{

/// The solver of a stored system of so many unknowns: by size (0), direct (1, 2), iterative (3) or
/// decomposing (4). `Solver::none` for any other choice.
CReconstructionReport::Solver solverOf(int prefferedSolver, std::int64_t unknowns);

} // namespace VolTr

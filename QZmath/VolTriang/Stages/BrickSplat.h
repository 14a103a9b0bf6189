// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <array>
#include <cstdint>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

class BrickLattice;
struct StageContext;

/// The normals of the samples, with trilinear weights on the nodes around them: by compact index. Every node
/// adds up in the order of the cells, and in them of the samples, on whatever thread.
///
/// \param isTaken by sample, not 0 for those that take part; null: all. Their nodes must be in the bricks.
QZMATH_SISTER_API std::vector<std::array<double, 3>> splatOnBricks(StageContext const & context,
                                                                   BrickLattice const & lattice,
                                                                   std::uint8_t const * isTaken,
                                                                   QzBackend::LoopTeam & team);

} // namespace VolTr

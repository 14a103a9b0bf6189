// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

/// How many of some triangles of a mesh pass through others of the mesh: an edge of one goes through the
/// inside of the other, and they do not meet there in a common vertex. Touching is not passing, and triangles
/// that lie in one plane do not pass.
///
/// Builds an index over the centroids of the triangles in the box of those asked about, 27 bytes each, and
/// looks at all triangles whose longest edges reach.
std::size_t countCrossings(TriangleMesh const & mesh, std::vector<std::int32_t> const & triangles,
                           QzBackend::LoopTeam & team, double until = 0);

} // namespace QZmath::Stages

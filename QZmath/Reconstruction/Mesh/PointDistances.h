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

class SampleIndex;

/// Which points are farther than `distance` from all triangles: 1 for those, one entry a point. Exact. Each
/// triangle asks an index over the points for those near it.
std::vector<std::uint8_t> farPoints(std::vector<float> const & positions, TriangleMesh const & mesh,
                                    double distance, QzBackend::LoopTeam & team, double until = 0);

/// How many samples are farther than `distance` from the mesh. The vertices decide about most samples; only
/// the others are compared with triangles.
std::size_t samplesFarFromMesh(SampleIndex const & samples, TriangleMesh const & mesh, double distance,
                               QzBackend::LoopTeam & team, double until = 0);

} // namespace QZmath::Stages

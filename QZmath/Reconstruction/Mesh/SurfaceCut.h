// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/Reconstruction/Mesh/Vec.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

class VertexStars;

/// Does a place on the surface lie outside of what is to be kept? Called on many threads.
using IsOutsideAt = std::function<bool(Vec const &)>;

/// Where the line between inside and outside crosses an edge of a mesh.
struct EdgeCrossing
{
    std::int32_t inside, outside; ///< vertices
    double share;                 ///< of the way from the first to the second
};

/// The crossings of all edges with one end of each kind, in rising order of their ends, to a thousandth of
/// the edge, or as many halvings of it. `isOutside` has one entry a vertex.
QZMATH_SISTER_API std::vector<EdgeCrossing> findCrossings(TriangleMesh const & mesh,
                                                          std::vector<std::uint8_t> const & isOutside,
                                                          IsOutsideAt const & isOutsideAt,
                                                          QzBackend::LoopTeam & team, int bisections = 10);

/// The crossing of an edge among those of `findCrossings`, as an index.
QZMATH_SISTER_API std::size_t crossingOf(std::vector<EdgeCrossing> const & crossings, std::int32_t inside,
                                         std::int32_t outside);

QZMATH_SISTER_API Vec placeOf(TriangleMesh const & mesh, EdgeCrossing const & crossing);

/// Cuts what is outside off a mesh, through its triangles. Vertices near the line move onto it along their
/// edges, so that no slivers are left there; what the vertices carry is interpolated. A manifold mesh stays
/// so, since vertices move only where one fan of triangles is left to them and none of it turns over.
/// Vertices without triangles stay behind: `compact` drops them.
QZMATH_SISTER_API void cutOff(TriangleMesh & mesh, VertexStars const & stars,
                              std::vector<std::uint8_t> const & isOutside, IsOutsideAt const & isOutsideAt,
                              QzBackend::LoopTeam & team);

/// The same without moving vertices, so that every triangle is cut by its own corners alone.
/// \return the crossings that the new vertices stand on, in the order of these behind the others
QZMATH_SISTER_API std::vector<EdgeCrossing> cutThrough(TriangleMesh & mesh,
                                                       std::vector<std::uint8_t> const & isOutside,
                                                       IsOutsideAt const & isOutsideAt,
                                                       QzBackend::LoopTeam & team);

} // namespace QZmath::Stages

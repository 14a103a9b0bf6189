// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <cstddef>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

/// How the least angles of a mesh's triangles are distributed.
struct AngleDistribution
{
    double least = 180;                               ///< degrees; 180 for a mesh without triangles
    double belowOne = 0, belowFive = 0, belowTen = 0; ///< shares of the triangles whose least angle is below
};
QZMATH_SISTER_API AngleDistribution measureAngles(TriangleMesh const & mesh, QzBackend::LoopTeam & team);

/// Takes triangles with an angle below one degree out of a manifold mesh: an edge of them is collapsed into
/// one of its ends, or flipped. Either is done where the surface moves by less than a hundredth of a leaf
/// cell, no triangle turns, the angles around get better, and the mesh stays manifold; a rim keeps its course
/// to the same measure. Vertices stay where they are, with what they carry.
///
/// One pass on all threads finds the triangles; they are then treated one after the other, in their order.
/// Without any the mesh is left alone. 60 bytes a vertex.
///
/// \return the triangles below one degree that are gone
QZMATH_SISTER_API std::size_t removeSlivers(TriangleMesh & mesh, double leafCell, QzBackend::LoopTeam & team,
                                            double until = 0);

} // namespace QZmath::Stages

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

/// Merges triangles of a manifold mesh as long as all of its surface stays within `error` of what is left.
/// Watched are the vertices that go, and points on edges where triangles fold.
///
/// Edges are collapsed into one of their ends, those first that change the surface least: the volume between
/// the planes around the vertex that goes and its new place, without memory of earlier collapses; cf. P.
/// Lindstrom, G. Turk, Fast and Memory Efficient Polygonal Simplification, IEEE Visualization 1998. Each
/// triangle knows the watched points that are nearest to it, so the distance is held to and not estimated.
/// The mesh stays manifold, of the same Euler number, and no triangle turns. A rim keeps its vertices but
/// where it is straight. Vertices that stay keep their place and what they carry.
///
/// Rounds of collapses that do not touch each other are chosen in order and done on all threads. About
/// 90 bytes a vertex, and 16 for a point on an edge.
void simplify(TriangleMesh & mesh, double error, QzBackend::LoopTeam & team, double until = 0);

} // namespace QZmath::Stages

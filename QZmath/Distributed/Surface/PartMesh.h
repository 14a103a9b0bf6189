// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/Surface/SharedVertices.h>
#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <cstdint>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Distributed
{

/// The triangles that a rank has found, with all their vertices.
struct PartMesh
{
    TriangleMesh mesh;
    std::vector<BorderVertex> border; ///< vertices that other ranks may have as well
};

/// Drops vertices without triangles. What is left keeps its order.
void dropUnused(PartMesh & part);

/// A number for each vertex of the part, the same on all ranks that have it: those of a rank's own vertices
/// follow each other, and those of the ranks too. Collective.
/// \param first receives the first number of this rank
std::vector<std::int64_t> numberVertices(Communicator const & ranks, SharedVertices const & shared,
                                         std::size_t vertices, std::int64_t & first);

/// Cuts the part off where it is farther than a distance from all samples, through its triangles. Where a cut
/// runs across an edge that several ranks have, all of them cut it at the same place. The part has unused
/// vertices afterwards.
/// \param numbers of the vertices, as of `numberVertices`
void trimPart(PartMesh & part, SharedVertices const & shared, std::vector<std::int64_t> const & numbers,
              Stages::SampleIndex const & samples, double distance, QzBackend::LoopTeam & team);

struct PieceFindings
{
    std::int64_t found = 0;
    std::int64_t kept = 0;
};

/// Drops the pieces of the whole mesh, those that hang together over all ranks, which have fewer than a share
/// of all triangles. Collective. The part has unused vertices afterwards.
PieceFindings dropSmallPieces(Communicator const & ranks, PartMesh & part, SharedVertices const & shared,
                              double smallest);

/// How many edges of the whole mesh have one triangle only. Collective.
/// \param firstNumber of the vertices of this rank
std::int64_t countBorderEdges(Communicator const & ranks, TriangleMesh const & mesh,
                              SharedVertices const & shared, std::vector<std::int64_t> const & numbers,
                              std::int64_t firstNumber);

} // namespace QZmath::Distributed

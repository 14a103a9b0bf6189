// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>

#include <cstddef>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

class SampleIndex;

struct FairingRule
{
    double trimDistance = 0;           ///< as that of `BoundaryRule`
    std::size_t mostVertices = 200000; ///< of a patch; larger ones are left alone
};

struct FairingFindings
{
    int faired = 0;
    int left = 0; ///< patches that stay as they were
};

/// Smooths what closes the gaps of a surface. In a large gap the core's function is flat and rough, so that
/// its level set is crumpled; here it becomes a thin plate that continues the surface around the gap.
///
/// A patch consists of the vertices farther than the trim distance from all samples, of which there must be
/// at least the square of that distance, and of those around them that are farther than half of it: near the
/// rim of the data the surface already runs astray. A patch at which the mesh ends closes nothing and is none
/// of them. All others keep their bits, and all triangles their corners. Normals of what moves are taken from
/// the faces anew.
///
/// A plate that would pass through itself or the rest of the mesh, or fold, gives way to one that bulges half
/// as much, then to a membrane; when that does so as well the patch stays as it is. A patch with several rims
/// is bent twice from the shape that it has, since a membrane would tie it off, and stays as it is when it
/// would lose more than two fifths of its area, as a long tube does. One with handles, as among samples
/// that are mere noise, stays as well.
///
/// The same bits for any number of threads. One question to the index per vertex; the sparse solves of
/// `ThinPlate` for each patch, most of whose time goes into their order of elimination.
///
/// \param from, until positions of the job that the stage moves between
FairingFindings fairPatches(TriangleMesh & mesh, SampleIndex const & samples, FairingRule const & rule,
                            QzBackend::LoopTeam & team, double from = 0, double until = 0);

} // namespace QZmath::Stages

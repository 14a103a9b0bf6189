// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <cstdint>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

class SampleIndex;

struct BoundaryRule
{
    Boundary boundary = Boundary::automatic;
    double trimDistance = 0; ///< in model units
    double leafCell = 0;     ///< edge, in model units
    double largestHole = 0;  ///< see `ReconstructionOptions::largestHole`
    /// One a sample, not 0 for samples at the border of the object; may be null.
    std::uint8_t const * boundaryMarks = nullptr;
};

struct BoundaryFindings
{
    double supportedArea = 0; ///< of the surface at most the trim distance from the samples
    /// Unsupported patches that stay. Not counted are those smaller than the square of the trim distance,
    /// which lie between samples as they happen to fall.
    int holesClosed = 0;
    double closedArea = 0; ///< of all that stay
    int patchesCut = 0;
};

/// Closes gaps of a surface or cuts them open.
///
/// An unsupported patch is a connected part of the surface farther than the trim distance from all samples.
/// `Boundary::open` cuts all of them and `closed` keeps them all. `automatic` keeps those whose area is at
/// most `largestHole` of the supported area, unless they reach a border of the mesh, where the extraction has
/// given up on a patch that grew too large; and it drops pieces without any supported vertex. Where at least
/// half of the rim of a patch lies next to samples with boundary marks, `automatic` cuts it, too.
///
/// The line of exact trim distance consists of arcs around the samples with corners between them, and runs
/// that far outside of the data. So the cut looks back at the samples from twice the distance: out is what is
/// nearer to a point there than that point is to all samples, by one leaf cell or half the trim distance,
/// whichever is less; and all that is farther than the trim distance. The cut then runs along the rim of the
/// data as a wheel of that size would roll along it.
///
/// A manifold mesh stays so. Costs one question to the index per vertex; 60 bytes a vertex.
QZMATH_SISTER_API BoundaryFindings settleBoundary(TriangleMesh & mesh, SampleIndex const & samples,
                                                  BoundaryRule const & rule, QzBackend::LoopTeam & team,
                                                  double until = 0);

} // namespace QZmath::Stages

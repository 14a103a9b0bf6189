// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Lattice.h>
#include <QZmath/VolTriang/NodesPositioningPolicy.h>

#include <memory>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

class IInputSamples;

// How samples become the cells and nodes of a tree: what a tree is built by, and what counts it beforehand.

/// The policy of a tree.
/// \throws std::exception "Incorrect tree depth detected in VolTr::COctree constructor" for a depth that a
///         tree of this kind cannot have
QZMATH_SISTER_API std::unique_ptr<INodesPositioningPolicy> makeTreePolicy(int depth, bool useCenter,
                                                                          int detalizationLevel);

/// The cube that a tree divides into its lattice.
struct QZMATH_SISTER_API TreeCube
{
    double min[3] = {0.0, 0.0, 0.0};
    double max[3] = {0.0, 0.0, 0.0};
    double size = -1.0;
    int cellsPerAxis = 0;

    /// Lattice coordinate of `value` on an axis, rounded down, 0 when the cube has no extent there. Saturates
    /// far outside the lattice; NaN gives `ifNaN`.
    int toLattice(double value, int axis, int ifNaN) const;
    /// The leaf cell of a point; points outside the cube count to the cells at its faces.
    CInt3 cellOf(float const * point) const;
};

/// The cube around samples with these bounds.
QZMATH_SISTER_API TreeCube makeTreeCube(float const * low3, float const * high3,
                                        INodesPositioningPolicy const & policy);

/// The cube around all samples.
/// \throws std::exception that names the first sample with a coordinate that is not finite
QZMATH_SISTER_API TreeCube makeTreeCube(IInputSamples const & samples, INodesPositioningPolicy const & policy,
                                        QzBackend::LoopTeam & team);

} // namespace VolTr

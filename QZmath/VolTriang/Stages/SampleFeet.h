// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/RawArray.h>
#include <QZmath/Export.h>

#include <array>
#include <functional>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

class CloudPeers;
class EvaluableFunction;
struct StageContext;

/// Samples per leaf cell of the surface, occupied or not: of random points with a mean of rho a cell, the
/// cells that have any hold rho / (1 - exp(-rho)).
/// \param occupied occupied(up): how many cells `up` depths above the leaves hold samples, up to the root's
QZMATH_SISTER_API double samplesPerSurfaceCell(std::function<double(int)> const & occupied, int leafDepth,
                                               double samplesNumber);

/// The samples in an order in which neighbours stand close to each other, each with its foot: the point of
/// the level set above or below it, along the gradient and at most one cell of the deepest nodes away. 16
/// bytes a sample, and up to 20 before the feet are found. Where others hold samples too, those near the own
/// territory.
struct QZMATH_SISTER_API SampleFeet
{
    /// Serves the progress up to `until`.
    /// \param peers null when the samples are the whole cloud
    SampleFeet(StageContext const & context, EvaluableFunction const & function, double isoValue,
               QzBackend::LoopTeam & team, double until, CloudPeers * peers = nullptr);

    QzBackend::RawArray<int> order;
    QzBackend::RawArray<std::array<float, 3>> offsets; ///< foot minus sample, in the order of `order`
    double samplesPerLeafCell = 0.0; ///< of the surface, whether a cell holds samples or not
};

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace VolTr
{
struct StageContext;
}

namespace QZmath::Distributed
{

class Communicator;
struct RankCloud;

/// Edge of the square of surface that one sample of all ranks stands for: the median over some thousand
/// samples, chosen by their coordinates, of the distance to the eighth nearest other place. No more than
/// that of samples which have the margin of the cloud to themselves, so that it is the same for any number of
/// ranks. Local units; collective.
double measureSpacing(Communicator const & ranks, RankCloud const & cloud,
                      VolTr::StageContext const & context);

} // namespace QZmath::Distributed

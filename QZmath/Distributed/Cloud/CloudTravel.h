// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Cloud/RankCloud.h>
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Distributed/Export.h>
#include <QZmath/Distributed/Ranks/Partition.h>
#include <QZmath/Foundation/PointCloudView.h>
#include <QZmath/VolTriang/Tree/TreeRule.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace QZmath::Distributed
{

/// Units end so many depths above the leaf cells, so that the smallest one holds a brick of 8 deepest nodes.
int const unitsAboveLeaves = 4;

/// The octree's cube around the samples of all ranks: that which one process would make of all of them.
QZMATH_DISTRIBUTED_API VolTr::TreeCube treeCubeOf(CloudFrame const & frame);

/// Brings the samples of all ranks to the ranks of their territories. Collective.
///
/// First the ranks agree on the coordinates, which are those of one process that had all points, and on the
/// depth. Then they count samples and leaf cells by units, cut the curve through the units so that no rank
/// has more than 1.1 times its share of either where units allow that, and send each sample once to its
/// owner and to each rank that is not farther than the margin. Units are as coarse as this allows. The margin
/// is narrow for a cloud with normals that has samples in most of the leaf cells of its surface.
///
/// Samples stand in the order of their numbers, so neither the ranks that had them nor the timing show. The
/// samples on their way take little more than the result: they travel in rounds.
///
/// \param local       may have no points; normals are needed where there are points
/// \param firstNumber of the local points among those of all ranks; ranges of ranks must not overlap
/// \param report      gets depth, leaf cell, samples, leaf cells, depth of the units and both balances
/// \throws RankError on all ranks for what one process would refuse, and where a rank would get more than
///         2147483647 samples
QZMATH_DISTRIBUTED_API RankCloud gatherCloud(Communicator const & communicator, PointCloudView const & local,
                                             std::int64_t firstNumber, DistributedOptions const & options,
                                             CloudFrame & frame, std::optional<Partition> & partition,
                                             DistributedReport & report);

/// Gives the copies of samples the values that their owners have. Collective.
/// \param cloud, partition from `gatherCloud`, with the octree's cube and depth
/// \param values a sample; those of own samples count
QZMATH_DISTRIBUTED_API void spreadToCopies(Communicator const & communicator, RankCloud const & cloud,
                                           Partition const & partition, VolTr::TreeCube const & cube,
                                           int depth, std::vector<float> & values);

} // namespace QZmath::Distributed

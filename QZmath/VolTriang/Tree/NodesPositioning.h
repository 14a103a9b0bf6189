// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/NodesPositioningPolicy.h>

#include <memory>

namespace VolTr
{

/// The policy with nodes at cell centres or at cell corners, for a tree of `depth` (0 to 29) whose nodes
/// begin at `nodeDepthBegin`.
QZMATH_SISTER_API std::unique_ptr<INodesPositioningPolicy>
makeNodesPositioningPolicy(bool useCenter, int depth, int nodeDepthBegin);

} // namespace VolTr

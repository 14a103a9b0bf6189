// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace VolTr
{

/// The depths of an octree that carry nodes: from `begin` up to, but not including, `end`.
struct NodeDepths
{
    int begin;
    int end;
};

/// The rule: nodes at cell corners go down to the leaf cells, nodes at cell centres end a depth above them,
/// where the centre of a cell is still a place of the leaf lattice. `detalizationLevel` more depths above the
/// deepest one carry nodes, all of them when it is negative or there are not so many.
inline NodeDepths nodeDepthsOf(int octreeDepth, bool useCenter, int detalizationLevel)
{
    int const deepest = octreeDepth - (useCenter ? 1 : 0);
    int const levels = detalizationLevel < 0 || detalizationLevel > deepest ? deepest : detalizationLevel;
    return {deepest - levels, deepest + 1};
}

} // namespace VolTr

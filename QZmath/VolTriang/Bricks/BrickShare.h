// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <vector>

namespace VolTr
{

/// The part of a lattice's bricks that one of several processes works on, and its exchange with the others.
///
/// The lattice of a process has its own bricks and, around them, copies of bricks of others, foreign ones. On
/// replicated levels, the coarsest ones, every process has all bricks and does the same work on them. Numbers
/// over the bricks are dense. Levels count from the coarsest.
///
/// All processes call the members in the same order. A `begin` and its `end` have the same arguments; what
/// lies between them overlaps with the exchange, and must not write what is spread nor touch foreign bricks.
class QZMATH_SISTER_API BrickShare
{
public:
    virtual ~BrickShare();

    struct Part
    {
        bool isReplicated = false;
        std::vector<int> shared;  ///< own bricks of which others have copies, ascending
        std::vector<int> inner;   ///< the other own bricks, ascending; all bricks of a replicated level
        std::vector<int> foreign; ///< ascending
    };
    virtual Part const & part(int level) const = 0;

    /// Nodes of foreign bricks get the numbers of their owners; places without a node keep theirs.
    virtual void beginSpread(int level, float * numbers) = 0;
    virtual void endSpread(int level, float * numbers) = 0;
    /// The numbers of foreign bricks are added to those of their owners.
    virtual void beginCollect(int level, float * numbers) = 0;
    virtual void endCollect(int level, float * numbers) = 0;
    /// The numbers of the replicated levels, from the coarsest, become the sums of those of all processes.
    virtual void sumReplicated(std::vector<float *> const & levels) = 0;
};

} // namespace VolTr

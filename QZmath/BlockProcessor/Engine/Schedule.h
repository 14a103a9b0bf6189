// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/BlockProcessor/BlockStructure.h>

#include <vector>

namespace BlockProc
{

/// Which blocks of a pass are processed, which are in work and which wait. All calls, `begin` apart, are made
/// under the block mutex.
///
/// Blocks lie in ascending address order. All in front of the next block are processed, which needs no list;
/// those finished behind it stand in one, sorted by address, and leave it when the next block has passed
/// them. So a look-up costs the logarithm of what is finished out of turn, and a pass over a long structure
/// keeps no record of its length.
class Schedule
{
public:
    /// Starts a pass, of no blocks when `structure` is null. `workers` is how many blocks may be in work at
    /// once, for room.
    void begin(CBlockStructure const * structure, int workers);

    /// The number of blocks that the structure told at the start; -1 without one.
    int blockCount() const { return m_blockCount; }
    bool isProcessed(IVescaFragmentDescriptor_Old const & block) const;
    /// Neither processed nor in work, and independent of all blocks in work.
    bool isReady(IVescaFragmentDescriptor_Old const & block) const;
    /// Is any block not processed yet? It may be in work.
    bool hasPotentialJob() const;
    bool hasCurrentJob() const;

    /// Puts the first ready block into work and returns it; the end position if there is none.
    Block_iter takeFirstReady();
    /// The block waits again, or is to be recorded as finished next.
    void takeOutOfWork(Block_iter block);
    void recordFinished(Block_iter block);

private:
    Block_iter end() const;
    Block_iter firstUnprocessed(Block_iter end) const;
    Block_iter firstReady(Block_iter end) const;
    bool isAmongFinished(IVescaFragmentDescriptor_Old const * block) const;

    CBlockStructure const * m_structure = nullptr;
    Block_iter m_nextBlock; ///< All blocks before it are processed.
    std::vector<Block_iter> m_blocksInWork;
    std::vector<Block_iter> m_finishedBlocks; ///< Those at or behind the next block, in order.
    int m_blockCount = -1;
};

} // namespace BlockProc

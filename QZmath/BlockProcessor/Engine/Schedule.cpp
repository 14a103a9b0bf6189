// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/Engine/Schedule.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <functional>

namespace BlockProc
{

namespace
{

bool liesBefore(IVescaFragmentDescriptor_Old const * a, IVescaFragmentDescriptor_Old const * b)
{
    return std::less<IVescaFragmentDescriptor_Old const *>()(a, b);
}

bool startsBefore(Block_iter const & position, IVescaFragmentDescriptor_Old const * block)
{
    return liesBefore(position, block);
}

} // namespace

void Schedule::begin(CBlockStructure const * structure, int workers)
{
    m_structure = structure;
    m_nextBlock = Block_iter();
    m_blockCount = -1;
    if (m_structure) {
        m_structure->BlockBegin(m_nextBlock);
        m_blockCount = m_structure->BlockCount();
    }
    m_blocksInWork.clear();
    m_finishedBlocks.clear();
    m_blocksInWork.reserve(VsUt::asIndex(workers));
}

Block_iter Schedule::end() const
{
    Block_iter end;
    if (m_structure)
        m_structure->BlockEnd(end);
    return end;
}

bool Schedule::isAmongFinished(IVescaFragmentDescriptor_Old const * block) const
{
    auto const found =
        std::lower_bound(m_finishedBlocks.begin(), m_finishedBlocks.end(), block, startsBefore);
    return found != m_finishedBlocks.end() && *found == block;
}

bool Schedule::isProcessed(IVescaFragmentDescriptor_Old const & block) const
{
    // Behind the last block all are processed, wherever in memory the structure puts its end.
    return liesBefore(&block, m_nextBlock) || isAmongFinished(&block) ||
           (m_structure && m_nextBlock == end());
}

bool Schedule::isReady(IVescaFragmentDescriptor_Old const & block) const
{
    if (!m_structure || isProcessed(block))
        return false;
    return std::all_of(m_blocksInWork.begin(), m_blocksInWork.end(), [&](Block_iter const & inWork) {
        return inWork != &block && m_structure->AreBlocksIndependent(block, *inWork);
    });
}

Block_iter Schedule::firstUnprocessed(Block_iter end) const
{
    Block_iter block = m_nextBlock;
    while (block != end && isProcessed(*block))
        ++block;
    return block;
}

Block_iter Schedule::firstReady(Block_iter end) const
{
    Block_iter block = m_nextBlock;
    while (block != end && !isReady(*block))
        ++block;
    return block;
}

bool Schedule::hasPotentialJob() const { return firstUnprocessed(end()) != end(); }

bool Schedule::hasCurrentJob() const { return firstReady(end()) != end(); }

Block_iter Schedule::takeFirstReady()
{
    Block_iter const end = this->end();
    m_nextBlock = firstUnprocessed(end);
    m_finishedBlocks.erase(m_finishedBlocks.begin(),
                           m_nextBlock == end
                               ? m_finishedBlocks.end()
                               : std::lower_bound(m_finishedBlocks.begin(), m_finishedBlocks.end(),
                                                  static_cast<IVescaFragmentDescriptor_Old *>(m_nextBlock),
                                                  startsBefore));
    Block_iter const block = firstReady(end);
    if (block != end)
        m_blocksInWork.push_back(block);
    return block;
}

void Schedule::takeOutOfWork(Block_iter block)
{
    auto const inWork = std::find(m_blocksInWork.begin(), m_blocksInWork.end(), block);
    if (inWork == m_blocksInWork.end())
        return;
    *inWork = m_blocksInWork.back();
    m_blocksInWork.pop_back();
}

void Schedule::recordFinished(Block_iter block)
{
    IVescaFragmentDescriptor_Old const * const address = block;
    if (liesBefore(address, m_nextBlock))
        return;
    auto const place =
        std::lower_bound(m_finishedBlocks.begin(), m_finishedBlocks.end(), address, startsBefore);
    if (place == m_finishedBlocks.end() || *place != block)
        m_finishedBlocks.insert(place, block);
}

} // namespace BlockProc

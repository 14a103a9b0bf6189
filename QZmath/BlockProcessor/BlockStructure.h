// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <QZsys/Fragments.h>

namespace BlockProc
{

class CBlockStructure;

/// A position in a block structure. It names a block by the address of the block's descriptor and owns
/// nothing; a plain value of two pointers. A default-made one belongs to no structure.
class QZMATH_API Block_iter
{
public:
    Block_iter() = default;
    /// `block` is null or one past the last where the structure says so, see `CBlockStructure::BlockEnd`.
    Block_iter(IVescaFragmentDescriptor_Old * block, CBlockStructure const * structure)
        : m_block(block), m_structure(structure)
    {}

    /// Moves on to the next block by `CBlockStructure::NextBlock`; stays where it is without a structure. Not
    /// from the end position.
    Block_iter & operator++();
    Block_iter operator++(int);

    operator IVescaFragmentDescriptor_Old *() const { return m_block; }

    friend bool operator==(Block_iter const & a, Block_iter const & b)
    {
        return a.m_block == b.m_block && a.m_structure == b.m_structure;
    }
    friend bool operator!=(Block_iter const & a, Block_iter const & b) { return !(a == b); }

private:
    IVescaFragmentDescriptor_Old * m_block = nullptr;
    CBlockStructure const * m_structure = nullptr;
};

/// The blocks of a model: their order, their number, and which of them may be worked on at the same time.
///
/// The structure owns the descriptors. They must lie in ascending address order along the iteration, as the
/// elements of an array do: the schedule takes a block with a lower address than the next one for processed.
/// This is not checked.
///
/// Threads: while a pass is at work, all operations except `OnNewPass` are called from the workers' threads,
/// one call at a time; `OnNewPass` is called on the thread of `CBlockProcessor::Run`. The descriptors must
/// neither move nor change in number from `OnNewPass` until the end of the pass.
class QZMATH_API CBlockStructure
{
public:
    /// Sets `block` to the position behind it: `block = Block_iter(next, this)`.
    virtual void NextBlock(Block_iter & block) const = 0;
    virtual ~CBlockStructure();
    /// Called at the start of each pass, before the blocks are counted.
    virtual void OnNewPass() = 0;
    /// Whether `block`, which waits, may start while `blockInWork` is being worked on. The answer must be the
    /// same for both orders of two blocks, and false for a block and itself; the schedule does not hand out a
    /// block that is in work even if it is true.
    ///
    /// This alone decides how many blocks can be in work at once. It is asked under the lock of the schedule,
    /// for each waiting block that is looked at and each block in work, so it should be quick.
    virtual bool AreBlocksIndependent(IVescaFragmentDescriptor_Old const & block,
                                      IVescaFragmentDescriptor_Old const & blockInWork) const = 0;
    /// The number of blocks; progress is measured with it.
    virtual int BlockCount() const = 0;
    /// Sets `block` to the first block, or to the end position if there is none.
    virtual void BlockBegin(Block_iter & block) const = 0;
    /// Sets `block` to the position that `NextBlock` gives behind the last block.
    virtual void BlockEnd(Block_iter & block) const = 0;
    /// The place of a block, counted from 0, or -1 for what is no block of this structure. Walks from the
    /// beginning, O(number of blocks), and is called twice per block of a parallel run: a structure of many
    /// blocks should replace it by a subtraction.
    virtual int BlockIndex(Block_iter block) const;
};

} // namespace BlockProc

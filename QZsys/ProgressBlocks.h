// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>
#include <QZsys/Progress.h>

#include <mutex>
#include <vector>

/// Adds up the progress of workers that share the blocks of a job, each with a counter of its own, to one
/// parent counter. All blocks count alike; a block in work counts by the position of the counter that is
/// bound to it.
///
/// Threads: a child counter is operated by its worker's thread only, which is also the one that binds it to a
/// block and reports the block finished. The parent counter is operated by the thread that calls
/// `UpdateParentPrgCnt` only; its position never falls. Any thread may add and remove children; a child is
/// removed before it is destroyed. No lock is held while the parent's hooks run.
///
/// Stopping: when the parent throws in `UpdateParentPrgCnt`, because the user interrupted it or because of
/// its hook, all children are interrupted, also those added later, so that every worker ends with
/// `CUserIntrException` at its next progress operation. The interruption of a child alone concerns its own
/// worker only.
class QZSYS_API CPrgCntBlocksTreaded
{
public:
    /// The parent may be null; then nothing is reported. `blockCount` as in `setBlockCount`.
    explicit CPrgCntBlocksTreaded(CProgressCounter * parent, int blockCount = 0);
    CPrgCntBlocksTreaded(CPrgCntBlocksTreaded const &) = delete;
    CPrgCntBlocksTreaded & operator=(CPrgCntBlocksTreaded const &) = delete;

    /// Starts over with so many unfinished blocks, none in work; a negative count is 0. A job without blocks
    /// counts as done.
    void setBlockCount(int blockCount);

    /// Null, the parent itself and a child that is known already are ignored.
    void AddChildPrgCnt(CProgressCounter * child);
    /// What the child has done of a block in work is no longer counted. Unknown counters are ignored.
    void RemoveChildPrgCnt(CProgressCounter * child);

    /// From now on the child's position is that of the block; it goes back to 0 without calling the child's
    /// hooks, unless a sub-phase of the child is open. A block number out of range only frees the child from
    /// its former block.
    void BindChildToBlock(int block, CProgressCounter * child);
    /// Counts the block as done, once, and frees the child from it. A block number out of range is ignored.
    void OnOneBlockMoreFinished(int block, CProgressCounter * child);

    /// Moves the parent to the present sum; a progress operation on the parent. O(children).
    void UpdateParentPrgCnt();

private:
    struct Child
    {
        CProgressCounter * counter;
        int block; ///< -1 while in no block.
    };

    Child * findChild(CProgressCounter * counter);
    bool isBlock(int block) const;
    double overallPosition() const;

    CProgressCounter * const m_parent;
    std::mutex m_mutex; ///< Guards everything below.
    std::vector<Child> m_children;
    std::vector<char> m_blockFinished;
    int m_finishedCount = 0;
    double m_reported = 0.0;
    bool m_stopped = false;
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/BlockProcessor/BlockStructure.h>
#include <QZmath/Export.h>

#include <QZsys/DebugLog.h>
#include <QZsys/Fragments.h>
#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <memory>

namespace BlockProc
{

class CBlockProcessor;

/// One thread's share of a block-processing run. A client derives from it, gives `ProcessFragment` the work
/// on one block and keeps what that work needs in members: a worker's operations are called by one thread
/// only.
///
/// For each block, in this order: `BlockInit`, `BlockInitUnshared`, `ProcessFragment`, `BlockFinalize`. The
/// locks held during each are told at `CBlockProcessor`. `fragment` is what `CBlockProcessor::ExtractBlock`
/// returned, or null when blocks are not extracted; it belongs to the processor, which deletes it after the
/// block. A parallel run makes one worker per thread for each pass, a serial one makes one per block.
///
/// Failures: any operation may throw. In a parallel run `CUserIntrException` ends the run with
/// `QZ_STATUS_USER_INTR` and anything else with `QZ_STATUS_UNEXPECTED_ERR`; in a serial run an exception
/// reaches `CBlockProcessor::Run` as it is.
class QZMATH_API CBlockWorker : public virtual IVescaFragmentParallelWorker_Old
{
public:
    /// `processor` makes the worker and gets one read mutex more; with null the worker can do no work.
    ///
    /// With `ownProgress` the worker has a progress counter of its own, which a worker on a thread of its own
    /// must have: pass on what `CBlockProcessor::CreateBlockWorker` was given. False takes that of the
    /// processor.
    CBlockWorker(CBlockProcessor * processor, bool ownProgress);
    ~CBlockWorker() override;
    CBlockWorker(CBlockWorker const &) = delete;
    CBlockWorker & operator=(CBlockWorker const &) = delete;

    /// Called once, on the worker's thread, before the first block. Does nothing by default.
    virtual void Init();
    /// Reads from the model what the block needs. False skips the block, which counts as success. True by
    /// default.
    virtual bool BlockInit(IVescaFragmentDescriptor_Old & descriptor, IVescaFragment_Old * fragment);
    /// Called next, for what must not happen while other workers read: alone on the model, if
    /// `CBlockProcessor::NeedUnsharedWorkerInit`. False skips the block. True by default.
    virtual bool BlockInitUnshared(IVescaFragmentDescriptor_Old & descriptor, IVescaFragment_Old * fragment);
    /// Ends the work on a block. In a parallel run it is called only where the model is modified immediately,
    /// with the whole model locked.
    virtual void BlockFinalize(IVescaFragmentDescriptor_Old & descriptor, IVescaFragment_Old * fragment) = 0;

    /// Takes blocks from the processor and works on them until all are processed, an abort is requested or
    /// something fails. Never throws for a failed block: it is reported to the processor, whose run ends.
    /// Called by the processor on the worker's thread.
    void Work();

    /// Gives a block back to the schedule as finished, and reports that. Takes the block mutex.
    void ReturnBlockToManager(Block_iter block);

    /// The worker's lock for reading the model; owned by the processor, null without one.
    IVescaMutex * GetReadMutex() const { return m_readMutex; }
    /// The counter to report the work on the present block to, 0 to 1. Null if the worker has none.
    CProgressCounter * GetProgressCounter() const { return m_progress; }
    /// Set by the worker when no block can be started at present.
    IVescaBlockingEvent * GetIdleWorkerEvent() const { return m_idleEvent.get(); }
    /// Set to make an idle worker look for a block again.
    IVescaBlockingEvent * GetWorkerWakeUpEvent() const { return m_wakeUpEvent.get(); }
    /// Set to end the worker before its next block; an idle one ends within 20 milliseconds.
    IVescaBlockingEvent * GetWorkerAbortEvent() const { return m_abortEvent.get(); }

    /// The number in trace lines: 10000 + index in a parallel run.
    void SetID(int id) { m_id = id; }
    int GetID() const { return m_id; }
    /// The sink of trace lines, not owned; null, as at first, for none.
    void SetDebugLog(VsUt::IDebugLog * log) { m_debugLog = log; }
    VsUt::IDebugLog * GetDebugLog() const { return m_debugLog; }

private:
    void workOnBlocks();
    bool waitForWakeUp();

    CBlockProcessor * m_processor;
    IVescaMutex * m_readMutex = nullptr;
    CProgressCounter * m_progress = nullptr;
    bool m_ownsProgress;
    std::unique_ptr<IVescaBlockingEvent> m_idleEvent;
    std::unique_ptr<IVescaBlockingEvent> m_wakeUpEvent;
    std::unique_ptr<IVescaBlockingEvent> m_abortEvent;
    int m_id = 10000;
    VsUt::IDebugLog * m_debugLog = nullptr;
    std::unique_ptr<CProgressCounter> m_ownProgress; ///< Holds `m_progress` when `m_ownsProgress`.
};

} // namespace BlockProc

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/BlockProcessor/BlockStatus.h>
#include <QZmath/BlockProcessor/BlockStructure.h>
#include <QZmath/Export.h>

#include <QZsys/DebugLog.h>
#include <QZsys/Fragments.h>
#include <QZsys/Progress.h>
#include <QZsys/ProgressBlocks.h>
#include <QZsys/Threads.h>

#include <atomic>
#include <memory>

namespace BlockProc
{

class CBlockWorker;
class ModelLock;
class Schedule;

/// Walks a model block by block, in any number of passes, on the calling thread or on several workers.
///
/// A client derives from it and from `CBlockWorker`, and describes the blocks by a `CBlockStructure`. There
/// are two ways to work:
///  - Modify immediately: each block's result is written to the model as soon as it is done
///    (`ApplyBlockChanges`). With extraction, a block's data are taken out of the model before
///    (`ExtractBlock`), so that the work itself needs no lock.
///  - Otherwise the workers keep their results, and after all blocks of the pass `Run` calls
///    `ApplyBlockChangesBlockNotExtr` for each block in order. Extraction is not possible then.
///
/// Which thread calls what, and with which locks, in a parallel run. A thread that reads the model holds its
/// worker's read mutex, one that writes holds the read mutexes of all workers; so readers do not wait for
/// each other, and a writer is alone.
///
/// | operation | thread | locks |
/// |---|---|---|
/// | the global and pass actions, `CreateBlockWorker`, `OnNewPass` | of `Run` | none |
/// | `ApplyBlockChangesBlockNotExtr` | of `Run` | none |
/// | progress operations on the counter given | of `Run` | none |
/// | operations of the structure | workers | block mutex |
/// | `OnBlockProcessStart`, `OnBlockProcessFinish` | workers | block mutex |
/// | `ExtractBlock`, `BlockInit`, `NeedUnsharedWorkerInit` | workers | own read mutex |
/// | `BlockInitUnshared`, if `NeedUnsharedWorkerInit` | workers | all read mutexes |
/// | `BlockInitUnshared`, otherwise | workers | own read mutex |
/// | `Init`, `ProcessFragment`, `CheckWorkerResult` | workers | none |
/// | `BlockFinalize`, `ApplyBlockChanges` | workers | all read mutexes |
///
/// A serial run calls all of them on the thread of `Run`, holds no lock and writes no trace lines.
///
/// A block starts only when the structure says that it is independent of all blocks in work; of those the
/// first in order is taken. A worker that finds none sleeps until a block finishes.
///
/// Stopping: `SetAbortEvent` ends the run with `QZ_STATUS_UNEXPECTED_ERR`, and with `QZ_STATUS_USER_INTR` if
/// `SetUserBreak` was called before; `SetUserBreak` alone ends it too. Blocks in work are completed, no other
/// is started, and all workers have ended when `Run` returns. A request that is made before `Run` is honoured
/// by that run; both requests are cleared when a run has ended, so an object serves one run after another
/// whatever the outcome.
///
/// The result does not depend on the number of threads if the work on independent blocks does not depend on
/// their order.
///
/// Threads: `Run` and the setters belong to one thread, except `SetAbortEvent`, `SetUserBreak`, `IsUserBreak`
/// and `SetThisPassLast`, which may be called from anywhere.
///
/// Cost of scheduling: a few microseconds per block, plus one `AreBlocksIndependent` for each pair of a
/// waiting block that is looked at and a block in work. A worker looks at blocks from the first unfinished
/// one up to the first that can start.
class QZMATH_API CBlockProcessor
{
public:
    CBlockProcessor();
    CBlockProcessor(CBlockProcessor const &) = delete;
    CBlockProcessor & operator=(CBlockProcessor const &) = delete;

    /// Walks all blocks in all passes.
    /// @return `GetWholeProcessResult()`, 0 unless replaced; otherwise
    ///   - `QZ_STATUS_UNEXPECTED_ERR` (-1): no structure, an abort, a worker's error in a parallel run, or an
    ///     exception that is not listed here
    ///   - `QZ_STATUS_USER_INTR` (10): `CUserIntrException`, a worker's status 10, or a user break
    ///   - 9: blocks are to be extracted without being modified immediately; no operation is called
    ///   - 1: `std::bad_alloc` on this thread
    ///   - the code of an `EBlockAlgError` on this thread, such as a worker's status in a serial run
    int Run();

    /// The structure is not owned and must outlive the run.
    void SetBlockStructure(CBlockStructure * structure) { m_structure = structure; }
    /// The counter that `Run` reports to, on its own thread only. Not owned; null, as at first, for none.
    void SetProgressCounter(CProgressCounter * progress) { m_progress = progress; }
    CProgressCounter * GetProgressCounter() const { return m_progress; }
    /// Whether each block's result is written to the model at once; false at first.
    void SetImmediateBlockModify(bool modifyImmediately) { m_modifyImmediately = modifyImmediately; }
    bool DoModifyImmediately() const { return m_modifyImmediately; }
    /// Whether blocks are taken out of the model by `ExtractBlock`; false at first. Needs immediate
    /// modification.
    void SetExtractBlock(bool extract) { m_extract = extract; }
    bool DoBlockExtract() const { return m_extract; }
    /// The number of passes over all blocks; 1 at first. With 0 or less only the global actions run.
    void SetNPasses(int passes) { m_passCount = passes; }
    int GetNPasses() const { return m_passCount; }
    int TotalPassNum() const { return m_passCount; }
    /// The running pass, counted from 0; -1 before the first run.
    int CurrentPassNo() const { return m_currentPass; }
    /// Ends the run after the running pass, as if it were the last; `CurrentPassNo` tells the last from now
    /// on.
    void SetThisPassLast() { m_currentPass = m_passCount - 1; }

    /// The number of workers; a parallel run takes place from 2 on, and 1 or less means a serial one.
    /// `CVescaThreadingTasksHelper::getNumOfPhisicalThread()` is the usual choice.
    void SetNParralelThreads(int threads);
    /// False turns parallel work off and sets the number of workers to 1. True alone does not change the
    /// number: with less than 2 workers the run is still serial.
    void SetUseParallelThreads(bool parallel);

    /// Asks the run to end as one that the user stopped. False takes it back as long as it is not noticed.
    void SetUserBreak(bool userBreak = true);
    bool IsUserBreak() const { return m_userBreak; }
    /// Asks the run to end: sets the abort event.
    void SetAbortEvent();
    IVescaBlockingEvent * GetAbortEvent() const { return m_abortEvent.get(); }
    /// Set by a worker that has returned a block.
    IVescaBlockingEvent * GetOneBlockFinishedEvent() const { return m_blockFinishedEvent.get(); }
    /// Guards the schedule. Not to be held together with a read mutex.
    IVescaMutex * GetBlockMutex() const { return m_blockMutex.get(); }

    /// The sink of trace lines of parallel runs, not owned; null, as at first, for none. Called from all
    /// threads; what it throws ends the run.
    void SetDebugLog(VsUt::IDebugLog * log) { m_debugLog = log; }
    VsUt::IDebugLog * GetDebugLog() const { return m_debugLog; }

protected:
    virtual ~CBlockProcessor();

    /// Called once per run, before the first pass.
    virtual void PreliminaryGlobalActions();
    /// Called before each pass, before the structure's `OnNewPass`.
    virtual void PreliminaryPassActions();
    /// Called once per run, after the last pass.
    virtual void FinalGlobalActions();
    /// Called after each pass.
    virtual void FinalPassActions();
    /// The work on one block of a serial run that does not modify immediately: makes a worker and calls its
    /// operations.
    virtual void SingleBlockProcess(IVescaFragmentDescriptor_Old & descriptor);
    /// Writes a block's result to the model, where it is modified immediately.
    virtual void ApplyBlockChanges(IVescaFragmentDescriptor_Old const & descriptor,
                                   IVescaFragment_Old * fragment);
    /// Writes a block's result to the model after all blocks of the pass, where it is not.
    virtual void ApplyBlockChangesBlockNotExtr(IVescaFragmentDescriptor_Old const & descriptor);
    /// Makes a worker, which the processor deletes: `new Worker(this, parallel)`. Null ends the run with
    /// `QZ_STATUS_UNEXPECTED_ERR`.
    virtual CBlockWorker * CreateBlockWorker(bool parallel) = 0;
    /// Takes a block's data out of the model; the processor deletes them after the block. Null, the default,
    /// means that the block is empty: no operation of the worker is called for it.
    virtual IVescaFragment_Old * ExtractBlock(IVescaFragmentDescriptor_Old const & descriptor);
    /// Whether `CBlockWorker::BlockInitUnshared` must be alone on the model. False by default.
    virtual bool NeedUnsharedWorkerInit() const;
    /// Called first in each run: forget what `GetWholeProcessResult` tells of the former one.
    virtual void ResetWholeProcessStatus();
    /// Judges what `ProcessFragment` returned: 0 passes, 10 throws `CUserIntrException`, anything else
    /// `EBlockAlgError` with that code.
    virtual void CheckWorkerResult(int code);
    /// What `Run` returns when all went well; 0 by default.
    virtual int GetWholeProcessResult() const;

    /// Progress of a parallel run: by default the workers' counters are added up by a `CPrgCntBlocksTreaded`.
    /// Outside a parallel run there is none, and the following do nothing.
    virtual void InitThreadedPrgCnt();
    virtual void ReleaseThreadedPrgCnt();
    /// Called on the thread of `Run` each time that something happened, and at least every 50 milliseconds.
    virtual void UpdateParentPrgCnt();
    virtual void RegisterWorkerPrgCnt(CBlockWorker * worker);
    virtual void UnRegisterWorkerPrgCnt(CBlockWorker * worker);
    virtual void OnBlockProcessStart(Block_iter block, CBlockWorker * worker);
    virtual void OnBlockProcessFinish(Block_iter block, CBlockWorker * worker);

    CBlockStructure * GetBlockStructure() const { return m_structure; }
    /// The structure's end position; a default-made one without a structure.
    Block_iter BlockEnd() const;
    /// Puts the schedule to the start of a pass and forgets all read mutexes.
    void OnBlockStructureInit();

    // The schedule. The caller holds the block mutex.

    /// The first block that can start, from now on in work, or the end position.
    Block_iter LockNextBlock(CBlockWorker * worker);
    /// Takes a block out of work: it is finished.
    void UnLockBlock(Block_iter block, CBlockWorker * worker);
    /// Whether any block can start now.
    bool HasCurrentJob() const;
    /// Whether any block is not processed yet; it may be in work.
    bool HasPotentialJob() const;
    bool IsBlockProcessed(IVescaFragmentDescriptor_Old const & descriptor) const;
    /// Whether a block is neither processed nor in work, and independent of all blocks in work.
    bool IsBlockReadyForProcess(IVescaFragmentDescriptor_Old const & descriptor) const;

    /// Works on a block from extraction to writing back, on the worker's thread, which holds no lock.
    void BlockProcessCore(CBlockWorker & worker, IVescaFragmentDescriptor_Old & descriptor);
    /// Takes the read mutexes of all workers in order. The caller holds none of them.
    void LockAllMutexes(int workerId);
    void UnlockAllMutexes(int workerId);
    /// Makes a read mutex, owned by the processor until the next pass. Not while workers run.
    IVescaMutex * AddWorkerReadMutex();

private:
    friend class CBlockWorker;
    class Crew;

    bool isParallel() const { return m_useParallelThreads && m_threadCount >= 2; }
    bool isStopRequested() const;
    [[noreturn]] void throwStopped() const;
    void forgetRequests() noexcept;
    void processPass();
    void serialBlockProcess();
    void ParallelBlockProcess();
    bool superviseWorkers(Crew & crew);
    void SingleBlockProcessAndApply(IVescaFragmentDescriptor_Old & descriptor);
    void processOnThisThread(IVescaFragmentDescriptor_Old & descriptor, bool apply);

    CBlockStructure * m_structure = nullptr;
    CProgressCounter * m_progress = nullptr;
    std::unique_ptr<ModelLock> m_modelLock;
    bool m_modifyImmediately = false;
    bool m_extract = false;
    int m_passCount = 1;
    int m_threadCount = 0;
    std::unique_ptr<Schedule> m_schedule; ///< Guarded by the block mutex.
    std::atomic<bool> m_userBreak{false};
    std::atomic<int> m_currentPass{-1};
    std::unique_ptr<IVescaBlockingEvent> m_news; ///< Set with each event that the manager has to look at.
    std::unique_ptr<IVescaBlockingEvent> m_blockFinishedEvent;
    std::unique_ptr<IVescaBlockingEvent> m_abortEvent;
    std::unique_ptr<IVescaMutex> m_blockMutex;
    std::unique_ptr<CPrgCntBlocksTreaded> m_threadedProgress; ///< Null outside a parallel run.
    bool m_useParallelThreads = false;
    VsUt::IDebugLog * m_debugLog = nullptr;
};

} // namespace BlockProc

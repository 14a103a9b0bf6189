// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/BlockProcessor.h>

#include <QZmath/BlockProcessor/BlockWorker.h>
#include <QZmath/BlockProcessor/Engine/Crew.h>
#include <QZmath/BlockProcessor/Engine/Lockers.h>
#include <QZmath/BlockProcessor/Engine/Schedule.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <exception>
#include <new>

namespace BlockProc
{

namespace
{

constexpr int statusNoMemory = 1;
constexpr int statusBadConfiguration = 9;

// An event that tells a second one each time that it is set, so that one waiter can wait for several.
class TF_ReportingEvent final : public IVescaBlockingEvent
{
public:
    explicit TF_ReportingEvent(IVescaBlockingEvent & listener)
        : m_event(threadingFactory().makeBlockingEvent()), m_listener(listener)
    {}

    void set() override
    {
        m_event->set();
        m_listener.set();
    }
    bool wait(int milliseconds) override { return m_event->wait(milliseconds); }

private:
    std::unique_ptr<IVescaBlockingEvent> m_event;
    IVescaBlockingEvent & m_listener;
};

} // namespace

CBlockProcessor::CBlockProcessor()
    : m_modelLock(std::make_unique<ModelLock>()), m_schedule(std::make_unique<Schedule>()),
      m_news(threadingFactory().makeBlockingEvent()),
      m_blockFinishedEvent(std::make_unique<TF_ReportingEvent>(*m_news)),
      m_abortEvent(std::make_unique<TF_ReportingEvent>(*m_news)), m_blockMutex(threadingFactory().makeMutex())
{}

CBlockProcessor::~CBlockProcessor() = default;

void CBlockProcessor::SetNParralelThreads(int threads)
{
    m_threadCount = threads;
    m_useParallelThreads = threads > 1;
}

void CBlockProcessor::SetUseParallelThreads(bool parallel)
{
    m_useParallelThreads = parallel;
    if (!parallel)
        m_threadCount = 1;
}

void CBlockProcessor::SetUserBreak(bool userBreak)
{
    m_userBreak = userBreak;
    m_news->set();
}

void CBlockProcessor::SetAbortEvent() { m_abortEvent->set(); }

bool CBlockProcessor::isStopRequested() const
{
    bool const isAbort = m_abortEvent->wait(0);
    return isAbort || m_userBreak;
}

void CBlockProcessor::throwStopped() const
{
    throw EBlockAlgError(m_userBreak ? QZ_STATUS_USER_INTR : QZ_STATUS_UNEXPECTED_ERR);
}

void CBlockProcessor::forgetRequests() noexcept
{
    m_userBreak = false;
    m_abortEvent->wait(0);
    m_blockFinishedEvent->wait(0);
    m_news->wait(0);
}

int CBlockProcessor::Run()
{
    struct LC_Cleaner
    {
        CBlockProcessor & processor;
        ~LC_Cleaner() { processor.forgetRequests(); }
    } const cleaner{*this};

    if (!m_structure)
        return QZ_STATUS_UNEXPECTED_ERR;
    if (m_extract && !m_modifyImmediately)
        return statusBadConfiguration;
    try {
        ResetWholeProcessStatus();
        {
            CPrgCntSubPhase const phase(m_progress, 0, 5, 0, true);
            PreliminaryGlobalActions();
        }
        {
            CPrgCntSubPhase const phase(m_progress, 5, 90, 0, true);
            for (m_currentPass = 0; m_currentPass < m_passCount; ++m_currentPass) {
                double const share = 1.0 / m_passCount;
                CPrgCntSubPhase const passPhase(m_progress, m_currentPass * share, share, 1, true);
                processPass();
            }
        }
        {
            CPrgCntSubPhase const phase(m_progress, 95, 5, 0, true);
            FinalGlobalActions();
        }
        return GetWholeProcessResult();
    } catch (EBlockAlgError const & error) {
        return error.GetErrorCode();
    } catch (std::bad_alloc const &) {
        return statusNoMemory;
    } catch (CUserIntrException const &) {
        return QZ_STATUS_USER_INTR;
    } catch (...) {
        return QZ_STATUS_UNEXPECTED_ERR;
    }
}

void CBlockProcessor::processPass()
{
    {
        CPrgCntSubPhase const phase(m_progress, 0, 5, 0, true);
        PreliminaryPassActions();
        m_structure->OnNewPass();
        OnBlockStructureInit();
    }
    {
        CPrgCntSubPhase const phase(m_progress, 5, 90, 0, true);
        if (isParallel())
            ParallelBlockProcess();
        else
            serialBlockProcess();
    }
    {
        CPrgCntSubPhase const phase(m_progress, 95, 5, 0, true);
        if (!m_modifyImmediately) {
            Block_iter block;
            m_structure->BlockBegin(block);
            for (Block_iter const end = BlockEnd(); block != end; ++block)
                ApplyBlockChangesBlockNotExtr(*block);
        }
        FinalPassActions();
    }
}

void CBlockProcessor::serialBlockProcess()
{
    double const share = 1.0 / std::max(m_schedule->blockCount(), 1);
    Block_iter block;
    m_structure->BlockBegin(block);
    Block_iter const end = BlockEnd();
    for (int index = 0; block != end; ++block, ++index) {
        if (isStopRequested())
            throwStopped();
        CPrgCntSubPhase const phase(m_progress, index * share, share, 1, true);
        if (m_modifyImmediately)
            SingleBlockProcessAndApply(*block);
        else
            SingleBlockProcess(*block);
    }
    if (isStopRequested())
        throwStopped();
}

void CBlockProcessor::SingleBlockProcess(IVescaFragmentDescriptor_Old & descriptor)
{
    processOnThisThread(descriptor, false);
}

void CBlockProcessor::SingleBlockProcessAndApply(IVescaFragmentDescriptor_Old & descriptor)
{
    processOnThisThread(descriptor, true);
}

void CBlockProcessor::processOnThisThread(IVescaFragmentDescriptor_Old & descriptor, bool apply)
{
    std::unique_ptr<CBlockWorker> const worker(CreateBlockWorker(false));
    if (!worker)
        throw CVescaException("No block worker was made");
    worker->Init();
    bool const extract = apply && m_extract;
    std::unique_ptr<IVescaFragment_Old> const fragment(extract ? ExtractBlock(descriptor) : nullptr);
    if (extract && !fragment)
        return;
    if (!worker->BlockInit(descriptor, fragment.get()) ||
        !worker->BlockInitUnshared(descriptor, fragment.get()))
        return;
    CheckWorkerResult(worker->ProcessFragment(descriptor, fragment.get()));
    worker->BlockFinalize(descriptor, fragment.get());
    if (apply && m_modifyImmediately)
        ApplyBlockChanges(descriptor, fragment.get());
}

void CBlockProcessor::ParallelBlockProcess()
{
    Crew crew(*this);
    bool isAborted = false;
    try {
        InitThreadedPrgCnt();
        crew.hire(m_threadCount);
        crew.start();
        isAborted = superviseWorkers(crew);
    } catch (...) {
        crew.stop();
        try {
            ReleaseThreadedPrgCnt();
        } catch (...) { // the first failure is the one to report
        }
        throw;
    }
    if (isAborted) {
        std::exception_ptr const failure = crew.stop();
        ReleaseThreadedPrgCnt();
        if (failure)
            std::rethrow_exception(failure);
        DebugThreadMgrMessage(m_debugLog, m_userBreak ? "Raising EBlockAlgError( QZ_STATUS_USER_INTR )"
                                                      : "Raising EBlockAlgError( QZ_STATUS_UNEXPECTED_ERR )");
        throwStopped();
    }
    ReleaseThreadedPrgCnt();
    DebugThreadMgrMessage(m_debugLog, "Thread stuff finished");
}

// Wakes idle workers and dismisses those that have ended, until none is left or a stop is requested.
// @return whether a stop was requested
bool CBlockProcessor::superviseWorkers(Crew & crew)
{
    for (;;) {
        bool const isLastLook = crew.isEmpty(); // for the request that the last worker left behind
        if (!isLastLook)
            UpdateParentPrgCnt();
        if (isStopRequested()) {
            DebugThreadMgrMessage(m_debugLog, "AbortEvent caught");
            return true;
        }
        if (isLastLook)
            return false;
        bool const isBlockFinished = m_blockFinishedEvent->wait(0);
        if (isBlockFinished)
            DebugThreadMgrMessage(m_debugLog, "One more finished block detected");
        bool const isWorkerReleased = crew.releaseOne();
        if (isBlockFinished || isWorkerReleased)
            crew.wakeUpIdles();
        else
            crew.awaitNews();
    }
}

void CBlockProcessor::OnBlockStructureInit()
{
    int const workers = isParallel() ? m_threadCount : 0;
    m_schedule->begin(m_structure, workers);
    m_modelLock->reset(workers);
}

Block_iter CBlockProcessor::BlockEnd() const
{
    Block_iter end;
    if (m_structure)
        m_structure->BlockEnd(end);
    return end;
}

bool CBlockProcessor::IsBlockProcessed(IVescaFragmentDescriptor_Old const & descriptor) const
{
    return m_schedule->isProcessed(descriptor);
}

bool CBlockProcessor::IsBlockReadyForProcess(IVescaFragmentDescriptor_Old const & descriptor) const
{
    return m_schedule->isReady(descriptor);
}

bool CBlockProcessor::HasPotentialJob() const { return m_schedule->hasPotentialJob(); }

bool CBlockProcessor::HasCurrentJob() const { return m_schedule->hasCurrentJob(); }

Block_iter CBlockProcessor::LockNextBlock(CBlockWorker * worker)
{
    DebugThreadMgrMessage(m_debugLog, "Manager state before locking next block");
    Block_iter const block = m_schedule->takeFirstReady();
    if (block == BlockEnd())
        return block;
    try {
        OnBlockProcessStart(block, worker);
    } catch (...) {
        m_schedule->takeOutOfWork(block);
        throw;
    }
    return block;
}

void CBlockProcessor::UnLockBlock(Block_iter block, CBlockWorker * worker)
{
    traceManagerQuietly(m_debugLog, "Manager state before unblocking block");
    m_schedule->takeOutOfWork(block);
    try {
        OnBlockProcessFinish(block, worker);
    } catch (...) {
        m_schedule->recordFinished(block); // no other worker may get it in the time until the run has ended
        throw;
    }
    m_schedule->recordFinished(block);
    DebugThreadMgrMessage(m_debugLog, "Manager state after UnLocking block");
}

void CBlockProcessor::BlockProcessCore(CBlockWorker & worker, IVescaFragmentDescriptor_Old & descriptor)
{
    VsUt::IDebugLog * const log = worker.GetDebugLog();
    int const id = worker.GetID();
    void const * const block = &descriptor;
    void const * const readMutex = worker.GetReadMutex();

    DebugThreadMessage(log, id, "Processing block %p", block);
    TF_SingleMutexLocker readLock(worker.GetReadMutex(), log, id);
    DebugThreadMessage(log, id, "Entered read mutex %p for extracting from huge model", readMutex);
    DebugThreadMessage(log, id, "Extracting block %p", block);
    std::unique_ptr<IVescaFragment_Old> fragment(m_extract ? ExtractBlock(descriptor) : nullptr);
    DebugThreadMessage(log, id, "Block extraction finished");
    if (m_extract && !fragment) {
        DebugThreadMessage(log, id, "Empty block ");
        return;
    }
    // Leaving early deletes the fragment while the lock is still held, as the fragment is the younger object.
    if (!worker.BlockInit(descriptor, fragment.get())) {
        DebugThreadMessage(log, id, "!Worker.BlockInit()");
        return;
    }
    bool const needsWriteLock = NeedUnsharedWorkerInit();
    if (!needsWriteLock && !worker.BlockInitUnshared(descriptor, fragment.get())) {
        DebugThreadMessage(log, id, "!Worker.BlockInit()");
        return;
    }
    DebugThreadMessage(log, id, "Leaving read mutex %p for extracting from huge model", readMutex);
    readLock.unlock();

    if (needsWriteLock) {
        DebugThreadMessage(log, id, "Entering write mutex %p for init un-shared block init", readMutex);
        AllMutexesLocker const writeLock(*m_modelLock, m_debugLog, id);
        if (!worker.BlockInitUnshared(descriptor, fragment.get())) {
            DebugThreadMessage(log, id, "!Worker.BlockInit()");
            fragment.reset();
            return;
        }
        DebugThreadMessage(log, id, "Leaving write mutex %p for init un-shared block init", readMutex);
    }

    CheckWorkerResult(worker.ProcessFragment(descriptor, fragment.get()));

    if (m_modifyImmediately) {
        DebugThreadMessage(log, id, "Locking all mutexes due to updating block");
        AllMutexesLocker const writeLock(*m_modelLock, m_debugLog, id);
        DebugThreadMessage(log, id, "All mutexes locked due to updating block");
        worker.BlockFinalize(descriptor, fragment.get());
        DebugThreadMessage(log, id, "Entered mutex for updating huge model");
        DebugThreadMessage(log, id, "Updating huge model block %p", block);
        ApplyBlockChanges(descriptor, fragment.get());
        DebugThreadMessage(log, id, "Update completed");
        DebugThreadMessage(log, id, "Unlocking all mutexes caused by updating block");
    }
}

void CBlockProcessor::LockAllMutexes(int workerId) { m_modelLock->lockAll(m_debugLog, workerId); }

void CBlockProcessor::UnlockAllMutexes(int workerId) { m_modelLock->unlockAll(m_debugLog, workerId); }

IVescaMutex * CBlockProcessor::AddWorkerReadMutex() { return m_modelLock->addReader(); }

void CBlockProcessor::PreliminaryGlobalActions() {}
void CBlockProcessor::PreliminaryPassActions() {}
void CBlockProcessor::FinalGlobalActions() {}
void CBlockProcessor::FinalPassActions() {}
void CBlockProcessor::ApplyBlockChanges(IVescaFragmentDescriptor_Old const &, IVescaFragment_Old *) {}
void CBlockProcessor::ApplyBlockChangesBlockNotExtr(IVescaFragmentDescriptor_Old const &) {}
IVescaFragment_Old * CBlockProcessor::ExtractBlock(IVescaFragmentDescriptor_Old const &) { return nullptr; }
bool CBlockProcessor::NeedUnsharedWorkerInit() const { return false; }
void CBlockProcessor::ResetWholeProcessStatus() {}

void CBlockProcessor::CheckWorkerResult(int code)
{
    if (code == QZ_STATUS_USER_INTR)
        throw CUserIntrException("user interruption");
    if (code != 0)
        throw EBlockAlgError(code);
}

int CBlockProcessor::GetWholeProcessResult() const { return 0; }

void CBlockProcessor::InitThreadedPrgCnt()
{
    m_threadedProgress.reset();
    m_threadedProgress = std::make_unique<CPrgCntBlocksTreaded>(m_progress, m_schedule->blockCount());
}

void CBlockProcessor::ReleaseThreadedPrgCnt() { m_threadedProgress.reset(); }

void CBlockProcessor::UpdateParentPrgCnt()
{
    if (m_threadedProgress)
        m_threadedProgress->UpdateParentPrgCnt();
}

void CBlockProcessor::RegisterWorkerPrgCnt(CBlockWorker * worker)
{
    if (m_threadedProgress && worker)
        m_threadedProgress->AddChildPrgCnt(worker->GetProgressCounter());
}

void CBlockProcessor::UnRegisterWorkerPrgCnt(CBlockWorker * worker)
{
    if (m_threadedProgress && worker)
        m_threadedProgress->RemoveChildPrgCnt(worker->GetProgressCounter());
}

void CBlockProcessor::OnBlockProcessStart(Block_iter block, CBlockWorker * worker)
{
    if (m_threadedProgress && worker && m_structure)
        m_threadedProgress->BindChildToBlock(m_structure->BlockIndex(block), worker->GetProgressCounter());
}

void CBlockProcessor::OnBlockProcessFinish(Block_iter block, CBlockWorker * worker)
{
    if (m_threadedProgress && worker && m_structure)
        m_threadedProgress->OnOneBlockMoreFinished(m_structure->BlockIndex(block),
                                                   worker->GetProgressCounter());
}

} // namespace BlockProc

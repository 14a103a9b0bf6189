// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/BlockProcessor.h>

#include <QZmath/BlockProcessor/BlockWorker.h>
#include <QZmath/BlockProcessor/LockersDetail.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <new>

namespace BlockProc
{

namespace
{

/// The manager looks at its workers at least this often, in milliseconds.
constexpr int managerPeriod = 50;
constexpr int firstWorkerId = 10000;
constexpr int statusNoMemory = 1;
constexpr int statusBadConfiguration = 9;

IVescaThreadingFactory & threadingFactory() { return CVescaSingletonT<IVescaThreadingFactory>::Instance(); }

/// An event that tells a second one each time that it is set, so that one waiter can wait for several.
class TF_ReportingEvent final : public IVescaBlockingEvent
{
public:
    explicit TF_ReportingEvent(std::shared_ptr<IVescaBlockingEvent> listener)
        : m_event(threadingFactory().makeBlockingEvent()), m_listener(std::move(listener))
    {}

    void set() override
    {
        m_event->set();
        m_listener->set();
    }
    bool wait(int milliseconds) override { return m_event->wait(milliseconds); }

private:
    std::unique_ptr<IVescaBlockingEvent> m_event;
    std::shared_ptr<IVescaBlockingEvent> m_listener;
};

/// Owns what a client's hook has made.
template <class T>
class CStoredPtr
{
public:
    explicit CStoredPtr(T * object) : m_object(object) {}
    virtual ~CStoredPtr() { delete m_object; }
    CStoredPtr(CStoredPtr const &) = delete;
    CStoredPtr & operator=(CStoredPtr const &) = delete;

    T * get() const { return m_object; }
    void reset()
    {
        T * const object = m_object;
        m_object = nullptr;
        delete object;
    }

private:
    T * m_object;
};

bool liesBefore(IVescaFragmentDescriptor_Old const * a, IVescaFragmentDescriptor_Old const * b)
{
    return std::less<IVescaFragmentDescriptor_Old const *>()(a, b);
}

bool startsBefore(Block_iter const & position, IVescaFragmentDescriptor_Old const * block)
{
    return liesBefore(position, block);
}

} // namespace

/// Holds the read mutexes of all workers and traces that.
class CBlockProcessor::AllMutexesLocker
{
public:
    AllMutexesLocker(CBlockProcessor & processor, int workerId) : m_processor(processor), m_workerId(workerId)
    {
        m_processor.LockAllMutexes(m_workerId);
        m_locked = true;
        try {
            DebugThreadMessage(m_processor.m_debugLog, m_workerId, "All mutexes locked by locker %p",
                               address());
        } catch (...) {
            m_processor.UnlockAllMutexes(m_workerId);
            throw;
        }
    }
    ~AllMutexesLocker()
    {
        traceQuietly(m_processor.m_debugLog, m_workerId, "Destructor of locker %p entered", address());
        unlock();
    }
    AllMutexesLocker(AllMutexesLocker const &) = delete;
    AllMutexesLocker & operator=(AllMutexesLocker const &) = delete;

private:
    void const * address() const { return this; }

    void unlock()
    {
        traceQuietly(m_processor.m_debugLog, m_workerId, "Unlock of locker %p entered", address());
        if (m_locked)
            m_processor.UnlockAllMutexes(m_workerId);
        m_locked = false;
        traceQuietly(m_processor.m_debugLog, m_workerId, "All mutexes unlocked by locker %p", address());
    }

    CBlockProcessor & m_processor;
    bool m_locked = false;
    int m_workerId;
};

/// The entry of a worker's thread. Nothing escapes it: a failure ends in the abort event.
class CBlockProcessor::TF_InvokeWorker final : public IVescaInvokeProc
{
public:
    TF_InvokeWorker(CBlockProcessor & processor, CBlockWorker & worker)
        : m_processor(processor), m_worker(worker)
    {}

    void Invoke() override
    {
        try {
            trace("Initializing ...");
            m_worker.Init();
            m_worker.Work();
            trace("Work finished. Sending release signal.");
        } catch (CUserIntrException const &) {
            m_processor.SetUserBreak(true);
            fail();
        } catch (...) {
            fail();
        }
        m_isLeaving = true;
        m_processor.m_news->set();
    }

    /// True when the thread is about to end, if it has not ended yet.
    bool isLeaving() const { return m_isLeaving; }

private:
    void trace(char const * text) const
    {
        DebugThreadMessage(m_worker.GetDebugLog(), m_worker.GetID(), text);
    }

    void fail()
    {
        m_processor.SetAbortEvent();
        traceQuietly(m_worker.GetDebugLog(), m_worker.GetID(), "An ERROR occurred. Sending release signal.");
    }

    CBlockProcessor & m_processor;
    CBlockWorker & m_worker;
    std::atomic<bool> m_isLeaving{false};
};

/// The living workers of a pass with their threads. Used by the manager only.
class CBlockProcessor::Crew
{
public:
    explicit Crew(CBlockProcessor & processor) : m_processor(processor) {}
    ~Crew() { stop(); }
    Crew(Crew const &) = delete;
    Crew & operator=(Crew const &) = delete;

    bool isEmpty() const { return m_members.empty(); }

    /// Makes all workers, and with them all read mutexes: a writer has to take those of all workers, so no
    /// thread may start before.
    void hire(int count)
    {
        m_members.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            std::unique_ptr<CBlockWorker> worker(m_processor.CreateBlockWorker(true));
            if (!worker)
                throw CVescaException("No block worker was made");
            worker->SetID(firstWorkerId + i);
            worker->SetDebugLog(m_processor.m_debugLog);
            std::unique_ptr<TF_InvokeWorker> task(new TF_InvokeWorker(m_processor, *worker));
            std::unique_ptr<IVescaThread> thread(threadingFactory().makeThread());
            thread->setTask(task.get());
            m_processor.RegisterWorkerPrgCnt(worker.get());
            m_members.push_back({std::move(worker), std::move(task), std::move(thread)});
        }
    }

    void start()
    {
        for (Member const & member : m_members)
            member.thread->start();
    }

    /// Lets all workers finish the blocks that they have in work, and dismisses them.
    /// @return what a hook threw meanwhile; all workers are gone nevertheless
    std::exception_ptr stop() noexcept
    {
        std::exception_ptr failure;
        VsUt::IDebugLog * const log = m_processor.m_debugLog;
        for (Member const & member : m_members) {
            traceManagerQuietly(log, "Sending aborting signal to worker %d", member.worker->GetID());
            member.worker->GetWorkerAbortEvent()->set();
        }
        for (Member & member : m_members) {
            member.thread.reset();
            traceManagerQuietly(log, "Worker %d successfully aborted", member.worker->GetID());
            try {
                m_processor.UnRegisterWorkerPrgCnt(member.worker.get());
            } catch (...) {
                if (!failure)
                    failure = std::current_exception();
            }
            member.task.reset();
            member.worker.reset();
        }
        m_members.clear();
        return failure;
    }

    /// Dismisses the first worker whose thread has ended.
    bool releaseOne()
    {
        auto const ended = std::find_if(m_members.begin(), m_members.end(),
                                        [](Member const & member) { return member.thread->wait(0); });
        if (ended == m_members.end())
            return false;
        DebugThreadMgrMessage(m_processor.m_debugLog, "Worker ID=%d worker released", ended->worker->GetID());
        Member const member = std::move(*ended);
        m_members.erase(ended);
        m_processor.UnRegisterWorkerPrgCnt(member.worker.get());
        return true;
    }

    void wakeUpIdles()
    {
        VsUt::IDebugLog * const log = m_processor.m_debugLog;
        DebugThreadMgrMessage(log, "Waking up idles...");
        for (Member const & member : m_members) {
            if (!member.worker->GetIdleWorkerEvent()->wait(0))
                continue;
            DebugThreadMgrMessage(log, "Waking up idle worker ID = %d", member.worker->GetID());
            member.worker->GetWorkerWakeUpEvent()->set();
        }
        DebugThreadMgrMessage(log, "Waking up idles done.");
    }

    /// Sleeps until there may be something to do. Between a worker's last notice and the end of its thread
    /// there is no further notice to wait for, so then the thread itself is waited for.
    void awaitNews() const
    {
        for (Member const & member : m_members) {
            if (member.task->isLeaving()) {
                member.thread->wait(managerPeriod);
                return;
            }
        }
        m_processor.m_news->wait(managerPeriod);
    }

private:
    struct Member // destroyed from the last to the first: the thread's end is waited for before the rest goes
    {
        std::unique_ptr<CBlockWorker> worker;
        std::unique_ptr<TF_InvokeWorker> task;
        std::unique_ptr<IVescaThread> thread;
    };

    CBlockProcessor & m_processor;
    std::vector<Member> m_members;
};

CBlockProcessor::CBlockProcessor()
    : m_blockMutex(threadingFactory().makeMutex()), m_news(threadingFactory().makeBlockingEvent())
{
    m_blockFinishedEvent = std::make_unique<TF_ReportingEvent>(m_news);
    m_abortEvent = std::make_unique<TF_ReportingEvent>(m_news);
}

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
    double const share = 1.0 / std::max(m_blockCount, 1);
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
    CStoredPtr<CBlockWorker> const worker(CreateBlockWorker(false));
    if (!worker.get())
        throw CVescaException("No block worker was made");
    worker.get()->Init();
    bool const extract = apply && m_extract;
    CStoredPtr<IVescaFragment_Old> const fragment(extract ? ExtractBlock(descriptor) : nullptr);
    if (extract && !fragment.get())
        return;
    if (!worker.get()->BlockInit(descriptor, fragment.get()) ||
        !worker.get()->BlockInitUnshared(descriptor, fragment.get()))
        return;
    CheckWorkerResult(worker.get()->ProcessFragment(descriptor, fragment.get()));
    worker.get()->BlockFinalize(descriptor, fragment.get());
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

/// Wakes idle workers and dismisses those that have ended, until none is left or a stop is requested.
/// @return whether a stop was requested
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
    m_nextBlock = Block_iter();
    m_blockCount = -1;
    if (m_structure) {
        m_structure->BlockBegin(m_nextBlock);
        m_blockCount = m_structure->BlockCount();
    }
    m_blocksInWork.clear();
    m_finishedBlocks.clear();
    m_finishedCount = 0;
    m_readMutexes.clear();
    if (isParallel()) {
        m_readMutexes.reserve(static_cast<std::size_t>(m_threadCount));
        m_blocksInWork.reserve(static_cast<std::size_t>(m_threadCount));
    }
}

Block_iter CBlockProcessor::BlockEnd() const
{
    Block_iter end;
    if (m_structure)
        m_structure->BlockEnd(end);
    return end;
}

bool CBlockProcessor::isAmongFinished(IVescaFragmentDescriptor_Old const * block) const
{
    auto const found =
        std::lower_bound(m_finishedBlocks.begin(), m_finishedBlocks.end(), block, startsBefore);
    return found != m_finishedBlocks.end() && *found == block;
}

bool CBlockProcessor::IsBlockProcessed(IVescaFragmentDescriptor_Old const & descriptor) const
{
    // Behind the last block all are processed, wherever in memory the structure puts its end.
    return liesBefore(&descriptor, m_nextBlock) || isAmongFinished(&descriptor) ||
           (m_structure && m_nextBlock == BlockEnd());
}

bool CBlockProcessor::IsBlockReadyForProcess(IVescaFragmentDescriptor_Old const & descriptor) const
{
    if (!m_structure || IsBlockProcessed(descriptor))
        return false;
    return std::all_of(m_blocksInWork.begin(), m_blocksInWork.end(), [&](Block_iter const & inWork) {
        return inWork != &descriptor && m_structure->AreBlocksIndependent(descriptor, *inWork);
    });
}

Block_iter CBlockProcessor::firstUnprocessed(Block_iter from, Block_iter end) const
{
    while (from != end && IsBlockProcessed(*from))
        ++from;
    return from;
}

Block_iter CBlockProcessor::firstReady() const
{
    Block_iter const end = BlockEnd();
    Block_iter block = m_nextBlock;
    while (block != end && !IsBlockReadyForProcess(*block))
        ++block;
    return block;
}

bool CBlockProcessor::HasPotentialJob() const
{
    Block_iter const end = BlockEnd();
    return firstUnprocessed(m_nextBlock, end) != end;
}

bool CBlockProcessor::HasCurrentJob() const { return firstReady() != BlockEnd(); }

Block_iter CBlockProcessor::LockNextBlock(CBlockWorker * worker)
{
    DebugThreadMgrMessage(m_debugLog, "Manager state before locking next block");
    Block_iter const end = BlockEnd();
    m_nextBlock = firstUnprocessed(m_nextBlock, end);
    // What the next block has passed is known as processed by its place; only the rest has to be searched.
    m_finishedBlocks.erase(m_finishedBlocks.begin(),
                           m_nextBlock == end
                               ? m_finishedBlocks.end()
                               : std::lower_bound(m_finishedBlocks.begin(), m_finishedBlocks.end(),
                                                  static_cast<IVescaFragmentDescriptor_Old *>(m_nextBlock),
                                                  startsBefore));
    Block_iter const block = firstReady();
    if (block == end)
        return end;
    m_blocksInWork.push_back(block);
    try {
        OnBlockProcessStart(block, worker);
    } catch (...) {
        m_blocksInWork.pop_back();
        throw;
    }
    return block;
}

void CBlockProcessor::UnLockBlock(Block_iter block, CBlockWorker * worker)
{
    ++m_finishedCount;
    traceManagerQuietly(m_debugLog, "Manager state before unblocking block");
    auto const inWork = std::find(m_blocksInWork.begin(), m_blocksInWork.end(), block);
    if (inWork != m_blocksInWork.end()) {
        *inWork = m_blocksInWork.back();
        m_blocksInWork.pop_back();
    }
    try {
        OnBlockProcessFinish(block, worker);
    } catch (...) {
        recordFinished(block); // no other worker may get it in the time until the run has ended
        throw;
    }
    recordFinished(block);
    DebugThreadMgrMessage(m_debugLog, "Manager state after UnLocking block");
}

void CBlockProcessor::recordFinished(Block_iter block)
{
    IVescaFragmentDescriptor_Old const * const address = block;
    if (liesBefore(address, m_nextBlock))
        return;
    auto const place =
        std::lower_bound(m_finishedBlocks.begin(), m_finishedBlocks.end(), address, startsBefore);
    if (place == m_finishedBlocks.end() || *place != block)
        m_finishedBlocks.insert(place, block);
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
    CStoredPtr<IVescaFragment_Old> fragment(m_extract ? ExtractBlock(descriptor) : nullptr);
    DebugThreadMessage(log, id, "Block extraction finished");
    if (m_extract && !fragment.get()) {
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
        AllMutexesLocker const writeLock(*this, id);
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
        AllMutexesLocker const writeLock(*this, id);
        DebugThreadMessage(log, id, "All mutexes locked due to updating block");
        worker.BlockFinalize(descriptor, fragment.get());
        DebugThreadMessage(log, id, "Entered mutex for updating huge model");
        DebugThreadMessage(log, id, "Updating huge model block %p", block);
        ApplyBlockChanges(descriptor, fragment.get());
        DebugThreadMessage(log, id, "Update completed");
        DebugThreadMessage(log, id, "Unlocking all mutexes caused by updating block");
    }
}

void CBlockProcessor::LockAllMutexes(int workerId)
{
    DebugThreadMessage(m_debugLog, workerId, "Going to lock %d mutexes",
                       static_cast<int>(m_readMutexes.size()));
    std::size_t lockedCount = 0;
    try {
        for (std::unique_ptr<IVescaMutexPtr> const & mutex : m_readMutexes) {
            void const * const address = mutex->get();
            DebugThreadMessage(m_debugLog, workerId, "Locking mutex number %d",
                               static_cast<int>(lockedCount));
            DebugThreadMessage(m_debugLog, workerId, "Locking mutex %p", address);
            (*mutex)->lock();
            ++lockedCount;
            DebugThreadMessage(m_debugLog, workerId, "Mutex %p locked", address);
        }
    } catch (...) {
        for (std::size_t i = 0; i < lockedCount; ++i)
            (*m_readMutexes[i])->unlock();
        throw;
    }
}

void CBlockProcessor::UnlockAllMutexes(int workerId)
{
    traceQuietly(m_debugLog, workerId, "Going to unlock %d mutexes", static_cast<int>(m_readMutexes.size()));
    traceQuietly(m_debugLog, workerId, "Going to unlock all mutexes");
    int number = 0;
    for (std::unique_ptr<IVescaMutexPtr> const & mutex : m_readMutexes) {
        traceQuietly(m_debugLog, workerId, "Unlocking mutex number %d", number++);
        traceQuietly(m_debugLog, workerId, "Unlocking mutex %p", static_cast<void const *>(mutex->get()));
        (*mutex)->unlock();
    }
}

IVescaMutex * CBlockProcessor::AddWorkerReadMutex()
{
    m_readMutexes.push_back(std::make_unique<IVescaMutexPtr>(threadingFactory().makeMutex()));
    return m_readMutexes.back()->get();
}

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
    m_threadedProgress = std::make_unique<CPrgCntBlocksTreaded>(m_progress, m_blockCount);
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

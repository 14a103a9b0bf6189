// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/Engine/Crew.h>

#include <QZmath/BlockProcessor/BlockWorker.h>
#include <QZmath/BlockProcessor/Engine/Lockers.h>

#include <QZsys/Exceptions.h>
#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <atomic>

namespace BlockProc
{

namespace
{

// The manager looks at its workers at least this often, in milliseconds.
constexpr int managerPeriod = 50;
constexpr int firstWorkerId = 10000;

} // namespace

// The entry of a worker's thread. Nothing escapes it: a failure ends in the abort event.
class CBlockProcessor::Crew::TF_InvokeWorker final : public IVescaInvokeProc
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

    // True when the thread is about to end, if it has not ended yet.
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

// Destroyed from the last to the first: the thread's end is waited for before the rest goes.
struct CBlockProcessor::Crew::Member
{
    std::unique_ptr<CBlockWorker> worker;
    std::unique_ptr<TF_InvokeWorker> task;
    std::unique_ptr<IVescaThread> thread;
};

CBlockProcessor::Crew::Crew(CBlockProcessor & processor) : m_processor(processor) {}

CBlockProcessor::Crew::~Crew() { stop(); }

bool CBlockProcessor::Crew::isEmpty() const { return m_members.empty(); }

void CBlockProcessor::Crew::hire(int count)
{
    m_members.reserve(VsUt::asIndex(count));
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

void CBlockProcessor::Crew::start()
{
    for (Member const & member : m_members)
        member.thread->start();
}

std::exception_ptr CBlockProcessor::Crew::stop() noexcept
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

bool CBlockProcessor::Crew::releaseOne()
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

void CBlockProcessor::Crew::wakeUpIdles()
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

void CBlockProcessor::Crew::awaitNews() const
{
    for (Member const & member : m_members) {
        if (member.task->isLeaving()) {
            member.thread->wait(managerPeriod);
            return;
        }
    }
    m_processor.m_news->wait(managerPeriod);
}

} // namespace BlockProc

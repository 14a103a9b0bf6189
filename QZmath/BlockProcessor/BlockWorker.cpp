// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/BlockProcessor.h>
#include <QZmath/BlockProcessor/BlockWorker.h>
#include <QZmath/BlockProcessor/Engine/Lockers.h>

#include <QZsys/Exceptions.h>

namespace BlockProc
{

namespace
{

// An idle worker looks for an abort at least this often, in milliseconds.
constexpr int wakeUpTimeOut = 20;

} // namespace

CBlockWorker::CBlockWorker(CBlockProcessor * processor, bool ownProgress)
    : m_processor(processor), m_ownsProgress(ownProgress),
      m_idleEvent(threadingFactory().makeBlockingEvent()),
      m_wakeUpEvent(threadingFactory().makeBlockingEvent()),
      m_abortEvent(threadingFactory().makeBlockingEvent())
{
    if (m_ownsProgress) {
        m_ownProgress = std::make_unique<CProgressCounter>();
        m_progress = m_ownProgress.get();
    } else if (m_processor) {
        m_progress = m_processor->GetProgressCounter();
    }
    if (m_processor)
        m_readMutex = m_processor->AddWorkerReadMutex();
}

CBlockWorker::~CBlockWorker() = default;

void CBlockWorker::Init() {}

bool CBlockWorker::BlockInit(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) { return true; }

bool CBlockWorker::BlockInitUnshared(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) { return true; }

void CBlockWorker::Work()
{
    if (!m_processor)
        return;
    try {
        workOnBlocks();
    } catch (CUserIntrException const &) {
        m_processor->SetUserBreak(true);
        m_processor->SetAbortEvent();
    } catch (...) {
        traceQuietly(m_debugLog, m_id, "Unexpected error in BlockProc::CBlockWorker::Work()");
        m_processor->SetAbortEvent();
    }
}

void CBlockWorker::workOnBlocks()
{
    for (;;) {
        if (m_abortEvent->wait(0)) {
            DebugThreadMessage(m_debugLog, m_id, "Worker caught m_hWorkerAbortEvent. Quit work");
            return;
        }
        DebugThreadMessage(m_debugLog, m_id,
                           "Trying to lock manager before exclusive block locking/returning...");
        TF_SingleMutexLocker lock(m_processor->GetBlockMutex(), m_debugLog, m_id);
        if (!m_processor->HasPotentialJob()) {
            DebugThreadMessage(m_debugLog, m_id, "Blocks over");
            return;
        }
        if (!m_processor->HasCurrentJob()) {
            DebugThreadMessage(m_debugLog, m_id, "No free blocks, going to sleep...");
            // Still locked: a block that finishes right after the unlocking finds this worker idle.
            m_idleEvent->set();
            lock.unlock();
            DebugThreadMessage(m_debugLog, m_id, "Leave mutex %p for getting block",
                               static_cast<void const *>(m_processor->GetBlockMutex()));
            if (!waitForWakeUp())
                return;
            continue;
        }
        Block_iter const block = m_processor->LockNextBlock(this);
        if (block == m_processor->BlockEnd())
            return;
        // The block is this worker's now: whatever happens, it goes back to the schedule.
        try {
            lock.unlock();
            m_processor->BlockProcessCore(*this, *block);
        } catch (...) {
            traceQuietly(m_debugLog, m_id, "ERROR during BlockProcessCore");
            try {
                ReturnBlockToManager(block);
            } catch (...) { // the first failure is the one to report
            }
            throw;
        }
        ReturnBlockToManager(block);
    }
}

bool CBlockWorker::waitForWakeUp()
{
    for (;;) {
        bool const wokenUp = m_wakeUpEvent->wait(wakeUpTimeOut);
        if (m_abortEvent->wait(0)) {
            DebugThreadMessage(m_debugLog, m_id, "Waked up by abort event. Quit job.");
            return false;
        }
        if (wokenUp) {
            DebugThreadMessage(m_debugLog, m_id, "Waked up after sleep");
            return true;
        }
    }
}

void CBlockWorker::ReturnBlockToManager(Block_iter block)
{
    if (!m_processor)
        return;
    void const * const mutex = m_processor->GetBlockMutex();
    TF_SingleMutexLocker const lock(m_processor->GetBlockMutex(), m_debugLog, m_id);
    DebugThreadMessage(m_debugLog, m_id, "Enter mutex %p for unlock block", mutex);
    m_processor->UnLockBlock(block, this);
    DebugThreadMessage(m_debugLog, m_id, "Leave mutex %p for unlock block", mutex);
    DebugThreadMessage(m_debugLog, m_id,
                       "Reporting that block finished, one can try to wake up idle workers...");
    m_processor->GetOneBlockFinishedEvent()->set();
}

} // namespace BlockProc

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/TransThreadPrgCntAdapter.h>

#include <limits>
#include <utility>

namespace
{

IVescaThreadingFactory & threadingFactory() { return CVescaSingletonT<IVescaThreadingFactory>::Instance(); }

} // namespace

CTransThreadPrgCntAdapter::CRunCancelled::~CRunCancelled() = default;

char const * CTransThreadPrgCntAdapter::CRunCancelled::what() const noexcept
{
    return "The run was cancelled by its progress counter";
}

CTransThreadPrgCntAdapter::CTransThreadPrgCntAdapter()
    : m_mutex(threadingFactory().makeMutex()), m_timer(threadingFactory().makeTimer(this))
{}

CTransThreadPrgCntAdapter::~CTransThreadPrgCntAdapter() = default;

void CTransThreadPrgCntAdapter::refresh(CProgressCounter * progress, int total)
{
    m_scope.refresh(progress, total);
    m_undelivered = nullptr;
    if (m_cancelled.exchange(false)) {
        CVescaMutexLock const lock(m_mutex.get());
        m_pending = 0;
    }
    m_timer->restart();
}

void CTransThreadPrgCntAdapter::increment()
{
    bool const onOwnerThread = m_timer->isOwnerThread();
    if (m_cancelled.load(std::memory_order_relaxed) && (!onOwnerThread || m_undelivered))
        throw CRunCancelled();
    {
        CVescaMutexLock const lock(m_mutex.get());
        if (m_pending < std::numeric_limits<int>::max())
            ++m_pending;
    }
    if (!onOwnerThread || !m_timer->mayActNow())
        return;
    try {
        processPending();
    } catch (...) {
        // Raised inside a task, this would count as the task's own failure: the next event says what it
        // really was.
        m_undelivered = std::current_exception();
        throw;
    }
}

int CTransThreadPrgCntAdapter::onGetMillisecondsTimeOut() { return 100; }

void CTransThreadPrgCntAdapter::onProcessTimerEvent()
{
    if (!m_timer->isOwnerThread())
        return;
    if (m_undelivered)
        std::rethrow_exception(std::exchange(m_undelivered, nullptr));
    processPending();
}

void CTransThreadPrgCntAdapter::processPending()
{
    m_timer->restart();
    int steps = 0;
    {
        CVescaMutexLock const lock(m_mutex.get());
        steps = std::exchange(m_pending, 0);
    }
    try {
        while (steps > 0) {
            --steps;
            m_scope.increment();
        }
    } catch (...) {
        m_cancelled.store(true, std::memory_order_relaxed);
        CVescaMutexLock const lock(m_mutex.get());
        int const room = std::numeric_limits<int>::max() - m_pending;
        m_pending += steps < room ? steps : room;
        throw;
    }
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/TransThreadPrgCntAdapter.h>

#include <algorithm>
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
    if (m_state.exchange(State::running) != State::running) {
        CVescaMutexLock const lock(m_mutex.get());
        m_pending = 0;
    }
    m_timer->restart();
}

void CTransThreadPrgCntAdapter::increment()
{
    bool const onOwnerThread = m_timer->isOwnerThread();
    State const state = m_state.load(std::memory_order_relaxed);
    if (state == State::undelivered || (state == State::cancelled && !onOwnerThread))
        throw CRunCancelled();
    {
        CVescaMutexLock const lock(m_mutex.get());
        if (m_pending < std::numeric_limits<int>::max())
            ++m_pending;
    }
    if (!onOwnerThread || isReporting() || !m_timer->mayActNow())
        return;
    std::unique_lock<std::mutex> const reporting(m_reporting, std::try_to_lock);
    if (!reporting.owns_lock())
        return;
    try {
        processPending();
    } catch (...) {
        // Raised inside a task, this would count as the task's own failure: the next event says what it
        // really was.
        m_undelivered = std::current_exception();
        m_state.store(State::undelivered, std::memory_order_relaxed);
        throw;
    }
}

int CTransThreadPrgCntAdapter::onGetMillisecondsTimeOut() { return 100; }

void CTransThreadPrgCntAdapter::onProcessTimerEvent()
{
    if (isReporting())
        return;
    std::lock_guard<std::mutex> const reporting(m_reporting);
    if (m_undelivered) {
        m_state.store(State::cancelled, std::memory_order_relaxed);
        m_timer->restart();
        std::rethrow_exception(std::exchange(m_undelivered, nullptr));
    }
    processPending();
}

bool CTransThreadPrgCntAdapter::isReporting() const
{
    return m_reporter.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

// The caller holds `m_reporting`.
void CTransThreadPrgCntAdapter::processPending()
{
    m_timer->restart();
    int steps = 0;
    {
        CVescaMutexLock const lock(m_mutex.get());
        steps = std::exchange(m_pending, 0);
    }
    m_reporter.store(std::this_thread::get_id(), std::memory_order_relaxed);
    try {
        while (steps > 0) {
            --steps;
            m_scope.increment();
        }
    } catch (...) {
        m_reporter.store(std::thread::id(), std::memory_order_relaxed);
        m_state.store(State::cancelled, std::memory_order_relaxed);
        CVescaMutexLock const lock(m_mutex.get());
        int const room = std::numeric_limits<int>::max() - m_pending;
        m_pending += std::min(steps, room);
        throw;
    }
    m_reporter.store(std::thread::id(), std::memory_order_relaxed);
}

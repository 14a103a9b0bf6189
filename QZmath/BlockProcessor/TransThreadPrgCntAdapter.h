// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <atomic>
#include <exception>
#include <memory>

/// Carries the progress of worker threads to a counter that belongs to another thread.
///
/// The owner thread calls `refresh`, then `CVescaThreadingTasksHelper::performInParallel` with this object as
/// the observer. The tasks call `increment()` once per step. A step that is counted on a foreign thread only
/// waits; the owner thread passes the waiting steps on, one report for each, at the timer events (every 100
/// milliseconds and at the end) or at an `increment()` of its own when a period has passed. No other thread
/// ever touches the counter; `processTimerEvent` called on one leaves the steps waiting.
///
/// Stopping: when the counter throws (the user's interruption, or a hook), the run is cancelled: from then on
/// `increment()` throws `CRunCancelled` on foreign threads, so that the tasks end at their next step, and
/// `performInParallel` rethrows what the counter threw. `refresh` ends this state. A step is taken off the
/// waiting ones before it is reported, so an exception never reports one twice or loses those behind it. No
/// lock is held while the counter works.
///
/// `increment()` is thread-safe and costs an uncontended mutex; the rest belongs to the owner thread.
class QZMATH_API CTransThreadPrgCntAdapter : public IVescaThreadOnTimerObserver
{
public:
    /// What `increment()` throws on a foreign thread after the counter has thrown. Tasks let it pass.
    class QZMATH_API CRunCancelled : public std::exception
    {
    public:
        ~CRunCancelled() override;
        char const * what() const noexcept override;
    };

    CTransThreadPrgCntAdapter();
    ~CTransThreadPrgCntAdapter() override;
    CTransThreadPrgCntAdapter(CTransThreadPrgCntAdapter const &) = delete;
    CTransThreadPrgCntAdapter & operator=(CTransThreadPrgCntAdapter const &) = delete;

    /// Starts a run of `total` steps (a negative total counts as 0, and each step then reports position 1) on
    /// a counter that may be null, and makes the calling thread the owner. Not while tasks are running. Steps
    /// still waiting belong to the new run, unless the former one was cancelled.
    void refresh(CProgressCounter * progress, int total);

    /// One step more. Steps past the total stay at the total.
    void increment();

protected:
    int onGetMillisecondsTimeOut() override;
    void onProcessTimerEvent() override;

private:
    void processPending();

    std::unique_ptr<IVescaMutex> m_mutex; ///< Guards `m_pending`.
    int m_pending = 0;
    CPrgCntIntegerScope m_scope; ///< The owner thread's.
    std::unique_ptr<IVescaTimer> m_timer;
    std::atomic<bool> m_cancelled{false};
    std::exception_ptr m_undelivered; ///< Thrown by the counter inside a task on the owner thread.
};

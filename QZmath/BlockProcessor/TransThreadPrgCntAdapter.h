// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

/// Carries the progress of worker threads to a counter that they must not touch.
///
/// A client calls `refresh`, then `CVescaThreadingTasksHelper::performInParallel` with this object as the
/// observer. The tasks call `increment()` once per step. A step that is counted on a foreign thread only
/// waits; the waiting steps are passed on, one report for each, by the thread that serves the timer events
/// (every 100 milliseconds and at the end), whichever that is. It is the owner from then on; before the first
/// event that is the thread of `refresh`. The owner also passes them on at an `increment()` of its own when a
/// period has passed. Two threads never work on the counter at once: an event waits for its turn, an
/// `increment()` leaves its step to the thread that is at it.
///
/// Stopping: when the counter throws (the user's interruption, or a hook), the run is cancelled: from then on
/// `increment()` throws `CRunCancelled` on foreign threads, so that the tasks end at their next step, and
/// `performInParallel` rethrows what the counter threw. `refresh` ends this state. A step is taken off the
/// waiting ones before it is reported, so an exception never reports one twice or loses those behind it.
///
/// `increment()` is thread-safe and costs an uncontended mutex, which is not held while the counter works; a
/// hook may call it, and its step waits for the next event. `processTimerEvent` is thread-safe as well.
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
    /// a counter that may be null, and makes the calling thread the owner. Not while tasks are running or
    /// an event is served. Steps still waiting belong to the new run, unless the former one was cancelled.
    void refresh(CProgressCounter * progress, int total);

    /// One step more. Steps past the total stay at the total.
    void increment();

protected:
    int onGetMillisecondsTimeOut() override;
    void onProcessTimerEvent() override;

private:
    enum class State
    {
        running,
        undelivered, ///< The counter has thrown inside a task; the next event tells the caller.
        cancelled    ///< The counter has thrown, and the caller knows.
    };

    bool isReporting() const;
    void processPending();

    std::unique_ptr<IVescaMutex> m_mutex; ///< Guards `m_pending`.
    int m_pending = 0;
    std::mutex m_reporting; ///< Guards the counter: `m_scope` and `m_undelivered`.
    CPrgCntIntegerScope m_scope;
    std::unique_ptr<IVescaTimer> m_timer;
    std::atomic<State> m_state{State::running};
    std::atomic<std::thread::id> m_reporter{}; ///< The thread inside the counter, which must not enter again.
    std::exception_ptr m_undelivered;          ///< What the counter threw inside a task.
};

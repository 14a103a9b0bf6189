// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>

class CProgressCounter;

namespace VolTr
{

/// Threads that stay together for a job of many short parallel loops, so that a loop costs microseconds
/// instead of the start of threads.
///
/// `run` calls the job once, on one thread; the job hands loops to `forEach`, in which the other threads
/// join. Threads that the machine does not give are not missed: the loops then run on those that are there.
/// The progress counter is touched by the thread that called `run` only, and its interruption ends the job at
/// the next `setPosition`.
class WorkTeam
{
public:
    /// \param threads  at least 1; with 1 everything runs on the calling thread
    /// \param progress may be null
    /// \throws what the job throws, or what the progress counter throws
    static void run(int threads, CProgressCounter * progress, std::function<void(WorkTeam &)> const & job);

    WorkTeam(WorkTeam const &) = delete;
    WorkTeam & operator=(WorkTeam const &) = delete;

    /// Calls body(index) for 0 <= index < count, each once, in any order and on any thread of the team, and
    /// waits for all. Called by the job only, not from inside a body. When bodies throw, the exception of the
    /// least index is rethrown; others may not have been called then.
    template <class Body>
    void forEach(int count, Body const & body)
    {
        if (m_threads == 1 || count < 2) {
            for (int index = 0; index < count; ++index)
                body(index);
            return;
        }
        runLoop(
            count, [](void const * context, int index) { (*static_cast<Body const *>(context))(index); },
            &body);
    }

    int threads() const { return m_threads; }

    /// Position of the job, 0 to 1. \throws on the job's thread, to unwind it, when the user has interrupted
    void setPosition(double position);

private:
    class Host;
    using Call = void (*)(void const *, int);

    WorkTeam(int threads, CProgressCounter * progress) : m_threads(threads), m_progress(progress) {}
    void runLoop(int count, Call call, void const * context);
    void takeIndices();
    void help();
    void dismiss();

    int const m_threads;
    CProgressCounter * const
        m_progress; // null on teams of several threads, where the host serves the counter
    std::atomic<double> m_position{0.0};
    std::atomic<bool> m_isInterrupted{false};

    // The loop at hand. It is open while helpers may enter it.
    Call m_call = nullptr;
    void const * m_context = nullptr;
    int m_count = 0;
    int m_grain = 1; // indices that a thread takes at a time
    std::atomic<int> m_next{0};
    std::atomic<unsigned> m_loop{0}; // how many loops were begun; changes under the mutex
    int m_helpers = 0;               // inside the loop, under the mutex
    bool m_isOpen = false;
    bool m_isDismissed = false;
    std::mutex m_mutex;
    std::condition_variable m_loopBegun;
    std::condition_variable m_helpersLeft;
    int m_failedIndex = 0; // under the mutex
    std::exception_ptr m_failure;
};

} // namespace VolTr

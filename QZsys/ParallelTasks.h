// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>
#include <QZsys/Threads.h>

#include <functional>

/// Runs a handful of independent tasks at the same time. All operations are thread-safe; a task may run tasks
/// of its own.
class QZSYS_API CVescaThreadingTasksHelper
{
public:
    /// How many tasks are worth running at once, at least 1: the number given to `setNumOfPhisicalThread`,
    /// otherwise the cores that the calling thread may use by its affinity mask, cut down to the CPU quota of
    /// the process's control group (rounded up). The mask is asked for at each call, the quota when the
    /// library is loaded.
    static int getNumOfPhisicalThread();

    /// Replaces the machine's number for the whole process; 0 or less gives it back.
    static void setNumOfPhisicalThread(int n);

    /// Runs all tasks and returns when all of them have ended; everything they wrote is visible to the
    /// caller.
    ///
    /// Each task gets a thread of its own; the calling thread takes over the last task if there is no
    /// observer, and any task for which the machine gives no thread. So tasks must not wait for one another.
    /// Null entries are skipped; a null array or a count below 1 means no tasks.
    ///
    /// The observer (may be null) gets its timer event on the calling thread each time that its time-out
    /// passes (at least 1 ms), and once more after the last task has ended.
    ///
    /// Exceptions: if the observer threw, its exception is rethrown when all tasks have ended, and it gets no
    /// further event; so a user's interruption is never hidden by the failures that it causes. Otherwise the
    /// exception of the first task in the order of the array that threw one is rethrown. No task is stopped
    /// because of an exception elsewhere. `std::bad_alloc` can also come before any task has been started.
    ///
    /// Cost: one thread start for each task, some 20 microseconds.
    static void performInParallel(IVescaInvokeProc ** tasks, int count,
                                  IVescaThreadOnTimerObserver * observer);
};

/// While it lives, `CVescaThreadingTasksHelper::getNumOfPhisicalThread` gives another number on the thread
/// that made it, and only there: for one call that shall take more or fewer threads than the rest of the
/// process. Scopes are nested; the innermost counts.
class QZSYS_API CThreadNumberScope
{
public:
    /// \param threads 0 or less changes nothing
    explicit CThreadNumberScope(int threads) noexcept;
    ~CThreadNumberScope();
    CThreadNumberScope(CThreadNumberScope const &) = delete;
    CThreadNumberScope & operator=(CThreadNumberScope const &) = delete;

private:
    int m_before;
};

namespace VsUt
{

/// Calls `work` on so many threads at the same time, the calling one among them, and waits for all: with
/// `true` on the calling thread, with `false` on the others. Where the machine gives fewer threads, the
/// calling one makes their calls before its own: so the calls are to share out what there is to do, and not
/// to wait for one another. Exceptions and costs are those of
/// `CVescaThreadingTasksHelper::performInParallel`; with 1 thread or less no other one is begun.
QZSYS_API void callTogether(int threads, std::function<void(bool isCaller)> const & work);

} // namespace VsUt

// SPDX-License-Identifier: Apache-2.0
#include <QZsys/ParallelTasks.h>

#include "CpuConfDetail.h"
#include "IndexDetail.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <sched.h>
#include <system_error>
#include <thread>
#include <vector>

namespace
{

std::atomic<int> chosenNumOfThreads{0};
thread_local int numOfThreadsHere = 0; // of the innermost scope on this thread; 0 for none

// The cores in the affinity mask of the calling thread; 0 if the system does not say.
int affinityCores()
{
    // The mask of a large machine may be longer than cpu_set_t: ask with growing room until it fits.
    for (int capacity = CPU_SETSIZE; capacity <= (1 << 20); capacity *= 2) {
        cpu_set_t * const mask = CPU_ALLOC(static_cast<unsigned>(capacity));
        if (!mask)
            return 0;
        std::size_t const bytes = CPU_ALLOC_SIZE(static_cast<unsigned>(capacity));
        int const cores = sched_getaffinity(0, bytes, mask) == 0 ? CPU_COUNT_S(bytes, mask) : -1;
        CPU_FREE(mask);
        if (cores >= 0)
            return cores;
    }
    return 0;
}

// Tasks of one call: what they threw, and how many are still running on threads.
class TaskGroup
{
public:
    explicit TaskGroup(std::size_t count) : m_exceptions(count) { m_threads.reserve(count); }
    TaskGroup(TaskGroup const &) = delete;
    TaskGroup & operator=(TaskGroup const &) = delete;
    ~TaskGroup() { join(); }

    void runHere(std::size_t index, IVescaInvokeProc * task) noexcept
    {
        try {
            task->Invoke();
        } catch (...) {
            m_exceptions[index] = std::current_exception();
        }
    }

    // False when the machine gives no thread; nothing has been run then.
    bool runOnThread(std::size_t index, IVescaInvokeProc * task) noexcept
    {
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            ++m_running;
        }
        try {
            m_threads.emplace_back([this, index, task] {
                runHere(index, task);
                std::lock_guard<std::mutex> const lock(m_mutex);
                if (--m_running == 0)
                    m_allEnded.notify_all();
            });
            return true;
        } catch (std::exception const &) { // system_error or bad_alloc
            std::lock_guard<std::mutex> const lock(m_mutex);
            --m_running;
            return false;
        }
    }

    // True when all tasks on threads have ended, false after the time-out.
    bool waitForAll(std::chrono::milliseconds timeOut)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_allEnded.wait_for(lock, timeOut, [this] { return m_running == 0; });
    }

    void join()
    {
        for (std::thread & thread : m_threads)
            thread.join();
        m_threads.clear();
    }

    std::exception_ptr firstException() const
    {
        for (std::exception_ptr const & thrown : m_exceptions)
            if (thrown)
                return thrown;
        return nullptr;
    }

private:
    std::vector<std::exception_ptr> m_exceptions; // By task; each entry is written by its own task only.
    std::vector<std::thread> m_threads;
    std::mutex m_mutex;
    std::condition_variable m_allEnded;
    std::size_t m_running = 0;
};

} // namespace

int CVescaThreadingTasksHelper::getNumOfPhisicalThread()
{
    if (numOfThreadsHere > 0)
        return numOfThreadsHere;
    int const chosen = chosenNumOfThreads.load(std::memory_order_relaxed);
    if (chosen > 0)
        return chosen;
    int cores = affinityCores();
    if (cores < 1)
        cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    int const quota = settledCpuQuota();
    return quota > 0 ? std::min(cores, quota) : cores;
}

void CVescaThreadingTasksHelper::setNumOfPhisicalThread(int n)
{
    chosenNumOfThreads.store(std::max(n, 0), std::memory_order_relaxed);
}

void CVescaThreadingTasksHelper::performInParallel(IVescaInvokeProc ** tasks, int count,
                                                   IVescaThreadOnTimerObserver * observer)
{
    std::size_t const taskCount = tasks && count > 0 ? VsUt::asIndex(count) : 0;
    TaskGroup group(taskCount);
    std::vector<std::size_t> leftForThisThread;
    leftForThisThread.reserve(taskCount);
    for (std::size_t i = 0; i < taskCount; ++i) {
        if (!tasks[i])
            continue;
        bool const keptHere = !observer && i + 1 == taskCount;
        if (keptHere || !group.runOnThread(i, tasks[i]))
            leftForThisThread.push_back(i);
    }
    for (std::size_t const i : leftForThisThread)
        group.runHere(i, tasks[i]);

    std::exception_ptr observerException;
    if (observer) {
        try {
            while (
                !group.waitForAll(std::chrono::milliseconds(std::max(observer->getMillisecondsTimeOut(), 1))))
                observer->processTimerEvent();
            observer->processTimerEvent();
        } catch (...) {
            observerException = std::current_exception();
        }
    }
    group.join();

    if (observerException)
        std::rethrow_exception(observerException);
    if (std::exception_ptr const taskException = group.firstException())
        std::rethrow_exception(taskException);
}

CThreadNumberScope::CThreadNumberScope(int threads) noexcept : m_before(numOfThreadsHere)
{
    if (threads > 0)
        numOfThreadsHere = threads;
}

CThreadNumberScope::~CThreadNumberScope() { numOfThreadsHere = m_before; }

namespace VsUt
{

void callTogether(int threads, std::function<void(bool isCaller)> const & work)
{
    struct Call : IVescaInvokeProc
    {
        std::function<void(bool)> const * work = nullptr;
        bool isCaller = false;

        void Invoke() override { (*work)(isCaller); }
    };
    if (threads <= 1)
        return work(true);
    std::vector<Call> calls(asIndex(threads));
    std::vector<IVescaInvokeProc *> tasks;
    tasks.reserve(calls.size());
    for (Call & call : calls) {
        call.work = &work;
        tasks.push_back(&call);
    }
    calls.back().isCaller = true; // the last task stays on this thread
    CVescaThreadingTasksHelper::performInParallel(tasks.data(), threads, nullptr);
}

} // namespace VsUt

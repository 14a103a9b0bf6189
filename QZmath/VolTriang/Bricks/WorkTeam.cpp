// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Bricks/WorkTeam.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <algorithm>
#include <deque>
#include <thread>
#include <vector>

namespace VolTr
{

namespace
{

// Unwinds the job after the user's interruption, which the calling thread rethrows.
struct JobInterrupted
{};

// Looks at the next loop for this many rounds before a helper goes to sleep: the loops follow each other
// closely.
int const spinRounds = 2000;

class FunctionTask final : public IVescaInvokeProc
{
public:
    explicit FunctionTask(std::function<void()> function) : m_function(std::move(function)) {}
    void Invoke() override { m_function(); }

private:
    std::function<void()> m_function;
};

} // namespace

// Serves the progress counter on the calling thread while the team works.
class WorkTeam::Host final : public IVescaThreadOnTimerObserver
{
public:
    Host(WorkTeam & team, CProgressCounter * progress) : m_team(team), m_progress(progress) {}

private:
    int onGetMillisecondsTimeOut() override { return 20; }
    void onProcessTimerEvent() override
    {
        if (m_progress == nullptr || m_team.m_isInterrupted.load())
            return;
        try {
            m_progress->SetPosFloat(m_team.m_position.load());
        } catch (...) {
            m_team.m_isInterrupted.store(true);
            throw;
        }
    }

    WorkTeam & m_team;
    CProgressCounter * m_progress;
};

void WorkTeam::run(int threads, CProgressCounter * progress, std::function<void(WorkTeam &)> const & job)
{
    if (threads <= 1) {
        WorkTeam team(1, progress);
        job(team);
        return;
    }
    WorkTeam team(threads, nullptr);
    Host host(team, progress);
    std::deque<FunctionTask> tasks;
    // First of the tasks, so that it comes first even where tasks run one after the other.
    tasks.emplace_back([&team, &job] {
        struct Dismissal
        {
            WorkTeam & team;
            ~Dismissal() { team.dismiss(); }
        } const dismissal{team};
        try {
            job(team);
        } catch (JobInterrupted const &) {
        }
    });
    for (int helper = 1; helper < threads; ++helper)
        tasks.emplace_back([&team] { team.help(); });
    std::vector<IVescaInvokeProc *> procedures;
    for (FunctionTask & task : tasks)
        procedures.push_back(&task);
    CVescaThreadingTasksHelper::performInParallel(procedures.data(), threads, &host);
}

void WorkTeam::setPosition(double position)
{
    if (m_progress != nullptr)
        m_progress->SetPosFloat(position);
    m_position.store(position);
    if (m_isInterrupted.load())
        throw JobInterrupted();
}

void WorkTeam::runLoop(int count, Call call, void const * context)
{
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_call = call;
        m_context = context;
        m_count = count;
        // Few enough indices at a time to balance, enough to make the counter cheap.
        m_grain = std::clamp(count / (16 * m_threads), 1, 64);
        m_next.store(0, std::memory_order_relaxed);
        m_failure = nullptr;
        m_isOpen = true;
        m_loop.fetch_add(1, std::memory_order_release);
    }
    m_loopBegun.notify_all();
    takeIndices();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isOpen = false;
    m_helpersLeft.wait(lock, [this] { return m_helpers == 0; });
    if (m_failure)
        std::rethrow_exception(m_failure);
}

void WorkTeam::takeIndices()
{
    for (;;) {
        int const begin = m_next.fetch_add(m_grain, std::memory_order_relaxed);
        if (begin >= m_count)
            return;
        int const end = std::min(begin + m_grain, m_count);
        int index = begin;
        try {
            for (; index < end; ++index)
                m_call(m_context, index);
        } catch (...) {
            std::lock_guard<std::mutex> const lock(m_mutex);
            if (!m_failure || index < m_failedIndex) {
                m_failure = std::current_exception();
                m_failedIndex = index;
            }
            // No further index is begun; all smaller ones have been.
            m_next.store(m_count, std::memory_order_relaxed);
        }
    }
}

void WorkTeam::help()
{
    unsigned seen = 0;
    for (;;) {
        for (int round = 0; round < spinRounds && m_loop.load(std::memory_order_acquire) == seen; ++round) {
            if (round % 64 == 63)
                std::this_thread::yield();
        }
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_loopBegun.wait(lock, [&] { return m_isDismissed || m_loop.load() != seen; });
            if (m_isDismissed)
                return;
            seen = m_loop.load();
            if (!m_isOpen)
                continue;
            ++m_helpers;
        }
        takeIndices();
        std::lock_guard<std::mutex> const lock(m_mutex);
        if (--m_helpers == 0)
            m_helpersLeft.notify_one();
    }
}

void WorkTeam::dismiss()
{
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_isDismissed = true;
    }
    m_loopBegun.notify_all();
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/TreeTasks.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Backend/Place.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <time.h>

namespace QzBackend
{

namespace
{

long const servingPeriod = 20; // milliseconds

long coarseMilliseconds()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return static_cast<long>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

} // namespace

TreeTasks::TreeTasks(std::vector<int> const & parent, CProgressCounter * progress, double work)
    : m_parent(parent), m_progress(progress), m_work(work), m_lastServed(coarseMilliseconds()),
      m_childrenLeft(parent.size(), 0), m_tasksLeft(static_cast<int>(parent.size()))
{
    for (int const above : parent)
        if (above >= 0)
            ++m_childrenLeft[at(above)];
    m_ready.reserve(parent.size());
    for (std::size_t task = 0; task < parent.size(); ++task)
        if (m_childrenLeft[task] == 0)
            m_ready.push_back(static_cast<int>(task)); // ascending, which is a heap
}

void TreeTasks::run(int threads, Call const & task)
{
    m_task = &task;
    // The counter is not given to the loop, which knows nothing of the position.
    LoopTeam::run(threads, nullptr, [&](LoopTeam & team) {
        m_threads = team.threads();
        m_parts.reserve(at(m_threads));
        team.forEachOnSlot(m_threads, [&](int slot, int) { attend(slot); });
    });
    if (m_failure)
        std::rethrow_exception(m_failure);
}

void TreeTasks::attend(int slot)
{
    Lock lock(m_mutex);
    while (m_tasksLeft > 0 && !m_isStopped) {
        if (Parts * const parts = openParts())
            runPart(slot, *parts, lock);
        else if (!m_ready.empty())
            runTask(slot, lock);
        else
            await(lock);
    }
}

TreeTasks::Parts * TreeTasks::openParts()
{
    for (Parts * const parts : m_parts)
        if (parts->begun < parts->count)
            return parts;
    return nullptr;
}

void TreeTasks::runPart(int slot, Parts & parts, Lock & lock)
{
    int const index = parts.begun++;
    ++parts.running;
    lock.unlock();
    try {
        parts.call(parts.part, slot, index);
    } catch (Stopped const &) {
    } catch (...) {
        stop(std::current_exception(), false);
    }
    lock.lock();
    if (--parts.running == 0 && parts.begun >= parts.count)
        m_changed.notify_all();
}

void TreeTasks::runTask(int slot, Lock & lock)
{
    std::pop_heap(m_ready.begin(), m_ready.end(), std::greater<int>());
    int const index = m_ready.back();
    m_ready.pop_back();
    lock.unlock();
    bool isDone = false;
    try {
        (*m_task)(slot, index);
        isDone = true;
    } catch (Stopped const &) {
    } catch (...) {
        stop(std::current_exception(), false);
    }
    lock.lock();
    if (!isDone)
        return;
    int const above = m_parent[at(index)];
    if (above >= 0 && --m_childrenLeft[at(above)] == 0) {
        m_ready.push_back(above);
        std::push_heap(m_ready.begin(), m_ready.end(), std::greater<int>());
        m_changed.notify_all(); // one that waits for its parts would take no notice
    }
    if (--m_tasksLeft == 0)
        m_changed.notify_all();
}

void TreeTasks::await(Lock & lock)
{
    if (m_progress == nullptr || std::this_thread::get_id() != m_caller) {
        m_changed.wait(lock);
        return;
    }
    m_changed.wait_for(lock, std::chrono::milliseconds(servingPeriod));
    lock.unlock();
    try {
        serveProgress();
    } catch (Stopped const &) {
    }
    lock.lock();
}

void TreeTasks::runParts(int slot, int count, void const * part, PartCall call)
{
    Parts parts{part, call, count};
    Lock lock(m_mutex);
    m_parts.push_back(&parts); // as many at a time as there are threads, so nothing is allocated
    m_changed.notify_all();
    while (parts.begun < parts.count && !m_isStopped)
        runPart(slot, parts, lock);
    parts.begun = parts.count;
    while (parts.running > 0)
        await(lock);
    m_parts.erase(std::find(m_parts.begin(), m_parts.end(), &parts));
    if (m_isStopped)
        throw Stopped();
}

void TreeTasks::worked(double work)
{
    double known = m_worked.load(std::memory_order_relaxed);
    while (!m_worked.compare_exchange_weak(known, known + work, std::memory_order_relaxed)) {
    }
    if (m_isStopped)
        throw Stopped();
    if (m_progress != nullptr && std::this_thread::get_id() == m_caller)
        serveProgress();
}

void TreeTasks::serveProgress()
{
    long const now = coarseMilliseconds();
    if (now - m_lastServed < servingPeriod || m_isStopped)
        return;
    m_lastServed = now;
    try {
        m_progress->SetPosFloat(std::min(m_worked.load(std::memory_order_relaxed) / m_work, 1.0));
    } catch (...) {
        stop(std::current_exception(), true);
        throw Stopped();
    }
}

void TreeTasks::stop(std::exception_ptr const & reason, bool byCounter)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    if (!m_failure || (byCounter && !m_isFailureOfCounter)) {
        m_failure = reason;
        m_isFailureOfCounter = byCounter;
    }
    m_isStopped = true;
    m_changed.notify_all();
}

} // namespace QzBackend

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/ParallelChunksDetail.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace REmath::Detail
{

namespace
{

/// The chunks that are still to be done.
struct Queue
{
    int const count;
    std::function<void(int, int)> const & work;
    std::atomic<int> next{0};
    std::atomic<bool> isStopped{false};
};

class ThreadTask : public IVescaInvokeProc
{
public:
    ThreadTask(Queue & queue, int thread) : m_queue(queue), m_thread(thread) {}

    void Invoke() override
    {
        try {
            for (int chunk = m_queue.next++; chunk < m_queue.count && !m_queue.isStopped;
                 chunk = m_queue.next++)
                m_queue.work(m_thread, chunk);
        } catch (...) {
            m_queue.isStopped = true;
            throw;
        }
    }

private:
    Queue & m_queue;
    int m_thread;
};

/// Reports from the waiting thread.
class Reporter : public IVescaThreadOnTimerObserver
{
public:
    Reporter(Queue & queue, CProgressCounter & progress) : m_queue(queue), m_progress(progress) {}

private:
    int onGetMillisecondsTimeOut() override { return 20; }
    void onProcessTimerEvent() override
    {
        try {
            m_progress.SetPosFloat(std::min(1.0, static_cast<double>(m_queue.next) / m_queue.count));
        } catch (...) {
            m_queue.isStopped = true;
            throw;
        }
    }

    Queue & m_queue;
    CProgressCounter & m_progress;
};

} // namespace

int threadsForChunks(int chunkCount)
{
    return std::max(1, std::min(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), chunkCount));
}

void forChunks(int chunkCount, int threads, CProgressCounter * progress,
               std::function<void(int, int)> const & work)
{
    if (threads <= 1) {
        for (int chunk = 0; chunk < chunkCount; ++chunk) {
            if (progress)
                progress->SetPosFloat(static_cast<double>(chunk) / chunkCount);
            work(0, chunk);
        }
        return;
    }
    Queue queue{chunkCount, work};
    std::vector<ThreadTask> tasks;
    std::vector<IVescaInvokeProc *> pointers;
    tasks.reserve(static_cast<std::size_t>(threads));
    for (int thread = 0; thread < threads; ++thread)
        pointers.push_back(&tasks.emplace_back(queue, thread));
    if (progress) {
        Reporter reporter(queue, *progress);
        CVescaThreadingTasksHelper::performInParallel(pointers.data(), threads, &reporter);
    } else {
        CVescaThreadingTasksHelper::performInParallel(pointers.data(), threads, nullptr);
    }
}

} // namespace REmath::Detail

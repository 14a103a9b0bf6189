// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class CProgressCounter;

namespace QzBackend
{

/// Runs tasks that form a forest, each one after its children, on the threads of a pool. A task may divide
/// its work into parts, with which threads help that have nothing better to do: at the top of a tree there
/// are few tasks, and large ones.
///
/// Which thread does what and when is open. Results do not depend on it as long as a task writes only what
/// belongs to it and reads nothing but what belongs to its descendants, and the parts are the same for any
/// number of threads.
///
/// The progress counter is touched on the calling thread only, about every 20 ms while that thread works, in
/// `worked`, and while it waits for others. When it throws, or a task does, the others end at their next call
/// of `worked`, and the exception comes out of `run`; that of the counter goes before those of tasks.
class TreeTasks
{
public:
    using Call = std::function<void(int slot, int index)>;

    /// \param parent   of each task, with a greater number, or -1
    /// \param progress may be null
    /// \param work     sum of what `worked` will be told, for the position of 0 to 1
    TreeTasks(std::vector<int> const & parent, CProgressCounter * progress, double work);
    TreeTasks(TreeTasks const &) = delete;
    TreeTasks & operator=(TreeTasks const &) = delete;

    /// Calls task(slot, index) for each task, on up to `threads` threads; calls at the same time have
    /// different slots, 0 <= slot < threads. Once only.
    void run(int threads, Call const & task);

    /// For tasks: calls part(slot, index) for 0 <= index < count and waits for all. Allocates nothing.
    template <class Part>
    void forParts(int slot, int count, Part const & part)
    {
        if (m_threads == 1 || count == 1) {
            for (int index = 0; index < count; ++index)
                part(slot, index);
            return;
        }
        runParts(slot, count, &part, [](void const * call, int onSlot, int index) {
            (*static_cast<Part const *>(call))(onSlot, index);
        });
    }

    /// For tasks and parts, to be called every few milliseconds of work. Throws when the tasks are to end.
    void worked(double work);

private:
    struct Stopped
    {};
    using PartCall = void (*)(void const * part, int slot, int index);
    struct Parts
    {
        void const * const part;
        PartCall const call;
        int const count;
        int begun = 0;
        int running = 0;
    };
    using Lock = std::unique_lock<std::mutex>;

    void attend(int slot);
    void runParts(int slot, int count, void const * part, PartCall call);
    Parts * openParts();
    void runPart(int slot, Parts & parts, Lock & lock);
    void runTask(int slot, Lock & lock);
    void await(Lock & lock);
    void serveProgress();
    void stop(std::exception_ptr const & reason, bool byCounter);

    std::vector<int> const & m_parent;
    CProgressCounter * const m_progress;
    double const m_work;
    std::thread::id const m_caller = std::this_thread::get_id();
    int m_threads = 1;
    Call const * m_task = nullptr;
    std::atomic<double> m_worked{0};
    std::atomic<bool> m_isStopped{false};
    long m_lastServed; ///< in milliseconds

    std::mutex m_mutex; // of all below
    std::condition_variable m_changed;
    std::vector<int> m_childrenLeft;
    std::vector<int> m_ready; ///< a heap, the least number on top
    std::vector<Parts *> m_parts;
    int m_tasksLeft;
    std::exception_ptr m_failure;
    bool m_isFailureOfCounter = false;
};

} // namespace QzBackend

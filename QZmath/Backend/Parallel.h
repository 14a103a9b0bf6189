// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <functional>

class CProgressCounter;

namespace QzBackend
{

/// Threads for a job of many loops, also of short ones: a loop costs microseconds.
///
/// `run` calls the job on the calling thread; the job hands loops to `forEach`, in which workers of one pool
/// of the process join. Jobs that run at the same time share that pool: they get slower together, but make no
/// more threads. Which thread does what is open, so a job has the same result for any number of threads when
/// each body writes what belongs to its index only and sums are taken piece by piece, then over the pieces in
/// order.
///
/// The progress counter is touched on the calling thread only: in `setPosition`, and about every 10 ms
/// between the bodies that this thread calls itself. What the counter throws there ends the loop after the
/// bodies at hand and is thrown on from `forEach`, so the job unwinds like any function.
///
/// Workers round as the calling thread does. In a process that was forked off one with a pool, everything
/// runs on the calling thread.
class QZMATH_SISTER_API LoopTeam
{
public:
    /// \param threads  how many threads the job can use, the calling one among them; with 1 or less
    /// everything
    ///                 runs on the calling thread without the pool. More than there are cores are made on
    ///                 demand. When the machine does not give them, the job has those that are there.
    /// \param progress may be null
    /// \throws what the job throws, or what the progress counter throws
    static void run(int threads, CProgressCounter * progress, std::function<void(LoopTeam &)> const & job);

    LoopTeam(LoopTeam const &) = delete;
    LoopTeam & operator=(LoopTeam const &) = delete;

    /// Calls body(index) for 0 <= index < count, each once, in any order and on any thread of the team, and
    /// waits for all. Called by the job only, not from inside a body. When bodies throw, the exception of the
    /// least index is rethrown; others may not have been called then.
    ///
    /// Where `until` lies behind the position of the job, the position moves there with the loop.
    template <class Body>
    void forEach(int count, Body const & body, double until = 0)
    {
        runLoop(
            count,
            [](void const * context, int, int & index, int end) {
                Body const & call = *static_cast<Body const *>(context);
                for (; index < end; ++index)
                    call(index);
            },
            &body, until);
    }

    /// The same loop with body(slot, index), where bodies that run at the same time have different slots,
    /// 0 <= slot < threads(): for memory that a thread keeps from body to body.
    template <class Body>
    void forEachOnSlot(int count, Body const & body, double until = 0)
    {
        runLoop(
            count,
            [](void const * context, int slot, int & index, int end) {
                Body const & call = *static_cast<Body const *>(context);
                for (; index < end; ++index)
                    call(slot, index);
            },
            &body, until);
    }

    /// How many bodies can run at the same time.
    int threads() const { return m_threads; }

    /// Position of the job, 0 to 1. \throws what the progress counter throws
    void setPosition(double position);

    /// For what the job does between loops: asks the progress counter where it stands whether to stop, when
    /// that has not been done for some 10 ms. A few nanoseconds. \throws what the progress counter throws
    void serve();

private:
    /// Calls the body for `index` up to `end`, and leaves in `index` the one that threw.
    using BlockCall = void (*)(void const * body, int slot, int & index, int end);
    struct Loop;
    class Stride;

    LoopTeam(int threads, CProgressCounter * progress);
    void runLoop(int count, BlockCall call, void const * body, double until);
    static void takeBlocks(void * context, int slot);
    bool isServiceDue() const;
    void serveProgress(Loop const & loop, int index);

    int const m_threads;
    CProgressCounter * const m_progress;
    double m_position = 0;
    long m_lastServed; ///< in milliseconds
};

} // namespace QzBackend

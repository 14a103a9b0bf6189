// SPDX-License-Identifier: Apache-2.0
// ThreadSanitizer does not watch this file (see CMakeLists.txt), because it does not see how oneTBB, which is
// built without it, hands tasks from thread to thread. So nothing happens here but calls of oneTBB.
#include <QZmath/Backend/Workers.h>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>
#include <oneapi/tbb/task_group.h>

#include <cstddef>

namespace QzBackend
{

int defaultPoolSize() { return tbb::info::default_concurrency(); }

void setPoolSize(int threads)
{
    // Lives as long as the process: the pool may outlast every object of this library. The least of all
    // controls counts, so a new one takes effect when the old one is gone.
    static tbb::global_control * control = nullptr;
    tbb::global_control * const old = control;
    control = threads == defaultPoolSize()
                  ? nullptr
                  : new tbb::global_control(tbb::global_control::max_allowed_parallelism,
                                            static_cast<std::size_t>(threads));
    delete old;
}

void callAmongWorkers(int threads, Call call, void * context)
{
    tbb::task_arena arena(threads, 1);
    arena.execute([=] { call(context); });
}

void callOnSeats(int seats, SeatCall call, void * context)
{
    // Isolated: a caller that is itself a task of oneTBB may be cancelled, and the loop would end half done.
    tbb::task_group_context group(tbb::task_group_context::isolated);
    tbb::parallel_for(
        tbb::blocked_range<int>(0, seats),
        [=](tbb::blocked_range<int> const & range) {
            for (int seat = range.begin(); seat < range.end(); ++seat)
                call(context, seat);
        },
        tbb::simple_partitioner(), group);
}

} // namespace QzBackend

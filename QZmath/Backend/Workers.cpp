// SPDX-License-Identifier: Apache-2.0
// ThreadSanitizer does not watch this file (see CMakeLists.txt), because it does not see how oneTBB, which is
// built without it, hands tasks from thread to thread. So nothing happens here but calls of oneTBB, and the
// keeping of its places.
#include <QZmath/Backend/Workers.h>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>
#include <oneapi/tbb/task_group.h>

#include <cstddef>
#include <mutex>

namespace QzBackend
{

namespace
{

// Places of calls. They are kept for later calls of as many threads, as many as there were at the same time:
// of one that ends, the allocator of oneTBB keeps some kilobytes for ever.
class Places
{
public:
    struct Place
    {
        explicit Place(int wanted) : threads(wanted), arena(wanted, 1) {}
        int threads;
        tbb::task_arena arena;
        Place * next = nullptr;
    };

    static Places & instance()
    {
        static Places & places = *new Places; // the pool may outlast every object of this library
        return places;
    }

    Place * take(int threads)
    {
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            for (Place ** link = &m_idle; *link; link = &(*link)->next) {
                if ((*link)->threads == threads) {
                    Place * const place = *link;
                    *link = place->next;
                    return place;
                }
            }
        }
        return new Place(threads);
    }

    void giveBack(Place * place)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        place->next = m_idle;
        m_idle = place;
    }

private:
    std::mutex m_mutex;
    Place * m_idle = nullptr;
};

} // namespace

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
    struct Held
    {
        ~Held() { Places::instance().giveBack(place); }
        Places::Place * place;
    } const held{Places::instance().take(threads)};
    held.place->arena.execute([=] { call(context); });
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

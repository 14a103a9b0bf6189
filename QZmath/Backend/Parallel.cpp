// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Parallel.h>

#include <QZmath/Backend/Workers.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace QzBackend
{

namespace
{

int const mostThreads = 1024;
long const servingPeriod = 10; // milliseconds

// A few nanoseconds; steps of some milliseconds are fine enough here.
long coarseMilliseconds()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return static_cast<long>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

// How many of `wanted` threads the system gives now. They have ended when the call returns.
int countThreadsToBeHad(int wanted)
{
    std::mutex mutex;
    std::condition_variable released;
    bool isReleased = false;
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(wanted));
    try {
        while (static_cast<int>(threads.size()) < wanted)
            threads.emplace_back([&] {
                std::unique_lock<std::mutex> lock(mutex);
                released.wait(lock, [&] { return isReleased; });
            });
    } catch (std::exception const &) { // system_error or bad_alloc: these are all
    }
    {
        std::lock_guard<std::mutex> const lock(mutex);
        isReleased = true;
    }
    released.notify_all();
    for (std::thread & thread : threads)
        thread.join();
    return static_cast<int>(threads.size());
}

// What the job wrote before a loop goes to the workers, and what they wrote comes back to it. oneTBB sees to
// that as well, but a race detector does not look into it: the turns say it once more, at the cost of two
// operations for each seat.
class Handover
{
public:
    static void callOnSeats(int seats, SeatCall call, void * context)
    {
        Handover handover(call, context);
        handover.m_turns.store(0, std::memory_order_release);
        QzBackend::callOnSeats(seats, takeTurn, &handover);
        handover.m_turns.load(std::memory_order_acquire);
    }

private:
    Handover(SeatCall call, void * context) : m_call(call), m_context(context) {}
    static void takeTurn(void * context, int seat)
    {
        Handover & handover = *static_cast<Handover *>(context);
        handover.m_turns.load(std::memory_order_acquire);
        handover.m_call(handover.m_context, seat);
        handover.m_turns.fetch_add(1, std::memory_order_acq_rel);
    }

    SeatCall const m_call;
    void * const m_context;
    std::atomic<int> m_turns{0};
};

// Has the pool begin as many threads, while it is certain that they can be had.
void beginThreads(int threads)
{
    struct Meeting
    {
        int const expected;
        std::chrono::steady_clock::time_point const end;
        std::atomic<int> arrived{0};

        static void attend(void * context, int)
        {
            Meeting & meeting = *static_cast<Meeting *>(context);
            ++meeting.arrived;
            while (meeting.arrived < meeting.expected && std::chrono::steady_clock::now() < meeting.end)
                std::this_thread::yield();
        }
        static void call(void * context)
        {
            Handover::callOnSeats(static_cast<Meeting *>(context)->expected, attend, context);
        }
    } meeting{threads, std::chrono::steady_clock::now() + std::chrono::milliseconds(20)};
    callAmongWorkers(threads, Meeting::call, &meeting);
}

// Looks after the size of the pool. The pool begins a thread when a job first needs it, and ends the process
// when it cannot: so it is made to begin all that it may need before a job starts, and only those that the
// system was seen to give.
class PoolKeeper
{
public:
    static PoolKeeper & instance()
    {
        static PoolKeeper * const keeper = new PoolKeeper; // jobs may end after the library's static objects
        return *keeper;
    }

    // The threads that a job gets which asks for `threads`. Each call is followed by one of `leave`.
    int join(int threads)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_helpersAskedFor += threads - 1;
        m_mostAskedFor = std::max(m_mostAskedFor, threads);
        int const limit = std::max(m_defaultSize, m_mostAskedFor);
        int const wanted = static_cast<int>(std::min<long>(limit, m_helpersAskedFor + 1));
        int const given = wanted > m_threads ? countThreadsToBeHad(wanted - m_threads) : 0;
        int const ready = m_threads + given;
        if (ready == 1)
            return 1;
        try {
            resize(ready < wanted ? ready : limit);
            if (given > 0)
                beginThreads(ready);
        } catch (std::bad_alloc const &) { // no memory even for what the pool keeps of a thread
            return 1;
        }
        m_threads = ready;
        return std::min(threads, m_threads);
    }

    void leave(int threads)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_helpersAskedFor -= threads - 1;
        if (m_helpersAskedFor == 0) {
            m_mostAskedFor = 1;
            resize(m_defaultSize);
        }
    }

    // The threads of a pool do not follow a process into its fork.
    bool isForked() const { return getpid() != m_process; }

private:
    void resize(int size)
    {
        if (size == m_size)
            return;
        setPoolSize(size);
        m_size = size;
    }

    std::mutex m_mutex;
    int const m_defaultSize = defaultPoolSize();
    int m_size = m_defaultSize;
    int m_threads = 1;          // that the pool has begun, and the calling one
    long m_helpersAskedFor = 0; // by the jobs that are running
    int m_mostAskedFor = 1;     // by one of them
    pid_t const m_process = getpid();
};

} // namespace

// A loop at hand.
struct LoopTeam::Loop
{
    int const count;
    BlockCall const call;
    void const * const body;
    int const grain; // indices that a thread takes at a time
    double const from;
    double const until;
    LoopTeam & team;
    std::thread::id const caller;

    alignas(64) std::atomic<long> next{0};
    alignas(64) std::mutex mutex{};
    int failedIndex = 0; // under the mutex, as the two that follow
    std::exception_ptr failure{};
    std::exception_ptr interruption{}; // by the progress counter
    std::atomic<bool> isInterrupted{false};
};

// How many indices a thread calls before it looks whether the loop is to end: as many as take some
// milliseconds.
class LoopTeam::Stride
{
public:
    int of(int left) const { return std::min(m_indices, left); }
    void adapt()
    {
        long const now = coarseMilliseconds();
        m_indices = now - m_last < 4 ? std::min(2 * m_indices, mostIndices) : std::max(m_indices / 4, 1);
        m_last = now;
    }

private:
    static constexpr int mostIndices = 64;

    int m_indices = 1;
    long m_last = coarseMilliseconds();
};

LoopTeam::LoopTeam(int threads, CProgressCounter * progress)
    : m_threads(threads), m_progress(progress), m_lastServed(coarseMilliseconds())
{}

void LoopTeam::run(int threads, CProgressCounter * progress, std::function<void(LoopTeam &)> const & job)
{
    auto const runAlone = [&] {
        LoopTeam team(1, progress);
        job(team);
    };
    if (threads <= 1)
        return runAlone();
    PoolKeeper & keeper = PoolKeeper::instance();
    if (keeper.isForked())
        return runAlone();

    struct Membership
    {
        explicit Membership(PoolKeeper & pool, int number)
            : keeper(pool), asked(number), given(pool.join(number))
        {}
        Membership(Membership const &) = delete;
        Membership & operator=(Membership const &) = delete;
        ~Membership() { keeper.leave(asked); }

        PoolKeeper & keeper;
        int const asked;
        int const given;
    } const membership(keeper, std::min(threads, mostThreads));
    if (membership.given == 1)
        return runAlone();

    LoopTeam team(membership.given, progress);
    struct Work
    {
        LoopTeam & team;
        std::function<void(LoopTeam &)> const & job;
        bool hasBegun = false;
    } work{team, job};
    try {
        callAmongWorkers(
            team.threads(),
            [](void * context) {
                Work & ours = *static_cast<Work *>(context);
                ours.hasBegun = true;
                ours.job(ours.team);
            },
            &work);
    } catch (std::bad_alloc const &) {
        if (work.hasBegun)
            throw;
        runAlone();
    }
}

void LoopTeam::setPosition(double position)
{
    m_position = position;
    if (m_progress == nullptr)
        return;
    m_lastServed = coarseMilliseconds();
    m_progress->SetPosFloat(position);
}

bool LoopTeam::isServiceDue() const
{
    return m_progress != nullptr && coarseMilliseconds() - m_lastServed >= servingPeriod;
}

void LoopTeam::serve()
{
    if (isServiceDue())
        setPosition(m_position);
}

void LoopTeam::serveProgress(Loop const & loop, int index)
{
    if (isServiceDue())
        setPosition(loop.from + (loop.until - loop.from) * index / loop.count);
}

void LoopTeam::runLoop(int count, BlockCall call, void const * body, double until)
{
    if (count <= 0)
        return;
    // Few enough indices at a time to balance, enough to make the counter cheap.
    Loop loop{count,      call,
              body,       std::clamp(count / (32 * m_threads), 1, 64),
              m_position, std::max(m_position, until),
              *this,      std::this_thread::get_id()};
    int const blocks = (count - 1) / loop.grain + 1;
    if (m_threads == 1 || blocks == 1) {
        Stride stride;
        for (int index = 0; index < count; stride.adapt()) {
            serveProgress(loop, index);
            call(body, 0, index, index + stride.of(count - index));
        }
    } else {
        Handover::callOnSeats(std::min(m_threads, blocks), takeBlocks, &loop);
        if (loop.interruption)
            std::rethrow_exception(loop.interruption);
        if (loop.failure)
            std::rethrow_exception(loop.failure);
    }
    if (loop.until > loop.from)
        setPosition(loop.until);
}

void LoopTeam::takeBlocks(void * context, int slot)
{
    Loop & loop = *static_cast<Loop *>(context);
    bool const mayServe = std::this_thread::get_id() == loop.caller;
    Stride stride;
    for (;;) {
        long const next = loop.next.fetch_add(loop.grain, std::memory_order_relaxed);
        if (next >= loop.count)
            return;
        int index = static_cast<int>(next);
        int const end = index + std::min(loop.grain, loop.count - index);
        for (; index < end; stride.adapt()) {
            if (loop.isInterrupted.load(std::memory_order_relaxed))
                return;
            try {
                if (mayServe)
                    loop.team.serveProgress(loop, index);
            } catch (...) {
                std::lock_guard<std::mutex> const lock(loop.mutex);
                loop.interruption = std::current_exception();
                loop.isInterrupted.store(true, std::memory_order_relaxed);
                return;
            }
            try {
                loop.call(loop.body, slot, index, index + stride.of(end - index));
            } catch (...) {
                std::lock_guard<std::mutex> const lock(loop.mutex);
                if (!loop.failure || index < loop.failedIndex) {
                    loop.failure = std::current_exception();
                    loop.failedIndex = index;
                }
                // No further index is begun; all smaller ones have been.
                loop.next.fetch_add(loop.count, std::memory_order_relaxed);
                return;
            }
        }
    }
}

} // namespace QzBackend

// SPDX-License-Identifier: Apache-2.0
#include "QZsys/TaskSupport.h"

#include <QZmath/BlockProcessor/TransThreadPrgCntAdapter.h>

#include <QZsys/Exceptions.h>

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <thread>

namespace
{

using namespace std::chrono_literals;
using qz_test::ProgressRecorder;

void onAnotherThread(std::function<void()> const & action) { std::thread(action).join(); }

void increment(CTransThreadPrgCntAdapter & adapter, int times)
{
    for (int i = 0; i < times; ++i)
        adapter.increment();
}

void incrementElsewhere(CTransThreadPrgCntAdapter & adapter, int times)
{
    onAnotherThread([&] { increment(adapter, times); });
}

// Tasks that go on until they are cancelled.
std::deque<FunctionTask> endlessTasks(CTransThreadPrgCntAdapter & adapter, std::atomic<int> & cancelled)
{
    std::deque<FunctionTask> tasks;
    for (int t = 0; t < 2; ++t)
        tasks.emplace_back([&] {
            try {
                for (;; std::this_thread::sleep_for(1ms))
                    adapter.increment();
            } catch (CTransThreadPrgCntAdapter::CRunCancelled const &) {
                ++cancelled;
                throw;
            }
        });
    return tasks;
}

void expectEveryStepOnce(ProgressRecorder const & counter, int steps)
{
    ASSERT_EQ(static_cast<std::size_t>(steps), counter.positions.size());
    int step = 0;
    for (double const position : counter.positions)
        ASSERT_EQ(static_cast<double>(++step) / steps, position);
}

} // namespace

// The thread that waits serves the timer, whether it prepared the run or not, or all threads do in turns.
TEST(TransThreadPrgCntAdapter, EveryStepOfManyThreadsIsReportedOnce)
{
    int const threads = 5, steps = 10000;
    CTransThreadPrgCntAdapter adapter;
    EXPECT_EQ(100, adapter.getMillisecondsTimeOut());
    for (int const way : {0, 1, 2}) {
        bool const inTurns = way == 2;
        ProgressRecorder counter;
        adapter.refresh(&counter, threads * steps);
        std::deque<FunctionTask> tasks;
        for (int t = 0; t < threads; ++t)
            tasks.emplace_back([&] {
                for (int i = 0; i < steps; i += 10) {
                    increment(adapter, 10);
                    if (inTurns)
                        adapter.processTimerEvent();
                }
            });
        auto const run = [&] {
            counter.owner = inTurns ? std::thread::id() : std::this_thread::get_id();
            perform(tasks, inTurns ? nullptr : &adapter);
        };
        way == 0 ? run() : onAnotherThread(run);
        expectEveryStepOnce(counter, threads * steps);
    }
}

TEST(TransThreadPrgCntAdapter, ForeignThreadsOnlyCount)
{
    ProgressRecorder counter;
    CTransThreadPrgCntAdapter adapter;
    adapter.refresh(&counter, 4);
    std::this_thread::sleep_for(110ms); // the period has passed, but not for a foreign thread
    incrementElsewhere(adapter, 3);
    EXPECT_TRUE(counter.positions.empty());
    adapter.increment(); // the owner passes all of them on
    expectEveryStepOnce(counter, 4);
    incrementElsewhere(adapter, 1); // past the total
    adapter.processTimerEvent();
    EXPECT_EQ(5u, counter.positions.size());
    EXPECT_EQ(1.0, counter.positions.back());
    adapter.processTimerEvent();
    EXPECT_EQ(5u, counter.positions.size());

    adapter.refresh(&counter, -5);
    incrementElsewhere(adapter, 1);
    adapter.processTimerEvent();
    EXPECT_EQ(1.0, counter.positions.back());

    adapter.refresh(nullptr, 3);
    incrementElsewhere(adapter, 2);
    adapter.processTimerEvent();
    EXPECT_EQ(6u, counter.positions.size());
}

TEST(TransThreadPrgCntAdapter, AThrowingCounterLosesNoStepAndLocksNothing)
{
    ProgressRecorder counter;
    CTransThreadPrgCntAdapter adapter;
    adapter.refresh(&counter, 8);
    incrementElsewhere(adapter, 6);
    counter.inPosition = [&] {
        if (counter.positions.size() == 2)
            throw std::runtime_error("hook");
    };
    EXPECT_THROW(adapter.processTimerEvent(), std::runtime_error);
    onAnotherThread([&] { EXPECT_THROW(adapter.increment(), CTransThreadPrgCntAdapter::CRunCancelled); });
    adapter.increment();
    adapter.processTimerEvent();
    EXPECT_EQ((std::vector<double>{0.125, 0.25, 0.375, 0.5, 0.625, 0.75, 0.875}), counter.positions);

    // A hook may count a step of its own: it waits for the next event.
    ProgressRecorder reentrant;
    reentrant.inPosition = [&] {
        if (reentrant.positions.size() == 1)
            adapter.increment();
    };
    adapter.refresh(&reentrant, 2);
    incrementElsewhere(adapter, 1);
    adapter.processTimerEvent();
    EXPECT_EQ(1u, reentrant.positions.size());
    adapter.processTimerEvent();
    EXPECT_EQ((std::vector<double>{0.5, 1.0}), reentrant.positions);
}

TEST(TransThreadPrgCntAdapter, InterruptionEndsTheTasksSoonAndIsWhatTheCallerGets)
{
    CProgressCounter counter;
    CTransThreadPrgCntAdapter adapter;
    std::atomic<int> cancelled{0};
    std::deque<FunctionTask> tasks = endlessTasks(adapter, cancelled);
    for (int run = 0; run < 2; ++run) {
        std::chrono::steady_clock::time_point requested;
        std::thread user([&] {
            std::this_thread::sleep_for(30ms);
            requested = std::chrono::steady_clock::now();
            counter.interrupt();
        });
        adapter.refresh(&counter, std::numeric_limits<int>::max());
        auto const wait = [&] { EXPECT_THROW(perform(tasks, &adapter), CUserIntrException); };
        run == 0 ? wait() : onAnotherThread(wait); // a client may wait on another thread than it prepared on
        auto const ended = std::chrono::steady_clock::now();
        user.join();
        EXPECT_LT(ended - requested, 2s); // about 0.1 s on an idle machine
    }
    EXPECT_EQ(4, cancelled);
    // The next run is not cancelled, and what the former one left waiting does not count in it.
    adapter.refresh(&counter, 4);
    incrementElsewhere(adapter, 1);
    adapter.processTimerEvent();
    EXPECT_EQ(0.25, counter.getPosFloat());
}

// A task that found no thread runs on the owner's: there the counter throws inside of the task.
TEST(TransThreadPrgCntAdapter, InterruptionInsideATaskOfTheOwnerReachesTheCallerThroughTheEvent)
{
    CProgressCounter counter;
    CTransThreadPrgCntAdapter adapter;
    adapter.refresh(&counter, 10);
    counter.interrupt();
    std::this_thread::sleep_for(110ms);
    EXPECT_THROW(adapter.increment(), CUserIntrException);
    EXPECT_THROW(adapter.increment(), CTransThreadPrgCntAdapter::CRunCancelled);
    EXPECT_THROW(adapter.processTimerEvent(), CUserIntrException);
    EXPECT_NO_THROW(adapter.processTimerEvent());
}

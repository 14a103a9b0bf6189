// SPDX-License-Identifier: Apache-2.0
#include "QZsys/TaskSupport.h"

#include <QZsys/Exceptions.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QZ_TEST_CAN_REFUSE_THREADS 0 // the sanitizers need their own pthread_create
#else
#define QZ_TEST_CAN_REFUSE_THREADS 1
#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace
{
std::atomic<int> threadsLeft{std::numeric_limits<int>::max()};
}

// Stands before the system's function for the whole program, so that a test can play a machine out of
// threads.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t * thread,
                                                                     pthread_attr_t const * attributes,
                                                                     void * (*start)(void *),
                                                                     void * argument) noexcept
{
    using Create = int (*)(pthread_t *, pthread_attr_t const *, void * (*)(void *), void *);
    static Create const create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (threadsLeft-- <= 0)
        return EAGAIN;
    return create(thread, attributes, start, argument);
}
#endif

namespace
{

using namespace std::chrono_literals;

class Observer : public IVescaThreadOnTimerObserver
{
public:
    Observer(int milliseconds, std::function<void(int)> onEvent)
        : m_milliseconds(milliseconds), m_onEvent(std::move(onEvent))
    {}
    int events = 0;

protected:
    int onGetMillisecondsTimeOut() override { return m_milliseconds; }
    void onProcessTimerEvent() override { m_onEvent(++events); }

private:
    int m_milliseconds;
    std::function<void(int)> m_onEvent;
};

} // namespace

TEST(ParallelTasks, AllTasksRunAndTheirResultsAreVisible)
{
    for (std::size_t count : {0u, 1u, 2u, 7u, 40u}) {
        std::vector<int> results(count, 0);
        std::deque<FunctionTask> tasks;
        for (int & result : results)
            tasks.emplace_back([&result] { ++result; });
        perform(tasks);
        EXPECT_EQ(std::vector<int>(count, 1), results);
    }
    int runs = 0;
    FunctionTask task([&] { ++runs; });
    IVescaInvokeProc * withGaps[] = {nullptr, &task, nullptr};
    CVescaThreadingTasksHelper::performInParallel(withGaps, 3, nullptr);
    CVescaThreadingTasksHelper::performInParallel(withGaps, -1, nullptr);
    CVescaThreadingTasksHelper::performInParallel(nullptr, 5, nullptr);
    EXPECT_EQ(1, runs);
}

TEST(ParallelTasks, TasksRunAtTheSameTimeAndMayNest)
{
    std::atomic<int> leaves{0}, atWork{0}, mostAtWork{0};
    std::deque<FunctionTask> outer, inner;
    for (int i = 0; i < 3; ++i) {
        outer.emplace_back([&] { perform(inner); });
        inner.emplace_back([&] {
            mostAtWork = std::max<int>(mostAtWork, ++atWork);
            std::this_thread::sleep_for(50ms);
            --atWork;
            ++leaves;
        });
    }
    perform(outer);
    EXPECT_GE(mostAtWork, 4);
    EXPECT_EQ(9, leaves);
}

TEST(ParallelTasks, FirstExceptionInTaskOrderComesAfterAllTasksEnded)
{
    for (bool const observed : {false, true}) {
        std::atomic<int> ended{0};
        std::deque<FunctionTask> tasks;
        for (int const task : {0, 1, 2, 3})
            tasks.emplace_back([&, task] { // of those that fail, the first in order is the last in time
                std::this_thread::sleep_for(task == 1 ? 40ms : task == 3 ? 80ms : 0ms);
                ++ended;
                if (task == 1 || task == 2)
                    throw std::runtime_error("task " + std::to_string(task));
            });
        Observer observer(5, [](int) {});
        EXPECT_EQ("task 1", thrownBy([&] { perform(tasks, observed ? &observer : nullptr); }));
        EXPECT_EQ(4, ended);
    }
}

TEST(ParallelTasks, TimerEventsComeOnTheCallingThreadAndOnceAtTheEnd)
{
    std::thread::id const caller = std::this_thread::get_id();
    for (int const timeOut : {10, 60000, -1}) { // the end does not wait; below 1 ms is no busy loop
        std::atomic<int> ended{0};
        int endedAtLastEvent = 0;
        Observer observer(timeOut, [&](int) {
            EXPECT_EQ(caller, std::this_thread::get_id());
            endedAtLastEvent = ended;
        });
        std::deque<FunctionTask> tasks;
        for (int i = 0; i < 2; ++i)
            tasks.emplace_back([&] {
                EXPECT_NE(caller, std::this_thread::get_id());
                std::this_thread::sleep_for(200ms);
                ++ended;
            });
        auto const begin = std::chrono::steady_clock::now();
        perform(tasks, &observer);
        auto const duration = (std::chrono::steady_clock::now() - begin) / 1ms;
        EXPECT_LT(duration, 30000);
        EXPECT_LE(observer.events, duration / std::max(timeOut, 1) + 1);
        EXPECT_GE(observer.events, timeOut > 10 ? 1 : 3);
        EXPECT_EQ(2, endedAtLastEvent);
    }
}

TEST(ParallelTasks, ExceptionOfTheTimerEventWaitsForTheTasksAndWins)
{
    for (int const throwingEvent : {1, 2}) {
        std::atomic<bool> stop{false};
        std::atomic<int> ended{0};
        Observer observer(5, [&](int event) {
            if (event == throwingEvent) {
                stop = true;
                throw CUserIntrException("user interruption");
            }
        });
        std::deque<FunctionTask> tasks;
        for (int i = 0; i < 2; ++i)
            tasks.emplace_back([&] {
                while (!stop)
                    std::this_thread::sleep_for(1ms);
                std::this_thread::sleep_for(30ms);
                ++ended;
                throw std::runtime_error("consequence");
            });
        EXPECT_EQ("user interruption", thrownBy([&] { perform(tasks, &observer); }));
        EXPECT_EQ(2, ended);
        EXPECT_EQ(throwingEvent, observer.events);
    }
}

#if QZ_TEST_CAN_REFUSE_THREADS
TEST(ParallelTasks, TasksWithoutAThreadRunOnTheCallingThread)
{
    std::thread::id const caller = std::this_thread::get_id();
    for (int available : {0, 1, 2}) {
        std::atomic<int> here{0}, elsewhere{0};
        std::deque<FunctionTask> tasks;
        for (int i = 0; i < 4; ++i)
            tasks.emplace_back([&, i] {
                ++(std::this_thread::get_id() == caller ? here : elsewhere);
                if (i == 3)
                    throw std::runtime_error("fourth");
            });
        Observer observer(1000, [](int) {});
        threadsLeft = available;
        std::string const thrown = thrownBy([&] { perform(tasks, &observer); });
        threadsLeft = std::numeric_limits<int>::max();
        EXPECT_EQ("fourth", thrown);
        EXPECT_EQ(available, elsewhere);
        EXPECT_EQ(4 - available, here);
        EXPECT_EQ(1, observer.events);
    }
    for (int const available : {0, 2, 9}) {
        threadsLeft = available;
        std::vector<bool> order;
        std::mutex mutex;
        auto const callerId = std::this_thread::get_id();
        VsUt::callTogether(4, [&](bool isCaller) {
            std::lock_guard<std::mutex> const lock(mutex);
            order.push_back(isCaller);
            EXPECT_TRUE(!isCaller || std::this_thread::get_id() == callerId);
        });
        threadsLeft = std::numeric_limits<int>::max();
        EXPECT_EQ(4u, order.size());
        EXPECT_EQ(1, std::count(order.begin(), order.end(), true));
        EXPECT_TRUE(available > 0 || order.back()) << "a share that waits for its thread comes first";
    }
    std::unique_ptr<IVescaThread> const thread(
        CVescaSingletonT<IVescaThreadingFactory>::Instance().makeThread());
    FunctionTask task([] {});
    thread->setTask(&task);
    threadsLeft = 0;
    EXPECT_EQ("Cannot start a thread", thrownBy([&] { thread->start(); }));
    threadsLeft = std::numeric_limits<int>::max();
    EXPECT_TRUE(thread->wait(0));
}
#endif

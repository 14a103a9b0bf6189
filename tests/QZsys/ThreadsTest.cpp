// SPDX-License-Identifier: Apache-2.0
#include "QZsys/TaskSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

namespace
{

IVescaThreadingFactory & factory() { return CVescaSingletonT<IVescaThreadingFactory>::Instance(); }

class TimeOut60 : public IVescaThreadOnTimerObserver
{
protected:
    int onGetMillisecondsTimeOut() override { return 60; }
    void onProcessTimerEvent() override {}
};

} // namespace

TEST(Threads, ThreadRunsItsTaskAgainAndDeletionWaits)
{
    std::unique_ptr<IVescaBlockingEvent> const proceed(factory().makeBlockingEvent());
    int runs = 0; // not atomic: wait() and the destructor have to make it visible
    FunctionTask task([&] {
        proceed->wait(-1);
        ++runs;
        throw std::runtime_error("lost"); // must not end the process
    });
    std::unique_ptr<IVescaThread> thread(factory().makeThread());
    thread->start(); // no task yet
    EXPECT_TRUE(thread->wait(0));
    thread->setTask(&task);
    thread->start();
    thread->start(); // already running
    EXPECT_FALSE(thread->wait(0) || thread->wait(5));
    proceed->set();
    EXPECT_TRUE(thread->wait(-1));
    EXPECT_EQ(1, runs);
    thread->start();
    proceed->set();
    thread.reset();
    EXPECT_EQ(2, runs);
}

TEST(Threads, ATaskMayDeleteItsOwnThread)
{
    std::atomic<bool> started{false}, ended{false};
    IVescaThread * const thread = factory().makeThread();
    FunctionTask task([&, thread] {
        while (!started)
            std::this_thread::yield();
        delete thread;
        ended = true;
    });
    thread->setTask(&task);
    thread->start();
    started = true;
    while (!ended)
        std::this_thread::yield();
}

// Ping-pong over two events: a lost or doubled wake-up would hang it or spoil the order.
TEST(Threads, EachSetOfAnEventLetsOneWaiterThrough)
{
    std::unique_ptr<IVescaBlockingEvent> const ping(factory().makeBlockingEvent()),
        pong(factory().makeBlockingEvent());
    ping->set();
    ping->set();
    EXPECT_TRUE(ping->wait(0));
    EXPECT_FALSE(ping->wait(0) || ping->wait(5));
    int turn = 0;
    std::thread partner([&] {
        for (int i = 0; i < 500; ++i) {
            ping->wait(-1);
            EXPECT_EQ(2 * i + 1, turn++);
            pong->set();
        }
    });
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(2 * i, turn++);
        ping->set();
        EXPECT_TRUE(pong->wait(-1));
    }
    partner.join();
}

TEST(Threads, TimerActsOnItsOwnersThreadAfterTheTimeOut)
{
    TimeOut60 observer;
    std::unique_ptr<IVescaSleeper> const sleeper(factory().makeSleeper());
    std::unique_ptr<IVescaTimer> const timer(factory().makeTimer(&observer)),
        unobserved(factory().makeTimer(nullptr));
    EXPECT_TRUE(unobserved->mayActNow());
    for (int const milliseconds : {-5, 65})
        sleeper->sleep(milliseconds);
    EXPECT_TRUE(timer->mayActNow());
    std::thread([&] {
        EXPECT_FALSE(timer->mayActNow());
        timer->restart(); // on the thread that owns it from now on
        sleeper->sleep(65);
        EXPECT_TRUE(timer->mayActNow());
    }).join();
    EXPECT_FALSE(timer->mayActNow() || timer->isOwnerThread());
}

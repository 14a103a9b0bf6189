// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>

#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define IS_SANITIZED 1
#elif defined(__has_feature)
#define IS_SANITIZED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define IS_SANITIZED 0
#endif

using QzBackend::LoopTeam;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace
{

int threadsOfProcess()
{
    std::filesystem::directory_iterator const tasks("/proc/self/task");
    return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

// Whether as many bodies as the team has threads can run at the same time.
bool runsAllAtOnce(LoopTeam & team)
{
    std::atomic<int> arrived{0};
    auto const end = steady_clock::now() + std::chrono::seconds(20);
    team.forEach(team.threads(), [&](int) {
        ++arrived;
        while (arrived < team.threads() && steady_clock::now() < end)
            std::this_thread::yield();
        if (arrived < team.threads())
            throw std::runtime_error("alone");
    });
    return arrived == team.threads();
}

// Loops of uneven bodies, and a sum that depends on every one of them.
double jobOfManyLoops(int threads, int loops)
{
    std::vector<double> values(300, 1.0);
    LoopTeam::run(threads, nullptr, [&](LoopTeam & team) {
        for (int loop = 0; loop < loops; ++loop)
            team.forEach(300, [&](int index) {
                double & value = values[static_cast<std::size_t>(index)];
                for (int step = 0; step < index % 50 * 4; ++step)
                    value += 1e-3 / (value + index);
            });
    });
    return std::accumulate(values.begin(), values.end(), 0.0);
}

} // namespace

TEST(LoopTeamTest, CallsEachIndexOnceOnSlotsOfTheirOwn)
{
    for (int threads : {1, 2, 3, 8})
        for (int count : {0, 1, 7, 1000}) {
            std::vector<int> calls(static_cast<std::size_t>(count), 0);
            std::vector<long> sums(static_cast<std::size_t>(threads), 0);
            LoopTeam::run(threads, nullptr, [&](LoopTeam & team) {
                ASSERT_EQ(team.threads(), threads);
                for (int loop = 0; loop < 200; ++loop) {
                    // What a loop writes, the next one reads on any thread: no atomics.
                    team.forEach(count, [&](int index) { ++calls[static_cast<std::size_t>(index)]; });
                    team.forEachOnSlot(count, [&](int slot, int index) {
                        sums[static_cast<std::size_t>(slot)] += calls[static_cast<std::size_t>(index)];
                    });
                }
            });
            EXPECT_EQ(std::count(calls.begin(), calls.end(), 200), count);
            EXPECT_EQ(std::accumulate(sums.begin(), sums.end(), 0L), 20100L * count);
        }
}

TEST(LoopTeamTest, PassesTheExceptionOfTheLeastIndexOn)
{
    for (int threads : {1, 2, 8})
        for (int least : {0, 40, 99}) {
            auto const failing = [least](int index) {
                if (index >= least)
                    throw index;
            };
            try {
                LoopTeam::run(threads, nullptr, [&](LoopTeam & team) { team.forEach(100, failing); });
                ADD_FAILURE();
            } catch (int const index) {
                EXPECT_EQ(index, least);
            }
        }
}

// Threads beyond the cores are really there, or the tests that ask for them would test nothing.
TEST(LoopTeamTest, GivesMoreThreadsThanThereAreCores)
{
    for (int threads : {2, 16, 5})
        LoopTeam::run(threads, nullptr, [](LoopTeam & team) { EXPECT_TRUE(runsAllAtOnce(team)); });
}

TEST(LoopTeamTest, ServesAndInterruptsOnTheCallingThread)
{
    for (int threads : {1, 2, 4}) {
        qz_test::ProgressRecorder counter;
        std::atomic<int> called{0}, interruptAt{0};
        auto const longLoop = [&](LoopTeam & team) {
            team.setPosition(0.25);
            team.forEach(
                400,
                [&](int) {
                    std::this_thread::sleep_for(milliseconds(1));
                    if (++called == interruptAt)
                        counter.interrupt();
                },
                0.75);
        };
        auto const start = steady_clock::now();
        LoopTeam::run(threads, &counter, longLoop);
        std::chrono::duration<double> const seconds = steady_clock::now() - start;
        EXPECT_EQ(counter.getPosFloat(), 0.75);
        EXPECT_GE(counter.positions.size(), 4u);
        EXPECT_LE(double(counter.positions.size()), 4 + seconds.count() / 0.0075);

        called = 0;
        interruptAt = 10;
        EXPECT_THROW(LoopTeam::run(threads, &counter, longLoop), CUserIntrException);
        EXPECT_LT(called, 390);

        std::vector<double> values;
        auto const fill = [&](LoopTeam & team) {
            std::this_thread::sleep_for(milliseconds(20));
            QzBackend::assignLarge(team, values, 5000000, 1.0);
        };
        LoopTeam::run(threads, &counter, fill);
        EXPECT_EQ(std::accumulate(values.begin(), values.end(), 0.0), 5e6);
        counter.interrupt();
        EXPECT_THROW(LoopTeam::run(threads, &counter, fill), CUserIntrException);
    }
}

TEST(LoopTeamTest, JobsAtTheSameTimeShareTheThreads)
{
    int const cores = CVescaThreadingTasksHelper::getNumOfPhisicalThread();
    double const alone = jobOfManyLoops(1, 200);
    std::atomic<int> running{10};
    std::vector<std::thread> jobs;
    std::thread([] {}).join(); // a sanitizer starts a thread of its own with the first one
    int const before = threadsOfProcess();
    for (int job = 0; job < 10; ++job)
        jobs.emplace_back([&] {
            EXPECT_EQ(jobOfManyLoops(cores, 200), alone);
            --running;
        });
    int most = 0;
    while (running > 0) {
        most = std::max(most, threadsOfProcess());
        std::this_thread::sleep_for(milliseconds(1));
    }
    for (std::thread & job : jobs)
        job.join();
    EXPECT_LE(most, before + 10 + cores - 1);
}

TEST(LoopTeamDeathTest, ForkedProcessesWorkAloneAndEnd)
{
    double const expected = jobOfManyLoops(4, 10);
    EXPECT_EXIT(std::exit(jobOfManyLoops(4, 10) == expected ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(LoopTeamDeathTest, ProcessesEndWhileJobsRun)
{
    auto const leave = [] {
        std::atomic<bool> hasBegun{false};
        std::thread([&] {
            LoopTeam::run(4, nullptr, [&](LoopTeam & team) {
                for (;; hasBegun = true)
                    team.forEach(100,
                                 [](int) { std::this_thread::sleep_for(std::chrono::microseconds(50)); });
            });
        }).detach();
        while (!hasBegun)
            std::this_thread::yield();
        std::exit(0);
    };
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
}

TEST(LoopTeamDeathTest, WorksWithTheThreadsThatCanBeHad)
{
#if IS_SANITIZED
    GTEST_SKIP() << "sanitizers need the address space";
#endif
    // Left without the end of static objects: threads of other libraries wait there for their memory.
    auto const work = [](rlim_t spare) {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlim_t const bytes = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (spare << 20);
        rlimit const tight{bytes, bytes};
        double const expected = jobOfManyLoops(1, 10);
        if (setrlimit(RLIMIT_AS, &tight) != 0)
            std::_Exit(2);
        for (int threads : {2, 16, 4})
            if (jobOfManyLoops(threads, 10) != expected)
                std::_Exit(1);
        std::_Exit(0);
    };
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (rlim_t spare : {1U, 12U, 30U})
        EXPECT_EXIT(work(spare), testing::ExitedWithCode(0), "") << spare << " MB";
}

// SPDX-License-Identifier: Apache-2.0
#include "BlockProcessor/BlockClients.h"

#include <QZsys/Exceptions.h>

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <random>
#include <stdexcept>

using namespace BlockProc;
using namespace std::chrono_literals;

namespace
{

void expectCleanedUp(Client const & client)
{
    EXPECT_EQ(0, Fragment::living);
    EXPECT_FALSE(client.IsUserBreak());
    EXPECT_FALSE(client.GetAbortEvent()->wait(0));
    EXPECT_EQ(0, client.tornReads);
    EXPECT_EQ(0, client.conflicts);
    EXPECT_TRUE(client.inWork.empty());
}

// After a run that ended early.
void runAgain(Client & client, int threads)
{
    client.inWork.clear();
    client.started.clear();
    client.resetModel();
    EXPECT_EQ(0, client.Run());
    expectCleanedUp(client);
    EXPECT_EQ(threads > 1 ? client.values.size() : 0, client.started.size());
    for (std::size_t block = 0; block < client.values.size(); ++block)
        EXPECT_EQ(int(block) + 1, client.values[block]);
}

} // namespace

TEST(BlockProcessor, EveryBlockIsProcessedOncePerPassAndNeverBesideADependentOne)
{
    std::mt19937 random(7);
    auto const draw = [&random](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    for (int run = 0; run < 150; ++run) {
        int const count = run % 10 == 0 ? draw(2) : draw(40), passes = 1 + draw(3), threads = draw(17);
        Client client(count);
        qz_test::ProgressRecorder progress;
        client.SetProgressCounter(&progress);
        auto const size = static_cast<std::size_t>(count);
        std::vector<std::vector<bool>> dependent(size, std::vector<bool>(size));
        int const percent = std::vector<int>{0, 10, 50, 100}[std::size_t(draw(4))];
        for (std::size_t a = 0; a < dependent.size(); ++a)
            for (std::size_t b = 0; b < a; ++b)
                dependent[a][b] = dependent[b][a] = draw(100) < percent;
        client.blocks.areDependent = [&](int a, int b) { return dependent[std::size_t(a)][std::size_t(b)]; };
        client.blocks.isIndependentOfItself = draw(2); // a wrong answer must not hand out a block twice
        client.blocks.isEndNull = draw(2);
        client.SetNPasses(passes);
        client.SetNParralelThreads(threads);
        client.SetImmediateBlockModify(draw(3) > 0);
        client.SetExtractBlock(client.DoModifyImmediately() && draw(2));
        client.needsUnsharedInit = draw(2);
        client.isSkipped = [](int block) { return block % 7 == 3; };
        client.isEmpty = [&](int block) { return client.DoBlockExtract() && block % 7 == 5; };
        ASSERT_EQ(0, client.Run()) << run;
        expectCleanedUp(client);
        for (int block = 0; block < count; ++block) {
            bool const isUntouched = client.isSkipped(block) || client.isEmpty(block);
            EXPECT_EQ(isUntouched ? 0 : passes * (block + 1), client.values[std::size_t(block)]) << run;
        }
        EXPECT_EQ(threads > 1 ? threads * passes : 0, client.parallelWorkers);
        EXPECT_EQ(threads > 1 ? 0 : count * passes, client.serialWorkers);
        std::vector<int> expected;
        for (int start = 0; threads > 1 && start < count * passes; ++start)
            expected.push_back(start / passes);
        std::sort(client.started.begin(), client.started.end());
        EXPECT_EQ(expected, client.started);
        EXPECT_TRUE(progress.isMonotone() && progress.getPosFloat() == 1.0);
    }
}

TEST(BlockProcessor, ScheduleTakesTheFirstIndependentBlock)
{
    for (bool isEndNull : {false, true}) {
        Client client(5);
        client.blocks.areDependent = [](int a, int b) { return std::abs(a - b) == 1; };
        client.blocks.isIndependentOfItself = true;
        client.blocks.isEndNull = isEndNull;
        client.OnBlockStructureInit();
        auto const lock = [&] { return client.LockNextBlock(nullptr); };
        Block_iter const first = lock(), third = lock(), fifth = lock();
        EXPECT_TRUE(!client.HasCurrentJob() && lock() == client.BlockEnd());
        client.UnLockBlock(third, nullptr); // the first one is still in work
        EXPECT_TRUE(client.IsBlockProcessed(*third) && !client.IsBlockProcessed(*first));
        Block const & between = *client.blocks.at(1);
        EXPECT_FALSE(client.HasCurrentJob() || client.IsBlockReadyForProcess(between));
        client.UnLockBlock(first, nullptr);
        EXPECT_TRUE(client.IsBlockReadyForProcess(between));
        Block_iter const second = lock();
        client.UnLockBlock(fifth, nullptr);
        Block_iter const fourth = lock();
        EXPECT_EQ((std::vector<int>{0, 2, 4, 1, 3}), client.started);
        client.UnLockBlock(fourth, nullptr);
        EXPECT_TRUE(client.HasPotentialJob() && !client.HasCurrentJob()); // the second one is still in work
        client.UnLockBlock(second, nullptr);
        EXPECT_FALSE(client.HasPotentialJob());
        EXPECT_TRUE(lock() == client.BlockEnd());
        EXPECT_EQ(4, client.blocks.BlockIndex(fifth));
        EXPECT_EQ(-1, client.blocks.BlockIndex(client.BlockEnd()));
    }
}

TEST(BlockProcessor, EveryFailureOfEveryOperationHasItsStatusAndLeavesTheObjectUsable)
{
    struct Failure
    {
        std::function<void()> raise;
        int status, statusOnWorker;
    };
    std::vector<Failure> const failures = {
        {[] { throw EBlockAlgError(42); }, 42, -1},
        {[] { throw EBlockAlgError(); }, 0, -1},
        {[] { throw std::bad_alloc(); }, 1, -1},
        {[] { throw CUserIntrException("stop"); }, 10, 10},
        {[] { throw std::runtime_error("fault"); }, -1, -1},
        {[] { throw 5; }, -1, -1},
    };
    using Operations = std::vector<std::string>;
    Operations const onManager = {
        "ResetWholeProcessStatus", "PreliminaryGlobalActions", "PreliminaryPassActions", "OnNewPass",
        "FinalPassActions",        "FinalGlobalActions",       "GetWholeProcessResult",  "CreateBlockWorker"};
    Operations const onManagerOfWorkers = {"InitThreadedPrgCnt", "RegisterWorkerPrgCnt", "UpdateParentPrgCnt",
                                           "UnRegisterWorkerPrgCnt", "ReleaseThreadedPrgCnt"};
    Operations const onWorker = {
        "Init",          "ExtractBlock",      "BlockInit",        "BlockInitUnshared", "ProcessFragment",
        "BlockFinalize", "ApplyBlockChanges", "CheckWorkerResult"};
    Operations const onWorkerOnly = {"NeedUnsharedWorkerInit", "OnBlockProcessStart", "OnBlockProcessFinish"};
    Client client(8);
    client.SetImmediateBlockModify(true);
    client.SetExtractBlock(true);
    auto const check = [&](std::string const & operation, int threads, int call, Failure const & failure,
                           int expected) {
        SCOPED_TRACE(operation + " with " + std::to_string(threads) + " threads");
        std::atomic<int> calls{0};
        Hook const failing = [&](std::string const & called, int) {
            if (called == operation && calls++ == call)
                failure.raise();
        };
        client.SetNParralelThreads(threads);
        client.hook = client.blocks.hook = failing;
        EXPECT_EQ(expected, client.Run());
        client.hook = client.blocks.hook = doNothing;
        runAgain(client, threads);
    };
    for (Failure const & failure : failures) {
        for (int threads : {1, 3}) {
            for (std::string const & operation : onManager)
                check(operation, threads, 0, failure, failure.status);
            for (std::string const & operation : onWorker)
                check(operation, threads, 0, failure, threads > 1 ? failure.statusOnWorker : failure.status);
        }
        for (std::string const & operation : onManagerOfWorkers)
            check(operation, 3, 0, failure, failure.status);
        check("CreateBlockWorker", 3, 2, failure, failure.status);
        check("CreateBlockWorker", 1, 5, failure, failure.status);
        check("ProcessFragment", 3, 7, failure, failure.statusOnWorker); // the last block
        for (std::string const & operation : onWorkerOnly)
            check(operation, 3, 0, failure, failure.statusOnWorker);
    }
    for (int threads : {1, 3}) {
        for (auto const & [code, serial, parallel] : {std::tuple(5, 5, -1), {10, 10, 10}, {-3, -3, -1}}) {
            client.SetNParralelThreads(threads);
            client.status = [status = code](int block) { return block == 4 ? status : 0; };
            EXPECT_EQ(threads > 1 ? parallel : serial, client.Run());
        }
    }
}

TEST(BlockProcessor, StopsAtAnyMomentEndTheRunAndReachNoOther)
{
    std::mt19937 random(11);
    for (int run = 0; run < 120; ++run) {
        Client client(20);
        qz_test::ProgressRecorder progress;
        client.SetProgressCounter(&progress);
        client.SetNParralelThreads(run % 2 ? 3 : 1);
        client.SetImmediateBlockModify(true);
        client.SetNPasses(1000000);
        int const kind = run / 2 % 3;
        auto const stop = [&] {
            if (kind == 0)
                client.SetAbortEvent();
            else if (kind == 1)
                client.SetUserBreak(true);
            else
                progress.interrupt();
        };
        std::atomic<bool> isRunning{false};
        std::thread stopper;
        if (run % 10 == 9) { // asked before
            stop();
        } else {
            client.hook = [&](std::string const & operation, int) {
                isRunning = operation == "Init" || isRunning;
            };
            stopper = std::thread([&, delay = std::chrono::microseconds(random() % 3000)] {
                while (!isRunning)
                    std::this_thread::yield();
                std::this_thread::sleep_for(delay);
                stop();
            });
        }
        EXPECT_EQ(kind == 0 ? -1 : 10, client.Run());
        if (stopper.joinable())
            stopper.join();
        EXPECT_TRUE(progress.isMonotone());
        progress.positions.clear();
        EXPECT_EQ(0, client.tornReads + client.conflicts);
        client.SetNPasses(1);
        runAgain(client, run % 2 ? 3 : 1);
    }
    Client client(3);
    client.SetUserBreak(true);
    client.SetAbortEvent();
    EXPECT_EQ(10, client.Run()); // of both requests the user's counts
}

TEST(BlockProcessor, ConfigurationDecidesWhatIsCalled)
{
    std::string calls;
    Client client(3);
    client.hook = [&](std::string const & operation, int) { calls += operation + ' '; };
    client.SetExtractBlock(true);
    EXPECT_EQ(9, client.Run());
    client.SetExtractBlock(false);
    client.SetBlockStructure(nullptr);
    EXPECT_EQ(-1, client.Run());
    EXPECT_EQ("", calls);
    client.SetBlockStructure(&client.blocks);
    client.SetNPasses(0);
    EXPECT_EQ(0, client.Run());
    EXPECT_EQ("ResetWholeProcessStatus PreliminaryGlobalActions FinalGlobalActions GetWholeProcessResult ",
              calls);

    client.SetNPasses(5);
    int finals = 0;
    client.hook = [&](std::string const & operation, int) {
        if (operation == "FinalPassActions" && client.CurrentPassNo() == 1)
            client.SetThisPassLast();
        finals += operation == "FinalPassActions" || operation == "FinalGlobalActions";
    };
    EXPECT_EQ(0, client.Run());
    EXPECT_EQ(3, finals);
    EXPECT_EQ((std::vector<int>{2, 4, 6}), client.values);

    client.SetNParralelThreads(4);
    client.SetUseParallelThreads(false);
    EXPECT_EQ(0, client.Run());
    client.SetUseParallelThreads(true); // one thread is left
    EXPECT_EQ(0, client.Run());
    EXPECT_EQ(0, client.parallelWorkers);
}

// A client that replaces nothing but the work takes the locks itself where it has to be alone.
TEST(BlockProcessor, WhatAClientLeavesOutDoesNothing)
{
    struct Plain : CBlockProcessor
    {
        struct Worker : CBlockWorker
        {
            Worker(Plain & client, bool parallel) : CBlockWorker(&client, parallel), m_client(client) {}
            int ProcessFragment(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override
            {
                m_client.LockAllMutexes(GetID());
                int const former = m_client.processed;
                std::this_thread::yield();
                m_client.processed = former + 1;
                m_client.UnlockAllMutexes(GetID());
                return 0;
            }
            void BlockFinalize(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override {}
            Plain & m_client;
        };
        ~Plain() override = default;
        CBlockWorker * CreateBlockWorker(bool parallel) override
        {
            return hasWorkers ? new Worker(*this, parallel) : nullptr;
        }
        bool hasWorkers = true;
        int processed = 0; // guarded by the locks only
    };
    // Without threads each block has a worker, and so a lock, of its own; the thread sanitizer follows 64.
    constexpr int count = 60;
    Blocks blocks(count);
    for (int threads : {1, 4}) {
        for (auto const & [modify, extract] : {std::pair(false, false), {true, false}, {true, true}}) {
            Plain client;
            client.SetBlockStructure(&blocks);
            client.SetNParralelThreads(threads);
            client.SetImmediateBlockModify(modify);
            client.SetExtractBlock(extract);
            EXPECT_EQ(0, client.Run());
            EXPECT_EQ(extract ? 0 : count, client.processed); // all blocks are empty where none is extracted
            client.hasWorkers = false;
            EXPECT_EQ(-1, client.Run());
        }
    }
}

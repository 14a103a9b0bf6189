// SPDX-License-Identifier: Apache-2.0
#include "QZsys/TaskSupport.h"

#include <QZsys/Exceptions.h>
#include <QZsys/ProgressBlocks.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

TEST(ProgressBlocks, BlocksInWorkCountByTheirWorkersPosition)
{
    RecordingCounter parent;
    CPrgCntBlocksTreaded blocks(&parent, 4);
    CProgressCounter first, second;
    blocks.AddChildPrgCnt(&first);
    blocks.AddChildPrgCnt(&first);
    blocks.AddChildPrgCnt(&second);
    blocks.AddChildPrgCnt(nullptr);
    blocks.AddChildPrgCnt(&parent);
    auto const parentAfterUpdate = [&] {
        blocks.UpdateParentPrgCnt();
        return parent.getPosFloat();
    };

    first.SetPosFloat(0.9); // left over from former work
    blocks.BindChildToBlock(2, &first);
    EXPECT_EQ(0.0, parentAfterUpdate());
    first.SetPosFloat(0.5);
    blocks.BindChildToBlock(0, &second);
    second.SetPosFloat(0.25);
    EXPECT_EQ(0.1875, parentAfterUpdate());
    blocks.OnOneBlockMoreFinished(2, &first);
    blocks.OnOneBlockMoreFinished(2, &first);
    EXPECT_EQ(0.3125, parentAfterUpdate());
    blocks.BindChildToBlock(4, &first); // out of range
    blocks.OnOneBlockMoreFinished(-1, &first);
    EXPECT_EQ(0.3125, parentAfterUpdate());
    blocks.RemoveChildPrgCnt(&second); // its share of block 0 is lost, but the parent does not fall
    blocks.RemoveChildPrgCnt(&second);
    EXPECT_EQ(0.3125, parentAfterUpdate());
    for (int block : {0, 1, 3})
        blocks.OnOneBlockMoreFinished(block, &first);
    EXPECT_EQ(1.0, parentAfterUpdate());
    EXPECT_TRUE(std::is_sorted(parent.positions.begin(), parent.positions.end()));

    blocks.setBlockCount(-3);
    EXPECT_EQ(1.0, parentAfterUpdate());
    CPrgCntBlocksTreaded orphaned(nullptr, 2);
    orphaned.UpdateParentPrgCnt();
}

TEST(ProgressBlocks, WorkersReportWhileTheManagerUpdates)
{
    int const blockCount = 400, workerCount = 4;
    RecordingCounter parent;
    CPrgCntBlocksTreaded blocks(&parent, blockCount);
    std::atomic<int> nextBlock{0}, running{workerCount};
    std::vector<std::thread> workers;
    for (int w = 0; w < workerCount; ++w)
        workers.emplace_back([&] {
            CProgressCounter own;
            blocks.AddChildPrgCnt(&own);
            for (int block; (block = nextBlock++) < blockCount;) {
                blocks.BindChildToBlock(block, &own);
                for (int step = 0; step < 50; ++step)
                    CPrgCntSubPhase part(&own, step / 50.0, 1 / 50.0, 1, true);
                blocks.OnOneBlockMoreFinished(block, &own);
            }
            blocks.RemoveChildPrgCnt(&own);
            --running;
        });
    {
        CPrgCntSubPhase job(&parent, 0.0, 1.0, 0, true);
        while (running > 0)
            blocks.UpdateParentPrgCnt();
        for (std::thread & worker : workers)
            worker.join();
        blocks.UpdateParentPrgCnt();
        EXPECT_EQ(1.0, parent.getPosFloat());
    }
    EXPECT_TRUE(std::is_sorted(parent.positions.begin(), parent.positions.end()));
}

TEST(ProgressBlocks, InterruptionOfTheParentReachesEveryWorker)
{
    CProgressCounter parent;
    CPrgCntBlocksTreaded blocks(&parent, 10);
    std::atomic<int> started{0}, interrupted{0};
    std::vector<std::unique_ptr<CProgressCounter>> children;
    std::vector<std::thread> workers;
    for (int w = 0; w < 3; ++w) {
        children.push_back(std::make_unique<CProgressCounter>());
        blocks.AddChildPrgCnt(children.back().get());
        workers.emplace_back([&, own = children.back().get(), w] {
            blocks.BindChildToBlock(w, own);
            ++started;
            try {
                for (;;) {
                    own->SetPosFloat(0.5);
                    std::this_thread::yield();
                }
            } catch (CUserIntrException const &) {
                ++interrupted;
            }
        });
    }
    while (started < 3)
        std::this_thread::yield();
    EXPECT_NO_THROW(blocks.UpdateParentPrgCnt());
    parent.interrupt();
    EXPECT_THROW(blocks.UpdateParentPrgCnt(), CUserIntrException);
    for (std::thread & worker : workers)
        worker.join();
    EXPECT_EQ(3, interrupted);
    CProgressCounter latecomer;
    blocks.AddChildPrgCnt(&latecomer);
    EXPECT_THROW(latecomer.SetPosFloat(0.0), CUserIntrException);
}

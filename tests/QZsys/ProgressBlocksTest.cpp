// SPDX-License-Identifier: Apache-2.0
#include "QZsys/TaskSupport.h"

#include <QZsys/Exceptions.h>
#include <QZsys/ProgressBlocks.h>

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <atomic>
#include <initializer_list>
#include <thread>
#include <vector>

using qz_test::ProgressRecorder;

TEST(ProgressBlocks, BlocksInWorkCountByTheirWorkersPosition)
{
    ProgressRecorder parent;
    CPrgCntBlocksTreaded blocks(&parent, 4);
    CProgressCounter first, second;
    for (CProgressCounter * child :
         std::initializer_list<CProgressCounter *>{&first, &first, &second, nullptr, &parent})
        blocks.AddChildPrgCnt(child);
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
    EXPECT_TRUE(parent.isMonotone());

    blocks.setBlockCount(-3);
    EXPECT_EQ(1.0, parentAfterUpdate());
    CPrgCntBlocksTreaded orphaned(nullptr, 2);
    orphaned.UpdateParentPrgCnt();
}

TEST(ProgressBlocks, InterruptionOfTheParentReachesEveryWorker)
{
    CProgressCounter parent, children[3];
    CPrgCntBlocksTreaded blocks(&parent, 10);
    std::atomic<int> started{0};
    std::vector<std::thread> workers;
    for (CProgressCounter & own : children) {
        blocks.AddChildPrgCnt(&own);
        workers.emplace_back([&] {
            ++started;
            EXPECT_THROW(
                for (;;) {
                    own.SetPosFloat(0.5);
                    std::this_thread::yield();
                },
                CUserIntrException);
        });
    }
    while (started < 3)
        std::this_thread::yield();
    EXPECT_NO_THROW(blocks.UpdateParentPrgCnt());
    parent.interrupt();
    EXPECT_THROW(blocks.UpdateParentPrgCnt(), CUserIntrException);
    for (std::thread & worker : workers)
        worker.join();
    CProgressCounter latecomer;
    blocks.AddChildPrgCnt(&latecomer);
    EXPECT_THROW(latecomer.SetPosFloat(0.0), CUserIntrException);
}

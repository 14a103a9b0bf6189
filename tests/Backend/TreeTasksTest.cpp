// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/TreeTasks.h>
#include <QZsys/Exceptions.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/Recorders.h"

namespace
{

using QzBackend::TreeTasks;

// Each task with a parent among the later ones; a few roots.
std::vector<int> randomForest(int size, std::mt19937 & random)
{
    std::vector<int> parent;
    for (int task = 0; task < size; ++task)
        parent.push_back(task + 1 == size || random() % 50 == 0
                             ? -1
                             : task + 1 + int(random() % unsigned(std::min(9, size - task - 1))));
    return parent;
}

TEST(TreeTasks, RunsEachTaskOnceAfterItsChildrenWithAllParts)
{
    std::mt19937 random(41);
    for (int const threads : {1, 2, 5})
        for (int round = 0; round < 20; ++round) {
            std::vector<int> const parent = randomForest(1 + round * 20, random);
            std::vector<int> runs(parent.size(), 0), sums(parent.size(), 0), expected(parent.size(), 0);
            std::vector<std::atomic<int>> slots(static_cast<std::size_t>(threads));
            TreeTasks tasks(parent, nullptr, 1.0);
            tasks.run(threads, [&](int slot, int task) {
                EXPECT_EQ(slots[std::size_t(slot)]++, 0); // no other task of this slot
                ++runs[std::size_t(task)];
                std::vector<int> parts(std::size_t(task % 7), 0);
                tasks.forParts(slot, task % 7, [&](int, int part) { parts[std::size_t(part)] += part + 1; });
                // Plain memory of the children: a race if they had not ended.
                for (std::size_t child = 0; child < std::size_t(task); ++child)
                    if (parent[child] == task)
                        sums[std::size_t(task)] += sums[child];
                for (int const part : parts)
                    sums[std::size_t(task)] += part;
                --slots[std::size_t(slot)];
            });
            for (std::size_t task = 0; task < parent.size(); ++task) {
                int const parts = int(task % 7);
                expected[task] += parts * (parts + 1) / 2;
                if (parent[task] >= 0)
                    expected[std::size_t(parent[task])] += expected[task];
            }
            EXPECT_EQ(runs, std::vector<int>(parent.size(), 1));
            EXPECT_EQ(sums, expected);
        }
}

TEST(TreeTasks, ExceptionsOfTasksAndOfTheCounterComeOut)
{
    std::mt19937 random(42);
    std::vector<int> const parent = randomForest(100, random);
    for (int const threads : {1, 3}) {
        TreeTasks failing(parent, nullptr, 1.0);
        EXPECT_THROW(failing.run(threads,
                                 [&](int slot, int task) {
                                     failing.forParts(slot, 4, [&](int, int part) {
                                         if (task == 60 && part == 2)
                                             throw std::runtime_error("part");
                                     });
                                 }),
                     std::runtime_error);

        qz_test::ProgressRecorder counter;
        counter.inPosition = [&counter] {
            if (counter.positions.size() == 3)
                counter.interrupt();
        };
        TreeTasks interrupted(parent, &counter, 1e9);
        std::atomic<int> begun{0};
        EXPECT_THROW(interrupted.run(threads,
                                     [&](int slot, int) {
                                         ++begun;
                                         interrupted.forParts(slot, 3, [&](int, int) {
                                             std::this_thread::sleep_for(std::chrono::milliseconds(5));
                                             interrupted.worked(1.0);
                                         });
                                     }),
                     CUserIntrException);
        EXPECT_LT(begun, 100);
    }
}

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Heap.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace
{

/// Every entry knows its place, and no key is above that of its parent.
bool isSound(CfpHeap const & heap)
{
    for (std::size_t index = 0; index < heap.size(); ++index) {
        if (heap.at(index)->getHeapPos() != int(index) ||
            heap.at(index)->getHeapKey() > heap.at((index - 1 + (index == 0)) / 2)->getHeapKey())
            return false;
    }
    return true;
}

TEST(Heap, millionRandomOperationsAgreeWithASortedSet)
{
    std::mt19937 random(20240517);
    std::vector<CfpHeapMem> elements(700);
    std::set<std::pair<double, CfpHeapMem *>> model;
    CfpHeap heap;
    heap.reserve(elements.size());
    for (int step = 0; step < 1000000; ++step) {
        CfpHeapMem * const element = &elements[random() % elements.size()];
        double const key = double(random() % 500) - 250; // few enough for many equal keys
        double const oldKey = element->getHeapKey();
        bool const wasInside = model.count({oldKey, element}) == 1;
        ASSERT_EQ(element->inHeap(), wasInside);
        switch (random() % 8) {
        case 0:
        case 1:
        case 2:
            if (!wasInside) {
                heap.insert(element, key);
                model.insert({key, element});
            }
            break;
        case 3:
            heap.update(element, key);
            if (wasInside) {
                model.erase({oldKey, element});
                model.insert({key, element});
            } else {
                ASSERT_EQ(element->getHeapKey(), oldKey);
            }
            break;
        case 4:
            element->setHeapKey(key);
            heap.update(element);
            if (wasInside) {
                model.erase({oldKey, element});
                model.insert({key, element});
            }
            break;
        case 5:
            ASSERT_EQ(heap.remove(element), wasInside ? element : nullptr);
            model.erase({oldKey, element});
            break;
        case 6:
            if (CfpHeapMem * const greatest = heap.extract()) {
                ASSERT_EQ(greatest->getHeapKey(), model.rbegin()->first);
                ASSERT_FALSE(greatest->inHeap());
                ASSERT_EQ(model.erase({greatest->getHeapKey(), greatest}), 1u);
            } else {
                ASSERT_TRUE(model.empty());
            }
            break;
        default:
            if (step % 50 == 0)
                heap.sort();
        }
        ASSERT_EQ(heap.size(), model.size());
        ASSERT_TRUE(step % 997 != 0 || isSound(heap)) << "after step " << step;
    }
}

TEST(Heap, everyShortSequenceWithEqualKeysSurvivesEveryRemoval)
{
    constexpr std::size_t count = 7;
    for (int code = 0; code < 2187; ++code) { // every choice of three keys for seven elements
        for (std::size_t removed = 0; removed < count; ++removed) {
            std::array<CfpHeapMem, count> elements;
            CfpHeap heap;
            int digits = code;
            for (CfpHeapMem & element : elements) {
                heap.insert(&element, digits % 3);
                digits /= 3;
            }
            ASSERT_EQ(heap.remove(&elements[removed]), &elements[removed]);
            ASSERT_TRUE(isSound(heap));
            ASSERT_EQ(heap.remove(&elements[removed]), nullptr);
            double previous = 3;
            for (std::size_t left = count - 1; left > 0; --left) {
                CfpHeapMem const * const greatest = heap.extract();
                ASSERT_LE(greatest->getHeapKey(), previous);
                ASSERT_FALSE(greatest->inHeap());
                ASSERT_TRUE(isSound(heap));
                previous = greatest->getHeapKey();
            }
            ASSERT_EQ(heap.extract(), nullptr);
        }
    }
}

TEST(Heap, equalKeysKeepTheirPlaces)
{
    std::array<CfpHeapMem, 6> elements;
    CfpHeap heap;
    for (CfpHeapMem & element : elements)
        heap.insert(&element, 1.0);
    for (std::size_t index = 0; index < elements.size(); ++index) {
        EXPECT_EQ(heap.at(index), &elements[index]);
        heap.update(&elements[index]);
        EXPECT_EQ(elements[index].getHeapPos(), int(index));
    }
    // The last one takes the root's place and stays there.
    EXPECT_EQ(heap.extract(), &elements[0]);
    EXPECT_EQ(heap.front(), &elements[5]);
    // Of two equal children the left one rises.
    heap.update(&elements[5], 0.0);
    EXPECT_EQ(heap.front(), &elements[1]);
}

TEST(Heap, sortedArrayIsAHeap)
{
    std::mt19937 random(3);
    std::vector<CfpHeapMem> elements(1000);
    CfpHeap heap;
    for (CfpHeapMem & element : elements)
        heap.insert(&element, double(random() % 300));
    heap.sort();
    EXPECT_TRUE(isSound(heap));
    for (std::size_t index = 1; index < heap.size(); ++index)
        ASSERT_LE(heap.at(index)->getHeapKey(), heap.at(index - 1)->getHeapKey());
    heap.update(heap.at(500), 1e9);
    EXPECT_EQ(heap.front()->getHeapKey(), 1e9);
    EXPECT_TRUE(isSound(heap));
}

TEST(Heap, sizedHeapHoldsNullsToBeFilled)
{
    CfpHeap heap(3);
    ASSERT_EQ(heap.size(), 3u);
    std::array<CfpHeapMem, 3> elements;
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(heap.at(index), nullptr);
        elements[index].setHeapKey(double(index));
        heap.at(index) = &elements[index];
    }
    heap.sort();
    EXPECT_TRUE(isSound(heap));
    EXPECT_EQ(heap.front(), &elements[2]);
    CfpHeapMem copy = elements[2];
    EXPECT_TRUE(copy.inHeap());
    copy.setOutofHeap();
    EXPECT_EQ(heap.remove(&copy), nullptr);
    EXPECT_EQ(heap.size(), 3u);
}

} // namespace

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

/// The rules of the array written down plainly, for keys that change while their owners are outside.
struct PlainHeap
{
    std::vector<CfpHeapMem *> array;

    double key(std::size_t index) const { return array[index]->getHeapKey(); }

    void up(std::size_t index)
    {
        for (; index > 0 && key(index) > key((index - 1) / 2); index = (index - 1) / 2)
            std::swap(array[index], array[(index - 1) / 2]);
    }
    void down(std::size_t index)
    {
        for (std::size_t child = 2 * index + 1; child < array.size(); child = 2 * index + 1) {
            child += child + 1 < array.size() && key(child + 1) > key(child);
            if (!(key(child) > key(index)))
                return;
            std::swap(array[index], array[child]);
            index = child;
        }
    }
    void remove(std::size_t index)
    {
        double const removed = key(index);
        std::swap(array[index], array.back());
        array.pop_back();
        if (index == array.size())
            return;
        if (removed > key(index))
            down(index);
        else
            up(index);
    }
};

TEST(Heap, equalKeysTakeTheSamePlacesAsByThePlainRules)
{
    std::mt19937 random(5);
    for (unsigned range : {1u, 2u, 3u, 10u, 1000u}) {
        std::vector<CfpHeapMem> elements(100);
        CfpHeap heap;
        PlainHeap plain;
        for (int step = 0; step < 20000; ++step) {
            CfpHeapMem & element = elements[random() % elements.size()];
            bool const wasInside = element.inHeap();
            std::size_t const index = wasInside ? std::size_t(element.getHeapPos()) : plain.array.size();
            double const newKey = double(random() % range);
            if (!wasInside) {
                heap.insert(&element, newKey);
                plain.array.push_back(&element);
                plain.up(index);
            } else if (random() % 3 == 0) {
                ASSERT_EQ(heap.extract(), plain.array[0]);
                plain.remove(0);
            } else if (random() % 2 == 0) {
                ASSERT_EQ(heap.remove(&element), &element);
                ASSERT_EQ(heap.remove(&element), nullptr);
                plain.remove(index);
            } else {
                heap.update(&element, newKey);
                plain.up(index);
                if (plain.array[index] == &element)
                    plain.down(index);
            }
            ASSERT_EQ(heap.size(), plain.array.size());
            for (std::size_t place = 0; place < heap.size(); ++place)
                ASSERT_EQ(heap.at(place), plain.array[place]) << "step " << step << ", place " << place;
        }
    }
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

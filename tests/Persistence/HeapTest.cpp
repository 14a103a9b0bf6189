// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Heap.h>

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <utility>
#include <vector>

namespace
{

/// The rules of the array written down plainly.
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
    void insert(CfpHeapMem * element)
    {
        array.push_back(element);
        up(array.size() - 1);
    }
    void update(std::size_t index)
    {
        if (index > 0 && key(index) > key((index - 1) / 2))
            up(index);
        else
            down(index);
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

TEST(Heap, millionRandomOperationsGiveTheArrayOfThePlainRules)
{
    std::mt19937 random(20240517);
    for (unsigned range : {1u, 2u, 3u, 10u, 1000u}) { // few keys are often equal
        std::vector<CfpHeapMem> elements(100);
        CfpHeap heap;
        heap.reserve(elements.size());
        PlainHeap plain;
        for (int step = 0; step < 200000; ++step) {
            CfpHeapMem & element = elements[random() % elements.size()];
            bool const wasInside = element.inHeap();
            std::size_t const index = wasInside ? std::size_t(element.getHeapPos()) : 0;
            double const oldKey = element.getHeapKey(), newKey = double(random() % range);
            switch (random() % 8) {
            case 0:
            case 1:
            case 2:
                if (!wasInside) {
                    heap.insert(&element, newKey);
                    plain.insert(&element);
                }
                break;
            case 3:
                heap.update(&element, newKey);
                ASSERT_EQ(element.getHeapKey(), wasInside ? newKey : oldKey);
                if (wasInside)
                    plain.update(index);
                break;
            case 4:
                element.setHeapKey(newKey);
                heap.update(&element);
                if (wasInside)
                    plain.update(index);
                break;
            case 5:
                ASSERT_EQ(heap.remove(&element), wasInside ? &element : nullptr);
                if (wasInside)
                    plain.remove(index);
                break;
            case 6:
                if (CfpHeapMem * const greatest = heap.extract()) {
                    ASSERT_EQ(greatest, plain.array[0]);
                    ASSERT_FALSE(greatest->inHeap());
                    plain.remove(0);
                }
                break;
            default:
                if (step % 20 != 0)
                    break;
                heap.sort(); // equal keys come in any order
                for (std::size_t place = 0; place < plain.array.size(); ++place)
                    plain.array[place] = heap.at(place);
                for (std::size_t place = 1; place < plain.array.size(); ++place)
                    ASSERT_LE(plain.key(place), plain.key(place - 1));
            }
            ASSERT_EQ(heap.size(), plain.array.size());
            bool isSame = true;
            for (std::size_t place = 0; place < heap.size(); ++place)
                isSame &= heap.at(place) == plain.array[place] && heap.at(place)->getHeapPos() == int(place);
            ASSERT_TRUE(isSame) << "after step " << step;
        }
    }
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
    EXPECT_EQ(heap.front(), &elements[2]);
    EXPECT_EQ(elements[2].getHeapPos(), 0);
    CfpHeapMem copy = elements[2];
    EXPECT_TRUE(copy.inHeap());
    copy.setOutofHeap();
    EXPECT_EQ(heap.remove(&copy), nullptr);
    EXPECT_EQ(heap.size(), 3u);
}

} // namespace

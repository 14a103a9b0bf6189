// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/Heap.h>

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <set>
#include <vector>

namespace
{

TEST(Heap, RandomOperationsKeepTheOrderThePlacesAndTheElements)
{
    std::mt19937 random(20240517);
    for (unsigned range : {1u, 3u, 1000u}) { // few keys are often equal
        std::vector<CfpHeapMem> elements(100);
        std::set<CfpHeapMem *> inside;
        CfpHeap heap;
        heap.reserve(elements.size());
        for (int step = 0; step < 100000; ++step) {
            CfpHeapMem * const element = &elements[random() % elements.size()];
            bool const isInside = inside.count(element) > 0;
            double const oldKey = element->getHeapKey(), newKey = double(random() % range);
            switch (random() % 8) {
            case 0:
            case 1:
            case 2:
                if (inside.insert(element).second)
                    heap.insert(element, newKey);
                break;
            case 3:
                heap.update(element, newKey);
                ASSERT_EQ(element->getHeapKey(), isInside ? newKey : oldKey);
                break;
            case 4:
                element->setHeapKey(newKey);
                heap.update(element);
                break;
            case 5:
                ASSERT_EQ(heap.remove(element), isInside ? element : nullptr);
                inside.erase(element);
                break;
            case 6:
                if (CfpHeapMem * const greatest = heap.empty() ? nullptr : heap.front()) {
                    ASSERT_EQ(heap.extract(), greatest);
                    for (CfpHeapMem * const other : inside)
                        ASSERT_LE(other->getHeapKey(), greatest->getHeapKey());
                    inside.erase(greatest);
                } else {
                    ASSERT_EQ(heap.extract(), nullptr);
                }
                break;
            default:
                heap.sort();
                for (std::size_t place = 1; place < heap.size(); ++place)
                    ASSERT_LE(heap.at(place)->getHeapKey(), heap.at(place - 1)->getHeapKey());
            }
            ASSERT_EQ(heap.size(), inside.size());
            ASSERT_EQ(element->inHeap(), inside.count(element) > 0);
            bool isSound = true;
            for (std::size_t place = 0; place < heap.size(); ++place) {
                CfpHeapMem * const here = heap.at(place);
                isSound &= inside.count(here) > 0 && here->getHeapPos() == int(place) &&
                           heap.at((place - (place > 0)) / 2)->getHeapKey() >= here->getHeapKey();
            }
            ASSERT_TRUE(isSound) << "after step " << step;
        }
    }
}

// Equal keys stay where they are, and of two equal children the left one rises.
TEST(Heap, TiesAreDecidedByPlace)
{
    std::array<CfpHeapMem, 4> elements;
    CfpHeap heap;
    for (CfpHeapMem & element : elements)
        heap.insert(&element, 1.0);
    heap.update(&elements[0]);
    for (std::size_t place = 0; place < 4; ++place)
        EXPECT_EQ(heap.at(place), &elements[place]);
    heap.update(&elements[0], 0.0);
    std::array<std::size_t, 4> const sunk = {1, 3, 2, 0};
    for (std::size_t place = 0; place < 4; ++place)
        EXPECT_EQ(heap.at(place), &elements[sunk[place]]);
}

} // namespace

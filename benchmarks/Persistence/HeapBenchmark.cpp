// SPDX-License-Identifier: Apache-2.0

// The addressable heap beside the standard one, which stores keys next to each other but cannot update. Both
// get a million elements in random order of keys and give them all back. `update` changes the key of a random
// element of as large a heap.

#include <QZmath/Persistence/Heap.h>

#include <benchmark/benchmark.h>

#include <queue>
#include <random>
#include <utility>
#include <vector>

namespace
{

constexpr std::size_t count = 1000000;

std::vector<CfpHeapMem> randomElements()
{
    std::mt19937 random(1);
    std::vector<CfpHeapMem> elements(count);
    for (CfpHeapMem & element : elements)
        element.setHeapKey(double(random()));
    return elements;
}

struct LessKey
{
    bool operator()(CfpHeapMem const * left, CfpHeapMem const * right) const
    {
        return left->getHeapKey() < right->getHeapKey();
    }
};

void pushPopStandard(benchmark::State & state)
{
    std::vector<CfpHeapMem> elements = randomElements();
    for (auto _ : state) {
        std::priority_queue<CfpHeapMem *, std::vector<CfpHeapMem *>, LessKey> queue;
        for (CfpHeapMem & element : elements)
            queue.push(&element);
        for (; !queue.empty(); queue.pop())
            benchmark::DoNotOptimize(queue.top());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(count));
}

void pushPop(benchmark::State & state)
{
    std::vector<CfpHeapMem> elements = randomElements();
    for (auto _ : state) {
        CfpHeap heap;
        for (CfpHeapMem & element : elements)
            heap.insert(&element);
        while (CfpHeapMem * const greatest = heap.extract())
            benchmark::DoNotOptimize(greatest);
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(count));
}

void update(benchmark::State & state)
{
    std::vector<CfpHeapMem> elements = randomElements();
    CfpHeap heap;
    for (CfpHeapMem & element : elements)
        heap.insert(&element);
    std::mt19937 random(2);
    std::vector<std::pair<std::size_t, double>> changes(1 << 16);
    for (auto & [index, key] : changes) {
        index = random() % count;
        key = double(random());
    }
    std::size_t next = 0;
    for (auto _ : state) {
        auto const & [index, key] = changes[next++ % changes.size()];
        heap.update(&elements[index], key);
    }
}

BENCHMARK(pushPopStandard)->Unit(benchmark::kMillisecond);
BENCHMARK(pushPop)->Unit(benchmark::kMillisecond);
BENCHMARK(update);

} // namespace

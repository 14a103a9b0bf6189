// SPDX-License-Identifier: Apache-2.0

// What scheduling costs: per block of empty work, in speed-up on two workers, and as the time that an idle
// worker sleeps on after a block has finished. Counters: per_block, wake_ms_median, wake_ms_max.

#include <QZmath/BlockProcessor/BlockProc.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

struct Block : IVescaFragmentDescriptor_Old
{};

class Blocks : public BlockProc::CBlockStructure
{
public:
    // Blocks less than `reach` places apart depend on each other.
    Blocks(int count, int reach) : m_blocks(static_cast<std::size_t>(count)), m_reach(reach) {}

    void NextBlock(BlockProc::Block_iter & block) const override { set(block, indexOf(*block) + 1); }
    void OnNewPass() override {}
    bool AreBlocksIndependent(IVescaFragmentDescriptor_Old const & a,
                              IVescaFragmentDescriptor_Old const & b) const override
    {
        return &a != &b && std::abs(indexOf(a) - indexOf(b)) >= m_reach;
    }
    int BlockCount() const override { return static_cast<int>(m_blocks.size()); }
    void BlockBegin(BlockProc::Block_iter & block) const override { set(block, 0); }
    void BlockEnd(BlockProc::Block_iter & block) const override { set(block, BlockCount()); }
    int BlockIndex(BlockProc::Block_iter block) const override { return indexOf(*block); }

private:
    int indexOf(IVescaFragmentDescriptor_Old const & block) const
    {
        return static_cast<int>(static_cast<Block const *>(&block) - m_blocks.data());
    }
    void set(BlockProc::Block_iter & block, int index) const
    {
        block = BlockProc::Block_iter(m_blocks.data() + index, this);
    }

    mutable std::vector<Block> m_blocks;
    int m_reach;
};

class Processor : public BlockProc::CBlockProcessor
{
public:
    Processor(Blocks & blocks, int threads, std::function<void()> work) : m_work(std::move(work))
    {
        SetBlockStructure(&blocks);
        SetNParralelThreads(threads);
    }
    ~Processor() override = default;

protected:
    class Worker : public BlockProc::CBlockWorker
    {
    public:
        Worker(Processor & processor, bool parallel)
            : CBlockWorker(&processor, parallel), m_processor(processor)
        {}
        int ProcessFragment(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override
        {
            m_processor.m_work();
            return 0;
        }
        void BlockFinalize(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override {}

    private:
        Processor & m_processor;
    };

    BlockProc::CBlockWorker * CreateBlockWorker(bool parallel) override
    {
        return new Worker(*this, parallel);
    }

    std::function<void()> m_work;
};

// Takes the times from "a block is finished" to "the sleeping worker is awake" out of the trace.
class WakeUpLog : public VsUt::IDebugLog
{
public:
    std::vector<double> milliseconds;

    void getMessage(char const * line) override
    {
        Clock::time_point const now = Clock::now();
        std::lock_guard<std::mutex> const lock(m_mutex);
        if (std::strstr(line, "Reporting that block finished")) {
            m_finished = now;
            m_isFinished = true;
        } else if (m_isFinished && std::strstr(line, "Waked up after sleep")) {
            milliseconds.push_back(std::chrono::duration<double, std::milli>(now - m_finished).count());
            m_isFinished = false;
        }
    }

private:
    std::mutex m_mutex;
    Clock::time_point m_finished;
    bool m_isFinished = false;
};

void BM_OverheadPerEmptyBlock(benchmark::State & state)
{
    int const count = 20000;
    Blocks blocks(count, 1);
    Processor processor(blocks, static_cast<int>(state.range(0)), [] {});
    for (auto _ : state)
        if (processor.Run() != 0)
            state.SkipWithError("the run failed");
    state.counters["per_block"] =
        benchmark::Counter(static_cast<double>(count),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_OverheadPerEmptyBlock)
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void spin(Clock::duration time)
{
    for (auto const end = Clock::now() + time; Clock::now() < end;) {
    }
}

void BM_BlocksOfOneMillisecond(benchmark::State & state)
{
    Blocks blocks(400, 1);
    Processor processor(blocks, static_cast<int>(state.range(0)), [] { spin(std::chrono::milliseconds(1)); });
    for (auto _ : state)
        if (processor.Run() != 0)
            state.SkipWithError("the run failed");
}
BENCHMARK(BM_BlocksOfOneMillisecond)
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void BM_WakeUpOfAnIdleWorker(benchmark::State & state)
{
    Blocks blocks(50, 1000); // only one can be in work
    Processor processor(blocks, 2, [] { std::this_thread::sleep_for(std::chrono::milliseconds(5)); });
    WakeUpLog log;
    processor.SetDebugLog(&log);
    for (auto _ : state)
        if (processor.Run() != 0)
            state.SkipWithError("the run failed");
    std::vector<double> & times = log.milliseconds;
    if (times.empty())
        return state.SkipWithError("nobody slept");
    std::sort(times.begin(), times.end());
    state.counters["wake_ms_median"] = times[times.size() / 2];
    state.counters["wake_ms_max"] = times.back();
}
BENCHMARK(BM_WakeUpOfAnIdleWorker)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

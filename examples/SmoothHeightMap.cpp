// SPDX-License-Identifier: Apache-2.0

// A height map smoothed block by block, on one thread and on several, with the same result to the bit. The
// new height of a point is the mean of the heights around it. A block takes out its heights and the sums of
// its points and of a halo of one point, adds each height to the nine sums around it, and writes the sums
// back. Neighbours share points of their halos: if two of them were in work at the same time, the later one
// would write over what the earlier one had added, so they depend on each other. Heights are whole numbers of
// micrometres, whose sums are the same in any order.

#include <QZmath/BlockProcessor/BlockProc.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace
{

constexpr int side = 4096;     // points along each axis of the map
constexpr int blockSide = 256; // points along each axis of a block
constexpr int blocksAlong = side / blockSide;

struct Tile : IVescaFragmentDescriptor_Old
{
    int row = 0, column = 0; // in blocks
};

Tile const & tileOf(IVescaFragmentDescriptor_Old const & block) { return static_cast<Tile const &>(block); }

class Tiles : public BlockProc::CBlockStructure
{
public:
    Tiles() : m_tiles(blocksAlong * blocksAlong)
    {
        for (int i = 0; i < BlockCount(); ++i) {
            m_tiles[static_cast<std::size_t>(i)].row = i / blocksAlong;
            m_tiles[static_cast<std::size_t>(i)].column = i % blocksAlong;
        }
    }
    void NextBlock(BlockProc::Block_iter & block) const override { set(block, BlockIndex(block) + 1); }
    void OnNewPass() override {}
    bool AreBlocksIndependent(IVescaFragmentDescriptor_Old const & a,
                              IVescaFragmentDescriptor_Old const & b) const override
    {
        return std::abs(tileOf(a).row - tileOf(b).row) > 1 ||
               std::abs(tileOf(a).column - tileOf(b).column) > 1;
    }
    int BlockCount() const override { return blocksAlong * blocksAlong; }
    void BlockBegin(BlockProc::Block_iter & block) const override { set(block, 0); }
    void BlockEnd(BlockProc::Block_iter & block) const override { set(block, BlockCount()); }
    int BlockIndex(BlockProc::Block_iter block) const override
    {
        return static_cast<int>(&tileOf(*block) - m_tiles.data());
    }

private:
    void set(BlockProc::Block_iter & block, int index) const
    {
        block = BlockProc::Block_iter(m_tiles.data() + index, this);
    }

    mutable std::vector<Tile> m_tiles; // the iterator hands out descriptors that clients may change
};

// The points of a block and of its halo; where the map ends, the halo does too.
struct Region
{
    explicit Region(Tile const & tile)
        : rowBegin(std::max(tile.row * blockSide - 1, 0)),
          rowEnd(std::min((tile.row + 1) * blockSide + 1, side)),
          columnBegin(std::max(tile.column * blockSide - 1, 0)),
          columnEnd(std::min((tile.column + 1) * blockSide + 1, side))
    {}
    int rowBegin, rowEnd, columnBegin, columnEnd;

    int width() const { return columnEnd - columnBegin; }
};

std::size_t indexOf(int row, int column)
{
    return static_cast<std::size_t>(row) * side + static_cast<std::size_t>(column);
}

struct Extract : IVescaFragment_Old
{
    explicit Extract(Tile const & tile) : region(tile) {}
    Region region;
    std::vector<int> heights; // of the block, row by row
    std::vector<int> sums;    // of the region, row by row
};

class Smoother : public BlockProc::CBlockProcessor
{
public:
    explicit Smoother(std::vector<int> heights) : m_heights(std::move(heights)), m_sums(m_heights.size())
    {
        SetBlockStructure(&m_tiles);
        SetExtractBlock(true);
        SetImmediateBlockModify(true);
    }
    ~Smoother() override = default;

    std::vector<int> const & heights() const { return m_heights; }

protected:
    class Worker : public BlockProc::CBlockWorker
    {
    public:
        using CBlockWorker::CBlockWorker;
        int ProcessFragment(IVescaFragmentDescriptor_Old & descriptor, IVescaFragment_Old * fragment) override
        {
            Tile const & tile = tileOf(descriptor);
            Extract & block = static_cast<Extract &>(*fragment);
            Region const & region = block.region;
            int const firstColumn = tile.column * blockSide;
            for (int i = 0; i < blockSide; ++i) {
                int const * const heights = &block.heights[static_cast<std::size_t>(i * blockSide)];
                int const row = tile.row * blockSide + i;
                for (int r = std::max(row - 1, 0); r <= std::min(row + 1, side - 1); ++r) {
                    int * const sums = block.sums.data() + (r - region.rowBegin) * region.width();
                    for (int shift = -1; shift <= 1; ++shift) {
                        int const offset = firstColumn + shift - region.columnBegin;
                        int const begin = std::max(0, -offset),
                                  end = std::min(blockSide, region.width() - offset);
                        for (int column = begin; column < end; ++column)
                            sums[offset + column] += heights[column];
                    }
                }
            }
            return 0;
        }
        void BlockFinalize(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override {}
    };

    BlockProc::CBlockWorker * CreateBlockWorker(bool parallel) override { return new Worker(this, parallel); }

    IVescaFragment_Old * ExtractBlock(IVescaFragmentDescriptor_Old const & descriptor) override
    {
        Tile const & tile = tileOf(descriptor);
        auto block = std::make_unique<Extract>(tile);
        Region const & region = block->region;
        block->heights.reserve(blockSide * blockSide);
        block->sums.reserve((blockSide + 2) * (blockSide + 2));
        for (int row = tile.row * blockSide; row < (tile.row + 1) * blockSide; ++row) {
            int const * const begin = &m_heights[indexOf(row, tile.column * blockSide)];
            block->heights.insert(block->heights.end(), begin, begin + blockSide);
        }
        for (int row = region.rowBegin; row < region.rowEnd; ++row) {
            int const * const begin = &m_sums[indexOf(row, region.columnBegin)];
            block->sums.insert(block->sums.end(), begin, begin + region.width());
        }
        return block.release();
    }

    void ApplyBlockChanges(IVescaFragmentDescriptor_Old const &, IVescaFragment_Old * fragment) override
    {
        Extract const & block = static_cast<Extract &>(*fragment);
        Region const & region = block.region;
        int const * sums = block.sums.data();
        for (int row = region.rowBegin; row < region.rowEnd; ++row, sums += region.width())
            std::copy(sums, sums + region.width(), &m_sums[indexOf(row, region.columnBegin)]);
    }

    void FinalPassActions() override
    {
        auto const isEdge = [](int i) { return i == 0 || i == side - 1; };
        for (int row = 0; row < side; ++row) {
            int * const heights = &m_heights[indexOf(row, 0)];
            int * const sums = &m_sums[indexOf(row, 0)];
            int const count = isEdge(row) ? 6 : 9;
            heights[0] = sums[0] / (count / 3 * 2);
            heights[side - 1] = sums[side - 1] / (count / 3 * 2);
            // Sums stay below 2^24, so `float` holds them exactly.
            float const share = 1.0f / static_cast<float>(count);
            for (int column = 1; column < side - 1; ++column)
                heights[column] = static_cast<int>(static_cast<float>(sums[column]) * share);
            std::fill(sums, sums + side, 0);
        }
    }

private:
    Tiles m_tiles;
    std::vector<int> m_heights, m_sums;
};

double roughness(std::vector<int> const & heights)
{
    double sum = 0;
    for (std::size_t i = 1; i < heights.size(); ++i)
        sum += std::abs(heights[i] - heights[i - 1]);
    return sum / static_cast<double>(heights.size());
}

} // namespace

int main()
{
    std::vector<int> heights(static_cast<std::size_t>(side) * side);
    unsigned noise = 1;
    for (std::size_t i = 0; i < heights.size(); ++i) {
        noise = noise * 1664525u + 1013904223u;
        heights[i] = static_cast<int>(1e6 * std::sin(static_cast<double>(i % side) * 0.01)) +
                     static_cast<int>(noise >> 8) % 200000;
    }
    std::vector<int> serial;
    double serialSeconds = 0;
    for (int threads : {1, std::max(2, CVescaThreadingTasksHelper::getNumOfPhisicalThread())}) {
        Smoother smoother(heights);
        smoother.SetNPasses(3);
        smoother.SetNParralelThreads(threads);
        auto const start = std::chrono::steady_clock::now();
        int const status = smoother.Run();
        double const seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (status != 0)
            return status;
        std::printf("%2d thread(s): %.2f s, roughness %.0f -> %.0f um\n", threads, seconds,
                    roughness(heights), roughness(smoother.heights()));
        if (serial.empty()) {
            serial = smoother.heights();
            serialSeconds = seconds;
        } else {
            std::printf("%.2f times as fast, results %s\n", serialSeconds / seconds,
                        serial == smoother.heights() ? "equal" : "DIFFERENT");
            if (serial != smoother.heights())
                return 1;
        }
        if (roughness(smoother.heights()) > 0.3 * roughness(heights))
            return 1;
    }
    return 0;
}

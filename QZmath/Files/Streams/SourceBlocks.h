// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Streams/ByteSource.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>
#include <vector>

namespace QZmath
{

/// Takes a source in blocks that are read on all threads at the same time. A block is read into a part of the
/// result, and the parts are appended in order by the thread that calls. How much is looked at ahead grows
/// with what has been read, up to a megabyte for each of at most 16 threads.
class SourceBlocks
{
public:
    explicit SourceBlocks(ByteSource & source)
        : m_source(source),
          m_threads(std::min(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), st_mostThreads))
    {}

    /// Reads things of one size each, and returns how many of `count` were there.
    /// \param whole  where they go: has `append(whole)` and `clear()`, and can be copied
    /// \param part   one without anything
    /// \param read   read(bytes, whole) adds the things that the bytes are; on any thread
    /// \param update update() is called now and then on the calling thread, and may throw
    template <class Whole, class Read, class Update>
    std::uint64_t readEqual(std::uint64_t count, std::size_t size, Whole & whole, Whole const & part,
                            Read const & read, Update const & update)
    {
        std::vector<Whole> parts;
        std::size_t const perBlock = std::max<std::size_t>(1, st_block / size);
        for (std::uint64_t done = 0; done < count;) {
            std::string_view const bytes = m_source.ahead(std::max(lengthAhead(), size));
            auto const here =
                static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size() / size, count - done));
            if (here == 0)
                return done;
            std::size_t const blocks = (here - 1) / perBlock + 1;
            if (m_threads == 1 || blocks == 1) {
                read(bytes.substr(0, here * size), whole);
            } else {
                parts.resize(std::max(parts.size(), blocks), part);
                onThreads(blocks, [&](std::size_t block) {
                    std::size_t const first = block * perBlock;
                    read(bytes.substr(first * size, std::min(perBlock, here - first) * size), parts[block]);
                });
                for (std::size_t block = 0; block < blocks; ++block) {
                    whole.append(parts[block]);
                    parts[block].clear();
                }
            }
            m_source.skip(here * size);
            done += here;
            update();
        }
        return count;
    }

    /// Reads lines up to the end of the last block, and returns false when the caller stopped it. What is
    /// left over, on one thread all, is for the caller to read line by line. So is a block that could not be
    /// read as it is: whatever is wrong or unusual is left to code that reads one line after the other.
    /// \param read   read(source, part) adds the lines of a block; on any thread. Throws what it cannot read.
    /// \param append append(part) takes a part over, in order; false when it does not want it
    /// \param readBy readBy(end) reads lines up to that position of the source; false when no more are wanted
    template <class Part, class Read, class Append, class ReadBy>
    bool readLines(Part const & part, Read const & read, Append const & append, ReadBy const & readBy)
    {
        struct Block
        {
            Part part;
            std::size_t begin = 0, length = 0;
            std::uint64_t lines = 0;
            bool isRead = false;

            explicit Block(Part const & empty) : part(empty) {}
        };
        std::vector<Block> blocks;
        while (m_threads > 1 && (!m_source.isSizeKnown() || m_source.remaining() > st_block)) {
            std::string_view const bytes = m_source.ahead(std::max(lengthAhead(), 2 * st_block));
            std::size_t number = 0;
            for (std::size_t begin = 0; begin < bytes.size(); ++number) {
                std::size_t const end = bytes.rfind('\n', std::min(begin + st_block, bytes.size()) - 1);
                if (end == std::string_view::npos || end < begin)
                    break;
                if (blocks.size() == number)
                    blocks.emplace_back(part);
                blocks[number].begin = begin;
                blocks[number].length = end + 1 - begin;
                begin = end + 1;
            }
            if (number < 2) // not worth it, or lines of another kind
                return true;
            onThreads(number, [&](std::size_t i) {
                Block & block = blocks[i];
                try {
                    ByteSource source(bytes.data() + block.begin, block.length);
                    read(source, block.part);
                    block.lines = source.lineNumber();
                    block.isRead = true;
                } catch (std::exception const &) {
                    block.isRead = false;
                }
            });
            for (std::size_t i = 0; i < number; ++i) {
                if (blocks[i].isRead && append(blocks[i].part))
                    m_source.skip(blocks[i].length, blocks[i].lines);
                else if (!readBy(m_source.position() + blocks[i].length))
                    return false;
                blocks[i].part.clear();
            }
        }
        return true;
    }

private:
    static constexpr std::size_t st_block = ByteSource::st_window;
    static constexpr std::size_t st_blocksPerThread = 4;
    static constexpr int st_mostThreads = 16;

    std::size_t lengthAhead() const
    {
        std::size_t const most =
            m_threads > 1 ? static_cast<std::size_t>(m_threads) * st_blocksPerThread * st_block : st_block;
        return static_cast<std::size_t>(std::clamp<std::uint64_t>(m_source.position(), st_block, most));
    }

    template <class Body>
    void onThreads(std::size_t count, Body const & body) const
    {
        std::atomic<std::size_t> next{0};
        VsUt::callTogether(static_cast<int>(std::min(count, static_cast<std::size_t>(m_threads))), [&](bool) {
            for (std::size_t i = next++; i < count; i = next++)
                body(i);
        });
    }

    ByteSource & m_source;
    int const m_threads;
};

} // namespace QZmath

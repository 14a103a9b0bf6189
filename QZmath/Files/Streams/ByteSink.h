// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

class CProgressCounter;

namespace QZmath
{

/// Bytes on their way into a sink. Numbers become little-endian bytes, or the shortest text that gives the
/// same number back. Takes no memory once it has been as long before.
class ByteBlock
{
public:
    /// Room for so many bytes, which all have to be filled before the next call.
    char * claim(std::size_t length)
    {
        if (m_used + length > m_bytes.size())
            m_bytes.resize(2 * m_bytes.size() + length);
        m_used += length;
        return m_bytes.data() + (m_used - length);
    }
    template <class T>
    void put(T value)
    {
        std::memcpy(claim(sizeof(T)), &value, sizeof(T)); // the host is little-endian
    }
    void bytes(void const * data, std::size_t length) { std::memcpy(claim(length), data, length); }
    void text(std::string_view characters) { bytes(characters.data(), characters.size()); }
    void number(float value);
    void number(double value);
    void number(std::int64_t value);

    char const * data() const { return m_bytes.data(); }
    std::size_t size() const { return m_used; }
    /// Empties it, and makes room for some bytes.
    void clear(std::size_t room)
    {
        m_used = 0;
        m_bytes.resize(std::max(m_bytes.size(), room));
    }

private:
    template <class T>
    void numberAsText(T value);

    std::vector<char> m_bytes;
    std::size_t m_used = 0;
};

/// Takes bytes for a file or a stream and hands them on in large pieces. Errors are `OutputError`s.
class ByteSink
{
public:
    /// Opens the file of a path for writing; "-" is standard output. `name` is the file's in messages.
    ByteSink(std::string const & path, std::string const & name);
    /// Writes to a stream, which must stay alive.
    explicit ByteSink(std::ostream & stream);
    /// Drops what has not been written.
    ~ByteSink();
    ByteSink(ByteSink const &) = delete;
    ByteSink & operator=(ByteSink const &) = delete;

    /// Reports how much of `expected` bytes has been handed on, of a sum of at least 1.
    void reportTo(CProgressCounter * progress, double expected);

    template <class T>
    void put(T value)
    {
        bytes(&value, sizeof(T)); // the host is little-endian
    }
    void bytes(void const * data, std::size_t length);
    void text(std::string_view characters) { bytes(characters.data(), characters.size()); }

    /// Writes things one behind the other: write(i, block) adds the bytes of thing i, some `bytesEach`.
    /// Blocks of them are made on all threads, while the one that calls hands on those that came before.
    template <class Write>
    void forEach(std::size_t count, std::size_t bytesEach, Write const & write)
    {
        std::size_t const perBlock = st_block / bytesEach + 1;
        inBlocks((count + perBlock - 1) / perBlock, [&](std::size_t block, ByteBlock & bytes) {
            std::size_t const end = std::min(count, (block + 1) * perBlock);
            for (std::size_t i = block * perBlock; i < end; ++i)
                write(i, bytes);
        });
    }

    /// Hands on everything; of a file, waits until the disk has it, and closes it.
    void finish();

private:
    static constexpr std::size_t st_capacity = std::size_t(1) << 18;
    static constexpr std::size_t st_block = std::size_t(1) << 17;

    void inBlocks(std::size_t count, std::function<void(std::size_t, ByteBlock &)> const & make);
    void flush();
    void handOn(char const * data, std::size_t length);

    std::string m_name;
    int m_file = -1;
    std::ostream * m_stream = nullptr;
    CProgressCounter * m_progress = nullptr;
    double m_expected = 1;
    double m_handedOn = 0;
    std::vector<char> m_buffer;
    std::size_t m_used = 0;
};

} // namespace QZmath

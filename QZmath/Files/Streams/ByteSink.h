// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

class CProgressCounter;

namespace QZmath
{

/// Takes bytes for a file or a stream and hands them on in large pieces. Numbers become little-endian bytes,
/// or the shortest text that gives the same number back. Errors are `OutputError`s.
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

    /// Room for so many bytes, at most 64 KiB, which all have to be filled before the next call.
    char * claim(std::size_t length)
    {
        if (m_used + length > st_capacity)
            flush();
        char * const place = m_buffer.data() + m_used;
        m_used += length;
        return place;
    }
    template <class T>
    void put(T value)
    {
        std::memcpy(claim(sizeof(T)), &value, sizeof(T)); // the host is little-endian
    }
    void bytes(void const * data, std::size_t length);
    void text(std::string_view characters) { bytes(characters.data(), characters.size()); }
    void number(float value);
    void number(double value);
    void number(std::int64_t value);

    /// Hands on everything; of a file, waits until the disk has it, and closes it.
    void finish();

private:
    static constexpr std::size_t st_capacity = std::size_t(1) << 20;

    void flush();
    void handOn(char const * data, std::size_t length);
    template <class T>
    void numberAsText(T value);

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

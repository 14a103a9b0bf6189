// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace QZmath
{

/// Bytes of a file, a pipe, a stream or memory, read forwards through a small window, so that memory does not
/// grow with the input. Errors are `InputError`s.
class ByteSource
{
public:
    /// No line may be longer than this.
    static constexpr std::size_t st_window = std::size_t(1) << 18;

    /// Opens a file or a pipe; "-" is standard input.
    explicit ByteSource(std::string const & path);
    /// Reads a stream or memory, which must stay alive.
    explicit ByteSource(std::istream & stream);
    ByteSource(char const * data, std::size_t size);
    ~ByteSource();
    ByteSource(ByteSource const &) = delete;
    ByteSource & operator=(ByteSource const &) = delete;

    /// Whether the size was known from the start: not that of pipes and streams.
    bool isSizeKnown() const { return m_isSizeKnown; }
    std::uint64_t position() const { return m_position; }
    /// Bytes to come; of an unknown size those that are known to come.
    std::uint64_t remaining() const;
    /// Whether so many things of at least `each` bytes may still come; always, of an unknown size. The last
    /// one may lack a byte, the end of its line.
    bool mayHold(std::uint64_t count, std::uint64_t each) const
    {
        return !m_isSizeKnown || each == 0 || count <= (remaining() + 1) / each;
    }
    /// Things to make room for at once, of `count` that are promised and may come.
    std::size_t worthReserving(std::uint64_t count) const
    {
        std::uint64_t const unseen = 1 << 14;
        return static_cast<std::size_t>(m_isSizeKnown || count < unseen ? count : unseen);
    }
    /// How many there may be in all when so many have been read; of an unknown size no more than these.
    std::size_t expected(std::size_t count) const
    {
        double const share =
            m_isSizeKnown ? static_cast<double>(m_position - m_begin) / static_cast<double>(m_size - m_begin)
                          : 1;
        return static_cast<std::size_t>(static_cast<double>(count) / std::clamp(share, 0.001, 1.0));
    }
    /// Share of the input that has been read; of an unknown size a number that rises to 1.
    double progress() const;

    /// The next `length` bytes (at most `st_window`), fewer at the end of the source. Valid until the next
    /// call.
    std::string_view peek(std::size_t length);
    /// The same for any length; the window grows to it.
    std::string_view ahead(std::size_t length);
    /// Takes away bytes, at most as many as remain, which end so many lines.
    void skip(std::uint64_t length, std::uint64_t lines = 0);
    /// Cuts a file down, not what it has been read of: it goes on with the first line that starts at `begin`
    /// or behind, and ends where the first one starts at `end` or behind. Lines that are left out are counted
    /// only if they are to be, which takes reading them.
    void cutLines(std::uint64_t begin, std::uint64_t end, bool areCounted);
    /// Appends the next `length` bytes, fewer at the end of the source.
    void read(std::uint64_t length, std::vector<char> & bytes);
    /// Takes a line without its end, which is a line feed, a carriage return or both in this order. False at
    /// the end of the source. Valid until the next call.
    bool readLine(std::string_view & line);
    /// Lines taken so far: the number of the last one, counted from 1.
    std::uint64_t lineNumber() const { return m_lines; }

private:
    bool isMemory() const { return m_file < 0 && m_stream == nullptr; }
    std::size_t fill(char * bytes, std::size_t length);
    std::uint64_t lineStartFrom(std::uint64_t position) const;

    int m_file = -1;
    std::istream * m_stream = nullptr;
    std::vector<char> m_buffer;
    char const * m_data = nullptr; ///< Unread bytes of the window.
    std::size_t m_available = 0;
    bool m_isSizeKnown = true;
    std::uint64_t m_size = 0;  ///< If known.
    std::uint64_t m_begin = 0; ///< Of what is left of a file that was cut.
    bool m_isCut = false;
    std::uint64_t m_position = 0;
    std::uint64_t m_lines = 0;
};

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qz_io
{

/// Bytes of a file or of memory, read forwards through a small window, so that memory does not grow with the
/// file. Errors are `InputError`s.
class ByteSource
{
public:
    /// No line and no block may be longer than this.
    static constexpr std::size_t st_window = std::size_t(1) << 18;

    /// Opens a regular file.
    explicit ByteSource(std::string const & path);
    /// Reads memory, which must stay alive.
    ByteSource(char const * data, std::size_t size);

    std::uint64_t size() const { return m_size; }
    std::uint64_t position() const { return m_position; }
    std::uint64_t remaining() const { return m_size - m_position; }

    /// The next `length` bytes (at most `st_window`), fewer at the end of the source. Valid until the next
    /// call.
    std::string_view peek(std::size_t length);
    /// Takes away bytes, at most as many as remain.
    void skip(std::uint64_t length);
    /// Takes a line without its end, which is a line feed, a carriage return or both in this order. False at
    /// the end of the source. Valid until the next call.
    bool readLine(std::string_view & line);
    /// Lines taken so far: the number of the last one, counted from 1.
    std::uint64_t lineNumber() const { return m_lines; }

private:
    struct FileCloser
    {
        void operator()(std::FILE * file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, FileCloser> m_file; ///< Null for memory.
    std::vector<char> m_buffer;
    char const * m_data = nullptr; ///< Unread bytes of the window.
    std::size_t m_available = 0;
    std::uint64_t m_size = 0;
    std::uint64_t m_position = 0;
    std::uint64_t m_lines = 0;
};

} // namespace qz_io

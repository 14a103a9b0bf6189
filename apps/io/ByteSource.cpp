// SPDX-License-Identifier: Apache-2.0
#include <apps/io/ByteSource.h>

#include <apps/io/InputError.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>

namespace qz_io
{

ByteSource::ByteSource(std::string const & path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        throw InputError("cannot open " + path + ": " + std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        throw InputError(path + " is not a regular file");
    m_file.reset(std::fopen(path.c_str(), "rb"));
    if (!m_file)
        throw InputError("cannot open " + path + ": " + std::strerror(errno));
    std::setvbuf(m_file.get(), nullptr, _IONBF, 0); // the window is the buffer
    m_size = static_cast<std::uint64_t>(status.st_size);
    m_buffer.resize(st_window);
    m_data = m_buffer.data();
}

ByteSource::ByteSource(char const * data, std::size_t size) : m_data(data), m_available(size), m_size(size) {}

std::string_view ByteSource::peek(std::size_t length)
{
    if (m_available < length && m_file) {
        std::memmove(m_buffer.data(), m_data, m_available);
        m_data = m_buffer.data();
        m_available +=
            std::fread(m_buffer.data() + m_available, 1, m_buffer.size() - m_available, m_file.get());
        if (std::ferror(m_file.get()))
            throw InputError(std::string("the input could not be read: ") + std::strerror(errno));
        if (m_available < length) // the end; a file that grew or shrank meanwhile ends here too
            m_size = m_position + m_available;
    }
    return std::string_view(m_data, std::min(length, m_available));
}

void ByteSource::skip(std::uint64_t length)
{
    while (length > 0 && !peek(1).empty()) {
        std::size_t const step = static_cast<std::size_t>(std::min<std::uint64_t>(length, m_available));
        m_data += step;
        m_available -= step;
        m_position += step;
        length -= step;
    }
}

bool ByteSource::readLine(std::string_view & line)
{
    // The common case looks at what is in the window already, so that short lines move no memory.
    std::size_t const longest = st_window - 2;
    std::string_view ahead(m_data, std::min(m_available, longest));
    std::size_t length = ahead.find_first_of("\n\r");
    if (length == std::string_view::npos || length + 2 > m_available) {
        ahead = peek(st_window);
        length = ahead.find_first_of("\n\r");
        if (ahead.empty())
            return false;
        if (length == std::string_view::npos) {
            length = ahead.size();
            if (length > longest)
                throw InputError("line " + std::to_string(m_lines + 1) + " is longer than " +
                                 std::to_string(longest) + " bytes");
        }
    }
    ++m_lines;
    line = std::string_view(m_data, length);
    std::size_t ending = 0;
    if (length < m_available)
        ending = m_data[length] == '\r' && length + 1 < m_available && m_data[length + 1] == '\n' ? 2 : 1;
    m_data += length + ending;
    m_available -= length + ending;
    m_position += length + ending;
    return true;
}

} // namespace qz_io

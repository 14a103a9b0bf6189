// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Streams/ByteSource.h>

#include <QZmath/Files/Errors.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <istream>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace QZmath
{

namespace
{

// Up to the end of the line, or of the bytes.
std::size_t lineLength(std::string_view bytes)
{
    std::size_t length = 0;
    while (length < bytes.size() && bytes[length] != '\n' && bytes[length] != '\r')
        ++length;
    return length;
}

// What a read of the system gives, tried again after a signal; 0 at the end.
template <class Read>
std::size_t readFrom(Read const & read)
{
    for (;;) {
        ssize_t const count = read();
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            throw InputError("the input could not be read: " + VsUt::systemReason(errno));
    }
}

} // namespace

ByteSource::ByteSource(std::string const & path)
{
    bool const isStandardInput = path == "-";
    std::string const name = isStandardInput ? "standard input" : quotable(path);
    m_file = isStandardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                             : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (m_file < 0)
        throw InputError("cannot open " + name + ": " + VsUt::systemReason(errno));
    struct stat status;
    int const result = fstat(m_file, &status);
    int const error = errno;
    if (result != 0 || S_ISDIR(status.st_mode)) {
        close(m_file);
        throw InputError(result != 0 ? "cannot open " + name + ": " + VsUt::systemReason(error)
                                     : name + " is a folder, not a file");
    }
    m_isSizeKnown = S_ISREG(status.st_mode);
    if (m_isSizeKnown) { // standard input may have been read in part
        off_t const start = lseek(m_file, 0, SEEK_CUR);
        m_size = static_cast<std::uint64_t>(std::max<off_t>(status.st_size - std::max<off_t>(start, 0), 0));
    }
    m_buffer.resize(st_window);
    m_data = m_buffer.data();
}

ByteSource::ByteSource(std::istream & stream) : m_stream(&stream), m_buffer(st_window), m_isSizeKnown(false)
{
    m_data = m_buffer.data();
}

ByteSource::ByteSource(char const * data, std::size_t size) : m_data(data), m_available(size), m_size(size) {}

ByteSource::~ByteSource()
{
    if (m_file >= 0)
        close(m_file);
}

std::uint64_t ByteSource::remaining() const { return m_isSizeKnown ? m_size - m_position : m_available; }

double ByteSource::progress() const
{
    double const scale = m_isSizeKnown ? static_cast<double>(m_size - m_begin) : 1e9;
    double const share = static_cast<double>(m_position - m_begin) / std::max(scale, 1.0);
    return m_isSizeKnown ? share : share / (0.5 + share);
}

std::size_t ByteSource::fill(char * bytes, std::size_t length)
{
    if (m_isCut)
        length = static_cast<std::size_t>(std::min<std::uint64_t>(length, m_size - m_position - m_available));
    std::size_t total = 0;
    while (total < length) {
        if (m_stream != nullptr) {
            m_stream->read(bytes + total, static_cast<std::streamsize>(length - total));
            if (m_stream->bad())
                throw InputError("the input could not be read: the stream failed");
            return total + static_cast<std::size_t>(m_stream->gcount());
        }
        std::size_t const count = readFrom([&] { return ::read(m_file, bytes + total, length - total); });
        if (count == 0)
            break;
        total += count;
    }
    return total;
}

std::string_view ByteSource::peek(std::size_t length)
{
    if (m_available < length && !isMemory()) {
        if (m_available > 0)
            std::memmove(m_buffer.data(), m_data, m_available);
        m_data = m_buffer.data();
        m_available += fill(m_buffer.data() + m_available, m_buffer.size() - m_available);
        if (m_available < length) { // the end; a file that grew or shrank meanwhile ends here too
            m_isSizeKnown = true;
            m_size = m_position + m_available;
        }
    }
    return std::string_view(m_data, std::min(length, m_available));
}

std::string_view ByteSource::ahead(std::size_t length)
{
    if (m_available < length && m_buffer.size() < length && !isMemory()) {
        std::vector<char> wider(length);
        if (m_available > 0)
            std::memcpy(wider.data(), m_data, m_available);
        m_buffer = std::move(wider);
        m_data = m_buffer.data();
    }
    return peek(length);
}

void ByteSource::skip(std::uint64_t length, std::uint64_t lines)
{
    m_lines += lines;
    if (m_file >= 0 && m_isSizeKnown && length > m_available + st_window) { // not worth reading
        std::uint64_t const jump = std::min(length, remaining());
        if (jump > m_available && lseek(m_file, static_cast<off_t>(jump - m_available), SEEK_CUR) >= 0) {
            m_position += jump;
            m_available = 0;
            return;
        }
    }
    while (length > 0 && !peek(1).empty()) {
        std::size_t const step = static_cast<std::size_t>(std::min<std::uint64_t>(length, m_available));
        m_data += step;
        m_available -= step;
        m_position += step;
        length -= step;
    }
}

std::uint64_t ByteSource::lineStartFrom(std::uint64_t position) const
{
    if (position <= m_position)
        return m_position;
    char bytes[4096];
    bool isAfterReturn = false;
    for (std::uint64_t at = position - 1; at < m_size;) {
        std::size_t const count =
            readFrom([&] { return pread(m_file, bytes, sizeof(bytes), static_cast<off_t>(at)); });
        if (count == 0)
            break;
        for (std::size_t i = 0; i < count; ++i, ++at) {
            if (isAfterReturn)
                return at + (bytes[i] == '\n' ? 1 : 0);
            if (bytes[i] == '\n')
                return at + 1;
            isAfterReturn = bytes[i] == '\r';
        }
    }
    return m_size;
}

void ByteSource::cutLines(std::uint64_t begin, std::uint64_t end, bool areCounted)
{
    std::uint64_t const first = lineStartFrom(begin);
    std::uint64_t const last = std::max(first, lineStartFrom(end));
    std::string_view line;
    while (areCounted && m_position < first && readLine(line)) {
    }
    if (lseek(m_file, static_cast<off_t>(first), SEEK_SET) < 0)
        throw InputError("the input could not be read: " + VsUt::systemReason(errno));
    m_begin = m_position = first;
    m_available = 0;
    m_size = last;
    m_isCut = true;
}

void ByteSource::read(std::uint64_t length, std::vector<char> & bytes)
{
    bytes.reserve(bytes.size() + worthReserving(std::min(length, remaining())));
    while (length > 0 && !peek(1).empty()) {
        std::size_t const step = static_cast<std::size_t>(std::min<std::uint64_t>(length, m_available));
        bytes.insert(bytes.end(), m_data, m_data + step);
        skip(step);
        length -= step;
    }
}

bool ByteSource::readLine(std::string_view & line)
{
    // The common case looks at what is in the window already, so that short lines move no memory.
    std::size_t const longest = st_window - 2;
    std::string_view ahead(m_data, std::min(m_available, longest));
    std::size_t length = lineLength(ahead);
    if (length == ahead.size() || length + 2 > m_available) {
        ahead = peek(st_window);
        length = lineLength(ahead);
        if (ahead.empty())
            return false;
        if (length == ahead.size()) {
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

} // namespace QZmath

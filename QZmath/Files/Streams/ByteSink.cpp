// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Streams/ByteSink.h>

#include <QZmath/Files/Errors.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/PendingFiles.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <ostream>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace QZmath
{

#if defined(__BYTE_ORDER__)
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "numbers are read and written as they lie in memory");
#endif

template <class T>
void ByteBlock::numberAsText(T value)
{
    std::size_t const longest = 32;
    char * const place = claim(longest);
    char * const end = std::to_chars(place, place + longest, value).ptr;
    m_used -= static_cast<std::size_t>(place + longest - end);
}

void ByteBlock::number(float value) { numberAsText(value); }
void ByteBlock::number(double value) { numberAsText(value); }
void ByteBlock::number(std::int64_t value) { numberAsText(value); }

ByteSink::ByteSink(std::string const & path, std::string const & name)
    : m_name(path == "-" ? "to standard output" : quotable(name)), m_buffer(st_capacity)
{
    m_file = path == "-" ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                         : open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY);
    if (m_file < 0)
        throw OutputError("cannot write " + m_name + ": " + VsUt::systemReason(errno));
}

ByteSink::ByteSink(std::ostream & stream) : m_name("to the stream"), m_stream(&stream), m_buffer(st_capacity)
{}

ByteSink::~ByteSink()
{
    if (m_file >= 0)
        close(m_file);
}

void ByteSink::reportTo(CProgressCounter * progress, double expected)
{
    m_progress = progress;
    m_expected = std::max(expected, 1.0);
}

void ByteSink::bytes(void const * data, std::size_t length)
{
    if (length > st_capacity / 16) { // not worth a copy
        flush();
        handOn(static_cast<char const *>(data), length);
    } else if (length > 0) {
        if (m_used + length > st_capacity)
            flush();
        std::memcpy(m_buffer.data() + m_used, data, length);
        m_used += length;
    }
}

void ByteSink::inBlocks(std::size_t count, std::function<void(std::size_t, ByteBlock &)> const & make)
{
    int const mostThreads = 8; // more make text faster than a disk takes it
    auto const threads =
        static_cast<std::size_t>(std::min(CVescaThreadingTasksHelper::getNumOfPhisicalThread(), mostThreads));
    std::size_t const perRound = threads == 1 ? 1 : 4 * threads;
    std::vector<ByteBlock> made, ready; // of this round, and of the one before
    for (std::size_t begin = 0; begin < count || !ready.empty();) {
        std::size_t const number = std::min(perRound, count - begin);
        made.resize(number);
        std::atomic<std::size_t> next{0};
        VsUt::callTogether(static_cast<int>(std::clamp<std::size_t>(number, 1, threads)), [&](bool isCaller) {
            if (isCaller)
                for (ByteBlock const & block : ready)
                    bytes(block.data(), block.size());
            for (std::size_t i = next++; i < number; i = next++) {
                made[i].clear(st_block + st_block / 4);
                make(begin + i, made[i]);
            }
        });
        begin += number;
        std::swap(made, ready);
        if (number == 0)
            ready.clear();
    }
}

void ByteSink::flush()
{
    handOn(m_buffer.data(), m_used);
    m_used = 0;
}

void ByteSink::handOn(char const * data, std::size_t length)
{
    std::size_t const piece = std::size_t(4) << 20; // so that progress and interruptions come in between
    while (length > 0) {
        std::size_t const wanted = std::min(length, piece);
        std::size_t written = wanted;
        if (m_stream != nullptr) {
            if (!m_stream->write(data, static_cast<std::streamsize>(wanted)))
                throw OutputError("cannot write " + m_name + ": the stream failed");
        } else {
            ssize_t const count = write(m_file, data, wanted);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                throw OutputError("cannot write " + m_name + ": " +
                                  VsUt::systemReason(count < 0 ? errno : EIO));
            written = static_cast<std::size_t>(count);
        }
        data += written;
        length -= written;
        m_handedOn += static_cast<double>(written);
        if (m_progress != nullptr)
            m_progress->SetPosFloat(std::min(1.0, m_handedOn / m_expected));
    }
}

void ByteSink::finish()
{
    flush();
    if (m_stream != nullptr) {
        if (!m_stream->flush())
            throw OutputError("cannot write " + m_name + ": the stream failed");
        return;
    }
    int error = 0;
    if (!VsUt::CPendingFiles::sync(m_file))
        error = errno;
    if (close(m_file) != 0 && error == 0 && errno != EINTR)
        error = errno;
    m_file = -1;
    if (error != 0)
        throw OutputError("cannot write " + m_name + ": " + VsUt::systemReason(error));
}

} // namespace QZmath

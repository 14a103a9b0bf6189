// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/RunLog.h>

#include <QZmath/Files/Errors.h>

#include <QZsys/PendingFiles.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace qz_recon
{

namespace
{

std::string refusal(std::string const & path, std::string const & reason)
{
    return "cannot write the log " + QZmath::quotable(path) + ": " + reason;
}

} // namespace

RunLog::RunLog(std::string const & path, QZmath::PendingFiles & files) : m_path(path)
{
    if (path.empty())
        return;
    m_buffer.resize(std::size_t(1) << 16);
    try {
        m_file = open(files.create(path).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY);
    } catch (QZmath::OutputError const & error) {
        throw QZmath::OutputError(refusal(path, error.what()));
    }
    if (m_file < 0)
        throw QZmath::OutputError(refusal(path, std::strerror(errno)));
}

RunLog::~RunLog()
{
    if (m_file >= 0)
        ::close(m_file);
}

void RunLog::getMessage(char const * line)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    add(line, std::strlen(line));
    add("\n", 1);
}

void RunLog::add(char const * bytes, std::size_t size)
{
    if (m_used + size > m_buffer.size())
        flush();
    if (size > m_buffer.size())
        return handOn(bytes, size);
    std::memcpy(m_buffer.data() + m_used, bytes, size);
    m_used += size;
}

void RunLog::flush()
{
    handOn(m_buffer.data(), m_used);
    m_used = 0;
}

void RunLog::handOn(char const * bytes, std::size_t size)
{
    while (size > 0 && m_error == 0) {
        ssize_t const written = write(m_file, bytes, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            m_error = written < 0 ? errno : EIO;
            return;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
}

void RunLog::close()
{
    if (m_file < 0)
        return;
    flush();
    if (m_error == 0 && !VsUt::CPendingFiles::sync(m_file))
        m_error = errno;
    if (::close(m_file) != 0 && m_error == 0 && errno != EINTR)
        m_error = errno;
    m_file = -1;
    if (m_error != 0)
        throw QZmath::OutputError(refusal(m_path, std::strerror(m_error)));
}

} // namespace qz_recon

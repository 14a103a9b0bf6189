// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/RunLog.h>

#include <QZmath/Files/Errors.h>

#include <cerrno>
#include <cstring>

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
    try {
        m_file.reset(std::fopen(files.create(path).c_str(), "w"));
    } catch (QZmath::OutputError const & error) {
        throw QZmath::OutputError(refusal(path, error.what()));
    }
    if (!m_file)
        throw QZmath::OutputError(refusal(path, std::strerror(errno)));
}

void RunLog::getMessage(char const * line)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    std::fprintf(m_file.get(), "%s\n", line);
}

void RunLog::close()
{
    if (m_file == nullptr)
        return;
    errno = 0;
    bool const isBroken = std::ferror(m_file.get()) != 0 || !VsUt::CPendingFiles::sync(m_file.get());
    if (std::fclose(m_file.release()) != 0 || isBroken)
        throw QZmath::OutputError(refusal(m_path, errno != 0 ? std::strerror(errno) : "it is not complete"));
}

} // namespace qz_recon

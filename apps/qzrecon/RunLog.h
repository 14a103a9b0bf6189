// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/DebugLog.h>

#include <QZmath/Files/PendingFiles.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace qz_recon
{

/// The log of a run, from any thread, in a file that appears when the run has succeeded, together with the
/// mesh; so an old log outlives a run that fails.
class RunLog : public VsUt::IDebugLog
{
public:
    /// \param path empty for none. Throws `OutputError`.
    RunLog(std::string const & path, QZmath::PendingFiles & files);
    ~RunLog() override;

    /// Never throws: what cannot be written is told by `close`.
    void getMessage(char const * line) override;
    bool isWanted() const { return m_file >= 0; }
    /// Waits until the disk has all of it. Throws `OutputError` with the first thing that went wrong.
    void close();

private:
    void add(char const * bytes, std::size_t size);
    void flush();
    void handOn(char const * bytes, std::size_t size);

    std::string m_path;
    int m_file = -1;
    int m_error = 0; // the first one
    std::vector<char> m_buffer;
    std::size_t m_used = 0;
    std::mutex m_mutex;
};

} // namespace qz_recon

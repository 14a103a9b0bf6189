// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/DebugLog.h>

#include <QZmath/Files/PendingFiles.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace qz_recon
{

/// The log of a run, from any thread, in a file that appears when the run has succeeded, together with the
/// mesh; so an old log outlives a run that fails.
class RunLog : public VsUt::IDebugLog
{
public:
    /// \param path empty for none. Throws `OutputError`.
    RunLog(std::string const & path, QZmath::PendingFiles & files);

    void getMessage(char const * line) override;
    bool isWanted() const { return m_file != nullptr; }
    /// Throws `OutputError` when not all of it could be written.
    void close();

private:
    struct FileCloser
    {
        void operator()(std::FILE * file) const { std::fclose(file); }
    };

    std::string m_path;
    std::unique_ptr<std::FILE, FileCloser> m_file;
    std::mutex m_mutex;
};

} // namespace qz_recon

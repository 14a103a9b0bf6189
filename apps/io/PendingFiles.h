// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace qz_io
{

/// Files under construction: each is written beside its final place under another name and moved there when
/// all are complete, so that a reader of the final place never sees half a file. What is not committed is
/// removed by the destructor.
class PendingFiles
{
public:
    PendingFiles() = default;
    ~PendingFiles();
    PendingFiles(PendingFiles const &) = delete;
    PendingFiles & operator=(PendingFiles const &) = delete;

    /// Creates an empty file beside `finalPath` and returns its path. A second call with the same path
    /// returns the same file. Throws `OutputError`.
    std::string const & create(std::string const & finalPath);

    /// Moves all files to their places, the one created last first. Throws `OutputError` and keeps the rest
    /// pending.
    void commit();

    /// Removes the pending files of all objects of the process. Safe in a signal handler that ends the
    /// process.
    static void removeAllFromSignalHandler() noexcept;

private:
    struct Entry
    {
        std::string finalPath;
        std::string temporaryPath;
        int slot; ///< place in the list for the signal handler, -1 when that is full
    };

    std::vector<Entry> m_entries;
};

} // namespace qz_io

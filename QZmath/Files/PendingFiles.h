// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Export.h>

#include <string>
#include <vector>

namespace QZmath
{

/// Files under construction: each is written beside its final place under another name and moved there when
/// all are complete, so that a reader of the final place never sees half a file, and a loss of power leaves
/// the old file or the new one. What is not committed is removed by the destructor.
///
/// A symbolic link is followed: its target is replaced. A file that is replaced gives its permissions to the
/// new one, and its owner and group where the system allows that. What is no regular file, such as a pipe or
/// a device, is written directly.
class QZMATH_FILES_API PendingFiles
{
public:
    PendingFiles() = default;
    ~PendingFiles();
    PendingFiles(PendingFiles const &) = delete;
    PendingFiles & operator=(PendingFiles const &) = delete;

    /// Creates an empty file beside `finalPath` and returns the path to write to, which may be any number of
    /// times opened and closed. A second call with the same path returns the same file. Throws `OutputError`.
    std::string create(std::string const & finalPath);

    /// Moves all files to their places, the one created last first, and waits until the disk knows. Throws
    /// `OutputError` and keeps the rest pending. The files must be on the disk already, as the writers of
    /// this library leave them.
    void commit();

    /// Removes the pending files of all objects of the process, of which at most 8 at a time. Safe in a
    /// signal handler that ends the process.
    static void removeAllFromSignalHandler() noexcept;

private:
    struct Entry
    {
        std::string requestedPath;
        std::string finalPath;     ///< behind the symbolic links
        std::string temporaryPath; ///< equal to `finalPath` when that is written directly
        int slot;                  ///< place in the list for the signal handler, -1 when that is full
    };

    std::vector<Entry> m_entries;
};

} // namespace QZmath

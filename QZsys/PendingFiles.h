// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

#include <cstdio>
#include <string>
#include <vector>

namespace VsUt
{

/// Files under construction: each is written beside its final place under another name and moved there when
/// all are complete, so that a reader of the final place never sees half a file, and a loss of power leaves
/// the old file or the new one. What is not committed is removed by the destructor.
///
/// A symbolic link is followed: its target is replaced. A file that is replaced gives its permissions to the
/// new one, and its owner and group where the system allows that. What is no regular file, such as a pipe or
/// a device, is written directly. A process that is killed leaves the old file, and beside it the new one as
/// far as it was, with a name that ends in ".part".
class QZSYS_API CPendingFiles
{
public:
    CPendingFiles() = default;
    ~CPendingFiles();
    CPendingFiles(CPendingFiles const &) = delete;
    CPendingFiles & operator=(CPendingFiles const &) = delete;

    /// Creates an empty file beside `finalPath` and returns the path to write to, which may be any number of
    /// times opened and closed. A second call with the same path returns the same file. Throws
    /// `CVescaException`.
    std::string create(std::string const & finalPath);

    /// Moves all files to their places, the one created last first, and waits until the disk knows. Throws
    /// `CVescaException` and keeps the rest pending. The files must be closed and on the disk already, see
    /// `sync`.
    void commit();

    /// Writes what a file has in its buffer, and waits until the disk has all of it. False on failure, also
    /// of a write before. A file that has no disk, as a pipe, only gets its buffer written.
    static bool sync(std::FILE * file);
    /// The same for a descriptor; `errno` tells why it failed.
    static bool sync(int file);

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
        int mode = -1;             ///< permissions that it gets with its place, -1 for those that it has
    };

    std::vector<Entry> m_entries;
};

} // namespace VsUt

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Export.h>
#include <QZsys/PendingFiles.h>

#include <string>
#include <string_view>

namespace QZmath
{

/// `VsUt::CPendingFiles` for the writers of this library, which leave their files on the disk: its failures
/// are `OutputError`.
class QZMATH_FILES_API PendingFiles
{
public:
    /// See `VsUt::CPendingFiles::create`.
    std::string create(std::string const & finalPath);

    /// Creates a file with these bytes, which the disk has when it returns; "-" is standard output, at once.
    void write(std::string const & finalPath, std::string_view bytes);

    /// See `VsUt::CPendingFiles::commit`.
    void commit();

    /// See `VsUt::CPendingFiles::removeAllFromSignalHandler`; those of all libraries are removed.
    static void removeAllFromSignalHandler() noexcept;

private:
    VsUt::CPendingFiles m_files;
};

} // namespace QZmath

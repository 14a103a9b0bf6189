// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PendingFiles.h>

#include <QZmath/Files/Errors.h>
#include <QZsys/Exceptions.h>

namespace QZmath
{

std::string PendingFiles::create(std::string const & finalPath)
{
    try {
        return m_files.create(finalPath);
    } catch (CVescaException const & error) {
        throw OutputError(error.what());
    }
}

void PendingFiles::commit()
{
    try {
        m_files.commit();
    } catch (CVescaException const & error) {
        throw OutputError(error.what());
    }
}

void PendingFiles::removeAllFromSignalHandler() noexcept
{
    VsUt::CPendingFiles::removeAllFromSignalHandler();
}

} // namespace QZmath

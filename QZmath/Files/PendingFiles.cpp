// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PendingFiles.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Streams/ByteSink.h>
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

void PendingFiles::write(std::string const & finalPath, std::string_view bytes)
{
    ByteSink sink(finalPath == "-" ? finalPath : create(finalPath), finalPath);
    sink.text(bytes);
    sink.finish();
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

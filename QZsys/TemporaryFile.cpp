// SPDX-License-Identifier: Apache-2.0
#include <QZsys/TemporaryFile.h>

#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace VsUt
{

namespace
{

int openDescriptor(std::string const & folder, char const * name)
{
#ifdef O_TMPFILE
    int const unnamed = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, 0600);
    if (unnamed >= 0)
        return unnamed;
#endif
    std::string path = folder + "/" + name + "XXXXXX";
    int const descriptor = ::mkostemp(path.data(), O_CLOEXEC);
    if (descriptor >= 0)
        ::unlink(path.c_str());
    return descriptor;
}

} // namespace

std::FILE * openTemporaryFile(char const * name)
{
    char const * const folder = ::secure_getenv("TMPDIR");
    int const descriptor = openDescriptor(folder && *folder ? folder : "/tmp", name);
    if (descriptor < 0)
        return nullptr;
    std::FILE * const file = ::fdopen(descriptor, "w+b");
    if (!file)
        ::close(descriptor);
    return file;
}

} // namespace VsUt

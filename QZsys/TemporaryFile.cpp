// SPDX-License-Identifier: Apache-2.0
#include <QZsys/TemporaryFile.h>

#include <cerrno>
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

// Repeats a transfer of what is left until all is done, or nothing more goes.
template <class Transfer>
std::size_t transferAll(std::size_t count, Transfer transfer)
{
    std::size_t done = 0;
    while (done < count) {
        ssize_t const now = transfer(done);
        if (now < 0 && errno == EINTR)
            continue;
        if (now <= 0)
            break;
        done += static_cast<std::size_t>(now);
    }
    return done;
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

std::size_t readFileAt(std::FILE * file, void * bytes, std::size_t count, std::uint64_t offset)
{
    return transferAll(count, [&](std::size_t done) {
        return ::pread(::fileno(file), static_cast<char *>(bytes) + done, count - done,
                       static_cast<off_t>(offset + done));
    });
}

bool writeFileAt(std::FILE * file, void const * bytes, std::size_t count, std::uint64_t offset)
{
    return transferAll(count, [&](std::size_t done) {
               return ::pwrite(::fileno(file), static_cast<char const *>(bytes) + done, count - done,
                               static_cast<off_t>(offset + done));
           }) == count;
}

} // namespace VsUt

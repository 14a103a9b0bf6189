// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/// Replaces the calls of a test program that change files, those of the library in it too, by ones that fail
/// on demand and that note what a disk would know. To be included by exactly one source file of the program.
/// The standard library's own files bypass them: `openFaulty` gives one that does not.
namespace qz_test
{

/// What a loss of power leaves: the name of each file in its folder, and what is in it.
using DiskState = std::map<std::string, std::string>;

/// The calls on the files of one folder, and what has become of it by them.
class FaultyFiles
{
public:
    enum Call : unsigned
    {
        opening = 1,
        writing = 2,
        syncing = 4,
        renaming = 8,
        closing = 16,
        all = 31
    };
    struct Fault
    {
        char const * name;
        unsigned calls; ///< that count, and may fail
        int error;      ///< the system's number, or one of the following
        bool isLasting; ///< the calls after it fail too
    };
    static constexpr int halved = -1; ///< a write takes half of what it is given
    static constexpr int death = -2;  ///< the process ends before the call

    /// From here on call `number`, from 1, has the fault, and what happens to files below `folder` is noted.
    static void begin(Fault const & fault, long number, std::string const & folder = "")
    {
        s_fault = fault;
        s_number = number;
        s_folder = folder;
        s_seen = 0;
        s_steps.clear();
        s_isOn = true;
    }
    /// No more faults. Gives whether there was one.
    static bool end()
    {
        s_isOn = false;
        return s_seen >= s_number;
    }

    /// All that a disk may hold when the power is lost after any of the calls: what was written is there once
    /// the file was synchronised, and torn before; changes of names have come as far as after the last
    /// synchronisation of the folder, or any number of steps further.
    static std::vector<DiskState> statesAfterPowerLoss(DiskState const & before)
    {
        std::vector<DiskState> states;
        for (std::size_t steps = 0; steps <= s_steps.size(); ++steps)
            for (std::size_t further = 0; further <= steps; ++further)
                states.push_back(stateAfter(before, steps, further));
        return states;
    }
    /// The least that it holds now.
    static DiskState certainState(DiskState const & before) { return stateAfter(before, s_steps.size(), 0); }
    static constexpr char const * torn = "torn";

    /// For the replaced functions: does this call fail? Sets `errno` then. `size` is halved instead.
    static bool fails(Call call, std::size_t * size = nullptr)
    {
        if (!s_isOn || (s_fault.calls & call) == 0)
            return false;
        ++s_seen;
        if (s_seen != s_number && !(s_fault.isLasting && s_seen > s_number))
            return false;
        if (s_fault.error == death)
            _exit(0);
        if (s_fault.error == halved && size != nullptr)
            *size = std::max<std::size_t>(1, *size / 2);
        errno = s_fault.error;
        return s_fault.error > 0;
    }
    static void noteContents(int file, bool isSync)
    {
        struct stat status;
        if (!s_isOn || s_folder.empty() || fstat(file, &status) != 0)
            return;
        Step step{S_ISDIR(status.st_mode) ? Step::folder : Step::contents, status.st_ino, torn, ""};
        if (isSync && S_ISREG(status.st_mode)) {
            std::ifstream stream("/proc/self/fd/" + std::to_string(file), std::ios::binary);
            step.text.assign(std::istreambuf_iterator<char>(stream), {});
        }
        s_steps.push_back(step);
    }
    static void noteName(std::string const & path, std::string const & before)
    {
        struct stat status;
        if (!s_isOn || s_folder.empty() || path.compare(0, s_folder.size(), s_folder) != 0)
            return;
        if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode))
            s_steps.push_back({Step::name, status.st_ino, lastPart(path), lastPart(before)});
    }

private:
    struct Step
    {
        enum Kind
        {
            contents, ///< the file holds `text` for certain
            name,     ///< the file is called `text` and nothing is called `before`
            folder    ///< so far all names stay
        } kind;
        ino_t file;
        std::string text, before;
    };

    static std::string lastPart(std::string const & path) { return path.substr(path.rfind('/') + 1); }

    // After so many steps, with so many changes of names beyond those that stay.
    static DiskState stateAfter(DiskState state, std::size_t steps, std::size_t further)
    {
        std::size_t certain = 0;
        std::map<ino_t, std::string> contents;
        for (std::size_t i = 0; i < steps; ++i) {
            certain = s_steps[i].kind == Step::folder ? i : certain;
            if (s_steps[i].kind == Step::contents)
                contents[s_steps[i].file] = s_steps[i].text;
        }
        for (std::size_t i = 0; i < steps; ++i) {
            if (s_steps[i].kind != Step::name || (i >= certain && further == 0))
                continue;
            further -= i >= certain;
            state.erase(s_steps[i].before);
            state[s_steps[i].text] = contents.count(s_steps[i].file) ? contents[s_steps[i].file] : torn;
        }
        return state;
    }

    static inline Fault s_fault{};
    static inline long s_number = 0, s_seen = 0;
    static inline bool s_isOn = false;
    static inline std::string s_folder;
    static inline std::vector<Step> s_steps;
};

/// A file of the standard library that writes through the replaced calls.
inline std::FILE * openFaulty(std::string const & path)
{
    int const file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    if (file < 0)
        return nullptr;
    cookie_io_functions_t calls{};
    static auto const asFile = [](void * cookie) {
        return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie));
    };
    calls.read = [](void * cookie, char * bytes, std::size_t size) {
        return static_cast<ssize_t>(syscall(SYS_read, asFile(cookie), bytes, size));
    };
    calls.write = [](void * cookie, char const * bytes, std::size_t size) {
        std::size_t done = 0;
        while (done < size) { // as the library does with its own
            ssize_t const now = write(asFile(cookie), bytes + done, size - done);
            if (now < 0)
                break;
            done += static_cast<std::size_t>(now);
        }
        return static_cast<ssize_t>(done);
    };
    calls.seek = [](void * cookie, off64_t * offset, int whence) {
        *offset = lseek(asFile(cookie), *offset, whence);
        return *offset < 0 ? -1 : 0;
    };
    calls.close = [](void * cookie) { return close(asFile(cookie)); };
    return fopencookie(reinterpret_cast<void *>(static_cast<std::intptr_t>(file)), "w+", calls);
}

} // namespace qz_test

#pragma GCC visibility push(default) // the libraries are to find them
extern "C" {
int open(char const * path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (qz_test::FaultyFiles::fails(qz_test::FaultyFiles::opening))
        return -1;
    int const file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    if (file >= 0 && (flags & (O_WRONLY | O_RDWR)) != 0 && (flags & O_TMPFILE) != O_TMPFILE) {
        qz_test::FaultyFiles::noteName(path, "");
        if ((flags & O_TRUNC) != 0)
            qz_test::FaultyFiles::noteContents(file, false);
    }
    return file;
}
int mkostemp(char * path, int flags)
{
    if (qz_test::FaultyFiles::fails(qz_test::FaultyFiles::opening))
        return -1;
    static auto const real = reinterpret_cast<int (*)(char *, int)>(dlsym(RTLD_NEXT, "mkostemp"));
    return real(path, flags);
}
ssize_t write(int file, void const * bytes, std::size_t size)
{
    if (qz_test::FaultyFiles::fails(qz_test::FaultyFiles::writing, &size))
        return -1;
    ssize_t const written = syscall(SYS_write, file, bytes, size);
    qz_test::FaultyFiles::noteContents(file, false);
    return written;
}
ssize_t pwrite(int file, void const * bytes, std::size_t size, off_t offset)
{
    if (qz_test::FaultyFiles::fails(qz_test::FaultyFiles::writing, &size))
        return -1;
    return syscall(SYS_pwrite64, file, bytes, size, offset);
}
int fsync(int file)
{
    if (qz_test::FaultyFiles::fails(qz_test::FaultyFiles::syncing))
        return -1;
    qz_test::FaultyFiles::noteContents(file, true);
    return static_cast<int>(syscall(SYS_fsync, file));
}
int rename(char const * from, char const * to) noexcept
{
    if (qz_test::FaultyFiles::fails(qz_test::FaultyFiles::renaming))
        return -1;
    int const result = static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
    if (result == 0)
        qz_test::FaultyFiles::noteName(to, from);
    return result;
}
int close(int file)
{
    bool const fails = qz_test::FaultyFiles::fails(qz_test::FaultyFiles::closing);
    int const error = errno;
    int const result = static_cast<int>(syscall(SYS_close, file)); // closes in any case
    errno = fails ? error : errno;
    return fails ? -1 : result;
}
}
#pragma GCC visibility pop

// SPDX-License-Identifier: Apache-2.0
#include <QZsys/PendingFiles.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Messages.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VsUt
{

namespace
{

// A path where a signal handler can read it: plain memory and a lock-free state.
struct Slot
{
    enum State
    {
        free,
        filling,
        filled
    };
    std::atomic<int> state{free};
    char path[PATH_MAX] = {};
};

int const st_slots = 8; // a mesh takes two files at most
Slot g_slots[st_slots];
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler reads the state");
std::atomic<unsigned> g_filesCreated{0};

int occupySlot(std::string const & path)
{
    if (path.size() >= sizeof(Slot::path))
        return -1; // too long for the system too: creating the file fails
    for (int i = 0; i < st_slots; ++i) {
        int expected = Slot::free;
        if (g_slots[i].state.compare_exchange_strong(expected, Slot::filling)) {
            std::memcpy(g_slots[i].path, path.c_str(), path.size() + 1);
            g_slots[i].state = Slot::filled;
            return i;
        }
    }
    return -1;
}

void releaseSlot(int slot)
{
    if (slot >= 0)
        g_slots[slot].state = Slot::free;
}

std::string folderOf(std::string const & path)
{
    std::size_t const slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// Where a path leads, also when nothing is there yet.
std::string behindLinks(std::string const & path)
{
    namespace fs = std::filesystem;
    int const mostLinks = 40; // as the system has it; a circle is then found by opening
    std::string place = path;
    std::error_code error;
    for (int i = 0; i < mostLinks && fs::is_symlink(fs::symlink_status(place, error)); ++i) {
        fs::path const target = fs::read_symlink(place, error);
        if (error)
            break;
        place = target.is_absolute() ? target.string() : folderOf(place) + "/" + target.string();
    }
    return place;
}

void syncFolder(std::string const & folder)
{
    int const file = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file < 0 && errno == EACCES)
        return; // a folder that may be written but not read
    int const error = file >= 0 && CPendingFiles::sync(file) ? 0 : errno;
    if (file >= 0)
        close(file);
    if (error != 0)
        throw CVescaException("cannot write into " + quotable(folder) + ": " + systemReason(error));
}

} // namespace

CPendingFiles::~CPendingFiles()
{
    for (Entry const & entry : m_entries) {
        if (entry.temporaryPath != entry.finalPath)
            unlink(entry.temporaryPath.c_str());
        releaseSlot(entry.slot);
    }
}

std::string CPendingFiles::create(std::string const & requestedPath)
{
    for (Entry const & entry : m_entries)
        if (entry.requestedPath == requestedPath)
            return entry.temporaryPath;
    m_entries.reserve(m_entries.size() + 1);
    std::string const finalPath = behindLinks(requestedPath);
    struct stat present;
    bool const isPresent = stat(finalPath.c_str(), &present) == 0;
    if (isPresent && S_ISDIR(present.st_mode))
        throw CVescaException("cannot write " + quotable(requestedPath) + ": it is a folder");
    if (isPresent && !S_ISREG(present.st_mode)) {
        m_entries.push_back({requestedPath, finalPath, finalPath, -1});
        return finalPath;
    }
    std::string const temporaryPath = finalPath + "." + std::to_string(getpid()) + "-" +
                                      std::to_string(g_filesCreated.fetch_add(1)) + ".part";
    // All memory is taken before the file exists; and the slot, so that no signal can miss it.
    Entry entry{requestedPath, finalPath, temporaryPath, -1};
    entry.slot = occupySlot(temporaryPath);
    // A file that others may not read is closed to them from its first moment.
    int const file = open(temporaryPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW,
                          isPresent ? 0600 : 0666);
    if (file < 0) {
        int const error = errno;
        releaseSlot(entry.slot);
        throw CVescaException("cannot write beside " + quotable(requestedPath) + ": " + systemReason(error));
    }
    // Unless the owner is the same, marks of "run as the owner" would give away more than they did.
    if (isPresent) {
        bool const isSameOwner = fchown(file, present.st_uid, present.st_gid) == 0;
        // With its place, since it may be one that nobody can open to write.
        entry.mode = static_cast<int>(present.st_mode & mode_t(isSameOwner ? 07777 : 0777));
    }
    close(file);
    m_entries.push_back(std::move(entry));
    return temporaryPath;
}

void CPendingFiles::commit()
{
    std::set<std::string> folders;
    for (Entry const & entry : m_entries)
        if (entry.temporaryPath != entry.finalPath)
            folders.insert(folderOf(entry.finalPath));
    while (!m_entries.empty()) {
        Entry const & entry = m_entries.back();
        if (entry.mode >= 0 && chmod(entry.temporaryPath.c_str(), static_cast<mode_t>(entry.mode)) != 0) {
            // only the owner may read it, then
        }
        if (entry.temporaryPath != entry.finalPath &&
            std::rename(entry.temporaryPath.c_str(), entry.finalPath.c_str()) != 0) {
            int const error = errno; // making the message takes memory, and other errors
            throw CVescaException("cannot write " + quotable(entry.requestedPath) + ": " +
                                  systemReason(error));
        }
        releaseSlot(entry.slot);
        m_entries.pop_back();
    }
    for (std::string const & folder : folders)
        syncFolder(folder);
}

bool CPendingFiles::sync(int file)
{
    int result = 0;
    do
        result = fsync(file);
    while (result != 0 && errno == EINTR);
    // Pipes and devices have no disk, and some file systems know no sync.
    return result == 0 || errno == EINVAL || errno == EROFS || errno == ENOTSUP;
}

bool CPendingFiles::sync(std::FILE * file)
{
    return std::fflush(file) == 0 && std::ferror(file) == 0 && sync(fileno(file));
}

void CPendingFiles::removeAllFromSignalHandler() noexcept
{
    for (Slot & slot : g_slots)
        if (slot.state == Slot::filled)
            unlink(slot.path);
}

} // namespace VsUt

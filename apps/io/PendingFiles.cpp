// SPDX-License-Identifier: Apache-2.0
#include <apps/io/PendingFiles.h>

#include <apps/io/InputError.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace qz_io
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

int const st_slots = 4; // a mesh takes two files at most
Slot g_slots[st_slots];
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler reads the state");

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

} // namespace

PendingFiles::~PendingFiles()
{
    for (Entry const & entry : m_entries) {
        unlink(entry.temporaryPath.c_str());
        releaseSlot(entry.slot);
    }
}

std::string const & PendingFiles::create(std::string const & finalPath)
{
    for (Entry const & entry : m_entries)
        if (entry.finalPath == finalPath)
            return entry.temporaryPath;
    std::string temporaryPath = finalPath + "." + std::to_string(getpid()) + ".part";
    m_entries.reserve(m_entries.size() + 1);
    int const slot = occupySlot(temporaryPath); // before the file exists, so that no signal can miss it
    int const file = open(temporaryPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (file < 0) {
        int const error = errno;
        releaseSlot(slot);
        throw OutputError("cannot write beside " + finalPath + ": " + std::strerror(error));
    }
    close(file);
    m_entries.push_back({finalPath, std::move(temporaryPath), slot});
    return m_entries.back().temporaryPath;
}

void PendingFiles::commit()
{
    while (!m_entries.empty()) {
        Entry const & entry = m_entries.back();
        if (std::rename(entry.temporaryPath.c_str(), entry.finalPath.c_str()) != 0)
            throw OutputError("cannot write " + entry.finalPath + ": " + std::strerror(errno));
        releaseSlot(entry.slot);
        m_entries.pop_back();
    }
}

void PendingFiles::removeAllFromSignalHandler() noexcept
{
    for (Slot & slot : g_slots)
        if (slot.state == Slot::filled)
            unlink(slot.path);
}

} // namespace qz_io

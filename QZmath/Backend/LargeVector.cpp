// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/LargeVector.h>

#include <cstdint>

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace QzBackend
{

namespace
{

std::size_t const page = 4096;
std::size_t const largePage = std::size_t{2} << 20;
// What is smaller may come from memory that the process had before, and takes no time worth a loop.
std::size_t const leastBytes = 4 * largePage;
// What is as large has a mapping of its own, which goes back to the system as a whole.
std::size_t const leastForLargePages = 16 * largePage;

// The large pages that lie in some memory.
struct LargePages
{
    LargePages(void * memory, std::size_t bytes)
        : lead((largePage - reinterpret_cast<std::uintptr_t>(memory) % largePage) % largePage),
          count(bytes > lead ? (bytes - lead) / largePage : 0)
    {}

    std::size_t const lead; // bytes before the first
    std::size_t const count;
};

} // namespace

void adviseLargePages([[maybe_unused]] void * memory, [[maybe_unused]] std::size_t bytes)
{
#ifdef MADV_HUGEPAGE
    if (bytes < leastForLargePages)
        return;
    // All pages of the mapping: in one of two kinds of pages it could not be moved any more. A hint: what the
    // system makes of it changes no result.
    std::uintptr_t const size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    std::uintptr_t const first = reinterpret_cast<std::uintptr_t>(memory) / size * size;
    std::uintptr_t const end = (reinterpret_cast<std::uintptr_t>(memory) + bytes + size - 1) / size * size;
    static_cast<void>(madvise(reinterpret_cast<void *>(first), end - first, MADV_HUGEPAGE));
#endif
}

void touchPages(LoopTeam & team, void * memory, std::size_t bytes)
{
    if (bytes < leastBytes)
        return;
    unsigned char volatile * const bytesThere = static_cast<unsigned char *>(memory);
    // A body for each large page, with what lies beside for the first and the last.
    LargePages const pages(memory, bytes);
    team.forEach(static_cast<int>(pages.count), [&](int number) {
        std::size_t const n = static_cast<std::size_t>(number);
        std::size_t const begin = n == 0 ? 0 : pages.lead + n * largePage;
        std::size_t const end = n + 1 == pages.count ? bytes : pages.lead + (n + 1) * largePage;
        for (std::size_t place = begin; place < end; place += page)
            bytesThere[place] = 0;
    });
}

} // namespace QzBackend

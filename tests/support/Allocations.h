// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

#include <malloc.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

// Names of the system's functions are those of its C library.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QZ_IS_SANITIZED
#endif
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(QZ_IS_SANITIZED)
#define QZ_COUNTS_MEMORY
#endif

/// Replaces the allocation functions of a test program by ones that count, add up and fail on demand. To be
/// included by exactly one source file of the program.
///
/// The functions of the C library are replaced, on which operator new, oneTBB, BLAS and LAPACK build, and the
/// mapping of fresh memory. A sanitizer has to keep these: with one, it is operator new alone.
namespace qz_test
{

/// Allocations of this thread.
inline thread_local int allocations = 0;

/// Of all threads, and the most there were; 0 where they are not counted.
inline std::atomic<long> allocatedBytes{0}, mostAllocatedBytes{0};

/// Allocations of all threads: which of them fail. Numbers start at 1 with `begin`.
class ShortMemory
{
public:
    /// From here on allocation `number` fails, and those after it too if `lasting`.
    static void begin(long number, bool lasting)
    {
        s_number = number;
        s_isLasting = lasting;
        s_seen = 0;
        s_isOn = true;
    }
    /// No more fail. Gives how many there were since `begin`.
    static long end()
    {
        s_isOn = false;
        return s_seen;
    }
    /// Blocks that were allocated and not freed, in the whole process; 0 where they are not counted.
    static long liveBlocks() { return s_live; }

    /// For the allocation functions: is this one to fail?
    static bool takes()
    {
        ++allocations;
        if (!s_isOn)
            return false;
        long const seen = ++s_seen;
        return seen == s_number || (s_isLasting && seen > s_number);
    }
    static void noteAllocated(void * memory)
    {
        long const bytes = static_cast<long>(malloc_usable_size(memory)); // 0 for null
        long const now = allocatedBytes += bytes;
        long most = mostAllocatedBytes;
        while (now > most && !mostAllocatedBytes.compare_exchange_weak(most, now)) {
        }
        s_live += memory != nullptr;
    }
    static void noteFreed(bool isBlock, std::size_t bytes)
    {
        allocatedBytes -= static_cast<long>(bytes);
        s_live -= isBlock;
    }

private:
    static inline std::atomic<bool> s_isOn{false}, s_isLasting{false};
    static inline std::atomic<long> s_seen{0}, s_number{0}, s_live{0};
};

} // namespace qz_test

#ifndef QZ_COUNTS_MEMORY

// Not inlined: the compiler would complain of what is allocated one way and freed another.
__attribute__((noinline)) void * operator new(std::size_t size)
{
    if (!qz_test::ShortMemory::takes())
        if (void * const memory = std::malloc(size > 0 ? size : 1))
            return memory;
    throw std::bad_alloc();
}
__attribute__((noinline)) void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    return qz_test::ShortMemory::takes() ? nullptr : std::malloc(size > 0 ? size : 1);
}
__attribute__((noinline)) void operator delete(void * memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void * memory, std::size_t) noexcept { std::free(memory); }

#else

extern "C" {
void * __libc_malloc(std::size_t size);
void * __libc_calloc(std::size_t count, std::size_t size);
void * __libc_realloc(void * memory, std::size_t size);
void * __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void * memory);
}

namespace qz_test
{

template <class Allocate>
void * allocateUnlessShort(Allocate allocate) noexcept
{
    void * const memory = ShortMemory::takes() ? nullptr : allocate();
    if (memory == nullptr)
        errno = ENOMEM;
    ShortMemory::noteAllocated(memory);
    return memory;
}

} // namespace qz_test

#pragma GCC visibility push(default) // the libraries are to find them
extern "C" {
void * malloc(std::size_t size) noexcept
{
    return qz_test::allocateUnlessShort([=] { return __libc_malloc(size); });
}
void * calloc(std::size_t count, std::size_t size) noexcept
{
    return qz_test::allocateUnlessShort([=] { return __libc_calloc(count, size); });
}
void * realloc(void * memory, std::size_t size) noexcept
{
    if (qz_test::ShortMemory::takes()) {
        errno = ENOMEM;
        return nullptr;
    }
    // Old and new exist for a moment, unless the system finds the room behind the old.
    std::size_t const before = malloc_usable_size(memory);
    void * const moved = __libc_realloc(memory, size);
    if (moved != nullptr || size == 0) {
        qz_test::ShortMemory::noteAllocated(moved);
        qz_test::ShortMemory::noteFreed(memory != nullptr, before);
    }
    return moved;
}
void * memalign(std::size_t alignment, std::size_t size) noexcept
{
    return qz_test::allocateUnlessShort([=] { return __libc_memalign(alignment, size); });
}
void * aligned_alloc(std::size_t alignment, std::size_t size) noexcept { return memalign(alignment, size); }
int posix_memalign(void ** memory, std::size_t alignment, std::size_t size) noexcept
{
    void * const found = memalign(alignment, size);
    if (found == nullptr)
        return ENOMEM;
    *memory = found;
    return 0;
}
void free(void * memory) noexcept
{
    qz_test::ShortMemory::noteFreed(memory != nullptr, malloc_usable_size(memory));
    __libc_free(memory);
}
void * mmap(void * place, std::size_t size, int protection, int flags, int file, off_t offset) noexcept
{
    if ((flags & MAP_ANONYMOUS) != 0 && qz_test::ShortMemory::takes()) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    return reinterpret_cast<void *>(syscall(SYS_mmap, place, size, protection, flags, file, offset));
}
}
#pragma GCC visibility pop

#endif

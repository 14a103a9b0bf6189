// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>

#include <malloc.h>

// Sanitizers count themselves, and the names of the system's functions are those of its C library.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QZ_IS_SANITIZED
#endif
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(QZ_IS_SANITIZED) &&          \
    defined(__GLIBC__)
#define QZ_COUNTS_MEMORY
#endif

/// Puts functions that add up what is allocated in front of the system's ones, those that C code calls
/// included. To be included by exactly one source file of a test program. Under sanitizers, which do the
/// same, nothing is measured.
namespace qz_test
{

#ifdef QZ_COUNTS_MEMORY
constexpr bool isMemoryMeasured = true;
#else
constexpr bool isMemoryMeasured = false;
#endif

inline std::atomic<long> allocatedBytes{0};
inline std::atomic<long> mostAllocatedBytes{0};

/// Bytes that an action has allocated at its peak, on all threads; 0 where nothing is measured.
template <class Action>
long peakBytesOf(Action const & action)
{
    long const before = allocatedBytes.load();
    mostAllocatedBytes = before;
    action();
    return mostAllocatedBytes.load() - before;
}

inline void * counted(void * memory) noexcept
{
    long const bytes = static_cast<long>(malloc_usable_size(memory)); // 0 for null
    long const now = allocatedBytes.fetch_add(bytes) + bytes;
    long most = mostAllocatedBytes.load();
    while (now > most && !mostAllocatedBytes.compare_exchange_weak(most, now)) {
    }
    return memory;
}

inline void uncount(void * memory) noexcept
{
    allocatedBytes.fetch_sub(static_cast<long>(malloc_usable_size(memory)));
}

} // namespace qz_test

#ifdef QZ_COUNTS_MEMORY
#pragma GCC visibility push(default) // or clang would hide them from the libraries
extern "C" {
void * __libc_malloc(std::size_t);
void * __libc_calloc(std::size_t, std::size_t);
void * __libc_realloc(void *, std::size_t);
void * __libc_memalign(std::size_t, std::size_t);
void __libc_free(void *);

void * malloc(std::size_t size) { return qz_test::counted(__libc_malloc(size)); }
void * calloc(std::size_t count, std::size_t size) { return qz_test::counted(__libc_calloc(count, size)); }
void * memalign(std::size_t alignment, std::size_t size)
{
    return qz_test::counted(__libc_memalign(alignment, size));
}
void * aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void ** memory, std::size_t alignment, std::size_t size)
{
    *memory = memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}
void * realloc(void * memory, std::size_t size)
{
    // Old and new exist for a moment, unless the system finds the room behind the old.
    std::size_t const before = malloc_usable_size(memory);
    void * const moved = __libc_realloc(memory, size);
    if (moved != nullptr || size == 0) {
        qz_test::counted(moved);
        qz_test::allocatedBytes.fetch_sub(static_cast<long>(before));
    }
    return moved;
}
void free(void * memory)
{
    qz_test::uncount(memory);
    __libc_free(memory);
}
}
#pragma GCC visibility pop
#endif

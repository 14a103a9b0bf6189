// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

/// Replaces the allocation functions of a test program by ones that count. To be included by exactly one
/// source file of the program.
namespace qz_test
{

/// Allocations of this thread.
thread_local int allocations = 0;

} // namespace qz_test

void * operator new(std::size_t size)
{
    ++qz_test::allocations;
    if (void * const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    ++qz_test::allocations;
    return std::malloc(size);
}
void operator delete(void * memory) noexcept { std::free(memory); }
void operator delete(void * memory, std::size_t) noexcept { std::free(memory); }

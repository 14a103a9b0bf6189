// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <support/Allocations.h>

/// What an action takes. Under sanitizers, which replace the allocation functions themselves, nothing is
/// measured.
namespace qz_test
{

#ifdef QZ_COUNTS_MEMORY
constexpr bool isMemoryMeasured = true;
#else
constexpr bool isMemoryMeasured = false;
#endif

/// Bytes that an action has allocated at its peak, on all threads; 0 where nothing is measured.
template <class Action>
long peakBytesOf(Action const & action)
{
    long const before = allocatedBytes;
    mostAllocatedBytes = before;
    action();
    return mostAllocatedBytes - before;
}

} // namespace qz_test

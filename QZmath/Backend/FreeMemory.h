// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace QzBackend
{

/// Gives the pages back to the system that the process has freed. Between stages that take much memory: small
/// blocks that one has freed lie below those that another one keeps, and would count for the process until
/// those are freed as well.
inline void returnFreedMemory()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

} // namespace QzBackend

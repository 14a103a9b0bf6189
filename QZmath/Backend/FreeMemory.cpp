// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/FreeMemory.h>

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace QzBackend
{

void returnFreedMemory([[maybe_unused]] double things)
{
#ifdef __GLIBC__
    if (things >= 1e6)
        malloc_trim(0);
#endif
}

} // namespace QzBackend

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/FreeMemory.h>

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace QzBackend
{

void returnFreedMemory()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

} // namespace QzBackend

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
namespace QzBackend
{

/// Gives the pages back to the system that the process has freed. Between stages that take much memory: small
/// blocks that one has freed lie below those that another one keeps, and would count for the process until
/// those are freed as well. Does nothing where the C library cannot, nor after work on fewer than a million
/// things: it looks at all memory of the process, which many small calls at the same time would pay for.
QZMATH_SISTER_API void returnFreedMemory(double things);

} // namespace QzBackend

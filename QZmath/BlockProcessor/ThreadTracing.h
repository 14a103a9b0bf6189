// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <QZsys/DebugLog.h>

/// Whether threads are traced by default. A switch for the application's own use; the library does not read
/// it and traces exactly where a log is given.
extern QZMATH_API bool b_DEBUG_THREADS_On;

/// Sends the line "[DEBUG_THREADS] Worker <id>: <text>" to a log. Does nothing, at the cost of one
/// comparison, when the log is null. Lets pass what the log throws. Thread-safe as far as the log is.
QZMATH_API void DebugThreadMessage(VsUt::IDebugLog * log, int workerId, char const * text);

/// Sends a text that is formatted in the manner of `printf` with one argument, and cut off after 255
/// characters, otherwise like the form without. The format must have exactly one conversion, %p for a pointer
/// or %d for an `int`; this is not checked. Exists for `void *`, `void const *` and `int`.
template <class A>
void DebugThreadMessage(VsUt::IDebugLog * log, int workerId, char const * format, A argument);

/// Sends the line "[DEBUG_THREADS] Manager: <text>" to a log, otherwise like `DebugThreadMessage`.
QZMATH_API void DebugThreadMgrMessage(VsUt::IDebugLog * log, char const * text);

template <class A>
void DebugThreadMgrMessage(VsUt::IDebugLog * log, char const * format, A argument);

extern template QZMATH_API void DebugThreadMessage(VsUt::IDebugLog *, int, char const *, void *);
extern template QZMATH_API void DebugThreadMessage(VsUt::IDebugLog *, int, char const *, void const *);
extern template QZMATH_API void DebugThreadMessage(VsUt::IDebugLog *, int, char const *, int);
extern template QZMATH_API void DebugThreadMgrMessage(VsUt::IDebugLog *, char const *, void *);
extern template QZMATH_API void DebugThreadMgrMessage(VsUt::IDebugLog *, char const *, void const *);
extern template QZMATH_API void DebugThreadMgrMessage(VsUt::IDebugLog *, char const *, int);

namespace BlockProc
{

using ::b_DEBUG_THREADS_On;
using ::DebugThreadMessage;
using ::DebugThreadMgrMessage;

} // namespace BlockProc

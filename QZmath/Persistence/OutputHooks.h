// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Two process-wide places for functions that take text for a log and for other output. The library keeps
/// them for programs that want to share them between their parts, and calls neither. Unguarded: set them
/// before other threads read them.
extern "C" {

/// What was last set, null at the start of the process.
QZMATH_API extern void (*QZmath_CB_WriteLog)(char const * text);
QZMATH_API extern void (*QZmath_CB_WriteOutput)(char const * text);

/// Null takes the function away.
QZMATH_API void QZmath_setCB_WriteLog(void (*callback)(char const * text));
QZMATH_API void QZmath_setCB_WriteOutput(void (*callback)(char const * text));
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// The version that these headers belong to. The build takes its own version from these three lines, so a
/// release is numbered here and nowhere else.
#define QZMATH_VERSION_MAJOR 1
#define QZMATH_VERSION_MINOR 0
#define QZMATH_VERSION_PATCH 0

/// One number that grows with the version, for `#if`: 10203 for 1.2.3.
#define QZMATH_VERSION (QZMATH_VERSION_MAJOR * 10000 + QZMATH_VERSION_MINOR * 100 + QZMATH_VERSION_PATCH)

#define QZMATH_DETAIL_TEXT(number) #number
#define QZMATH_DETAIL_JOIN(major, minor, patch)                                                              \
    QZMATH_DETAIL_TEXT(major) "." QZMATH_DETAIL_TEXT(minor) "." QZMATH_DETAIL_TEXT(patch)
/// The version as text, such as "1.2.3".
#define QZMATH_VERSION_STRING                                                                                \
    QZMATH_DETAIL_JOIN(QZMATH_VERSION_MAJOR, QZMATH_VERSION_MINOR, QZMATH_VERSION_PATCH)

namespace QZmath
{

/// `QZMATH_VERSION_STRING` of the shared library that runs. It differs from the macro in a program that was
/// compiled with the headers of another version; libraries of the same major version can stand in for older
/// ones.
QZMATH_API char const * versionString();
/// `QZMATH_VERSION` of the shared library that runs.
QZMATH_API int versionNumber();

} // namespace QZmath

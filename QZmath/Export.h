// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what the shared library `QZmath` exports; everything else is hidden.
#if defined(__GNUC__) || defined(__clang__)
#define QZMATH_API __attribute__((visibility("default")))
#else
#define QZMATH_API
#endif

/// Marks what the library exports for its sister libraries only: headers with it are not installed, and what
/// they declare may change with every version.
#define QZMATH_SISTER_API QZMATH_API

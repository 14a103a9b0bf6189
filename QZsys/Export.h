// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what the shared library `QZsys` exports; everything else is hidden.
#if defined(__GNUC__) || defined(__clang__)
#define QZSYS_API __attribute__((visibility("default")))
#else
#define QZSYS_API
#endif

// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what the shared library `QZmathDistributed` exports; everything else is hidden.
#if defined(__GNUC__) || defined(__clang__)
#define QZMATH_DISTRIBUTED_API __attribute__((visibility("default")))
#else
#define QZMATH_DISTRIBUTED_API
#endif

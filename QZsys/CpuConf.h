// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

/// Settles the processor configuration of the process. Libraries call it once when they are loaded; further
/// calls do nothing. Thread-safe.
QZSYS_API void InitCPUconf();

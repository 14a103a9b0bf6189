// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Umbrella over the system library.
#include <QZsys/CpuConf.h>
#include <QZsys/Exceptions.h>

// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Umbrella over every public header of the library and of the system library beside it.
#include <QZmath/Export.h>

#include <QZsys/QZsys.h>

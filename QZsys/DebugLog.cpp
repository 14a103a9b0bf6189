// SPDX-License-Identifier: Apache-2.0
#include <QZsys/DebugLog.h>

VsUt::IDebugLog::~IDebugLog() = default;

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Persistence/OutputHooks.h>

void (*QZmath_CB_WriteLog)(char const * text) = nullptr;
void (*QZmath_CB_WriteOutput)(char const * text) = nullptr;

void QZmath_setCB_WriteLog(void (*callback)(char const * text)) { QZmath_CB_WriteLog = callback; }
void QZmath_setCB_WriteOutput(void (*callback)(char const * text)) { QZmath_CB_WriteOutput = callback; }

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

namespace VsUt
{

/// Sink of the log lines of an operation, implemented by the caller.
class QZSYS_API IDebugLog
{
public:
    virtual ~IDebugLog();

    /// Takes one finished line: zero-terminated, without a line break, valid only during the call. Called
    /// from any thread, also from several at once, so an implementation has to be thread-safe. An exception
    /// thrown here ends the operation that logs.
    virtual void getMessage(char const * line) = 0;
};

} // namespace VsUt

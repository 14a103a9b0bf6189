// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/DebugLog.h>

#include <locale>
#include <sstream>

namespace VolTr
{

/// Writes one line "label: value, value" to the caller's log, in the "C" locale; null silences it.
template <class First, class... Rest>
void logValues(VsUt::IDebugLog * log, char const * label, First const & first, Rest const &... rest)
{
    if (log == nullptr)
        return;
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << label << ": " << first;
    ((line << ", " << rest), ...);
    log->getMessage(line.str().c_str());
}

inline void logText(VsUt::IDebugLog * log, char const * text)
{
    if (log != nullptr)
        log->getMessage(text);
}

} // namespace VolTr

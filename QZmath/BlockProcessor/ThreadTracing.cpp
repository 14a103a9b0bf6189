// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/ThreadTracing.h>

#include <cstdio>
#include <string>

bool b_DEBUG_THREADS_On = true;

namespace
{

constexpr std::size_t bufferSize = 256;

void send(VsUt::IDebugLog & log, char const * prefix, char const * text)
{
    std::string line(prefix);
    line += text;
    log.getMessage(line.c_str());
}

} // namespace

void DebugThreadMessage(VsUt::IDebugLog * log, int workerId, char const * text)
{
    if (!log)
        return;
    char prefix[bufferSize];
    std::snprintf(prefix, sizeof prefix, "[DEBUG_THREADS] Worker %d: ", workerId);
    send(*log, prefix, text);
}

template <class A>
void DebugThreadMessage(VsUt::IDebugLog * log, int workerId, char const * format, A argument)
{
    if (!log)
        return;
    char text[bufferSize];
    std::snprintf(text, sizeof text, format, argument);
    DebugThreadMessage(log, workerId, text);
}

void DebugThreadMgrMessage(VsUt::IDebugLog * log, char const * text)
{
    if (log)
        send(*log, "[DEBUG_THREADS] Manager: ", text);
}

template <class A>
void DebugThreadMgrMessage(VsUt::IDebugLog * log, char const * format, A argument)
{
    if (!log)
        return;
    char text[bufferSize];
    std::snprintf(text, sizeof text, format, argument);
    DebugThreadMgrMessage(log, text);
}

template QZMATH_API void DebugThreadMessage(VsUt::IDebugLog *, int, char const *, void *);
template QZMATH_API void DebugThreadMessage(VsUt::IDebugLog *, int, char const *, void const *);
template QZMATH_API void DebugThreadMessage(VsUt::IDebugLog *, int, char const *, int);
template QZMATH_API void DebugThreadMgrMessage(VsUt::IDebugLog *, char const *, void *);
template QZMATH_API void DebugThreadMgrMessage(VsUt::IDebugLog *, char const *, void const *);
template QZMATH_API void DebugThreadMgrMessage(VsUt::IDebugLog *, char const *, int);

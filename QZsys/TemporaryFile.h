// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

#include <cstdio>

namespace VsUt
{

/// Opens a new empty file for reading and writing that no other process can find, in the folder that the
/// environment variable `TMPDIR` names, `/tmp` without one. It is gone when it is closed, also by the end of
/// the process, and child programs do not inherit it. `name` begins its name where the file system must give
/// it one for a moment. Null on failure; the caller closes the file. Callable from any thread.
QZSYS_API std::FILE * openTemporaryFile(char const * name);

} // namespace VsUt

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace VsUt
{

/// Opens a new empty file for reading and writing that no other process can find, in the folder that the
/// environment variable `TMPDIR` names, `/tmp` without one. It is gone when it is closed, also by the end of
/// the process, and child programs do not inherit it. `name` begins its name where the file system must give
/// it one for a moment. Null on failure; the caller closes the file. Callable from any thread.
QZSYS_API std::FILE * openTemporaryFile(char const * name);

/// Reads at an offset in bytes from the beginning, past the buffer of `file` and without regard to its
/// position. Gives the number of bytes read, which is less than `count` at the end of the file or after an
/// error.
QZSYS_API std::size_t readFileAt(std::FILE * file, void * bytes, std::size_t count, std::uint64_t offset);

/// Writes in the same way. True when the system has taken all; otherwise some of the bytes may be written.
QZSYS_API bool writeFileAt(std::FILE * file, void const * bytes, std::size_t count, std::uint64_t offset);

} // namespace VsUt

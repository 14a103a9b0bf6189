// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Export.h>
#include <QZmath/Foundation/PointCloudView.h>

#include <string>

class CProgressCounter;

namespace QZmath
{

/// Whether `writePoints` knows the ending of a name, in any case.
QZMATH_FILES_API bool isPointFileToWrite(std::string const & path);

/// Writes a cloud with all that it has. The ending decides:
/// - .ply: binary little-endian; `float` or `double` positions, normals, colours as bytes, and marks as
///   `boundary`; also "-", which writes to standard output;
/// - .obj: `v`, with the colour behind, and `vn`; there is no place for marks;
/// - .xyz, .txt, .asc: a point per line, with a comment that names the columns unless they are 3 or 6;
/// - .csv: the same with commas and a line of names.
///
/// Numbers in text have the fewest digits that give back the same number. The file is written beside its
/// place and then moved there, see `PendingFiles`. Made on all threads; takes less than a megabyte for each
/// of at most 8 beside the cloud. O(n).
///
/// \throws OutputError of what cannot be written
/// \throws CUserIntrException when the progress counter was interrupted
QZMATH_FILES_API void writePoints(PointCloudView const & cloud, std::string const & path,
                                  CProgressCounter * progress = nullptr);

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Viewer/Export.h>
#include <QZmath/Viewer/MeshScene.h>

#include <cstddef>
#include <string>

class CProgressCounter;

namespace QZmath
{

struct PageOptions
{
    /// A mesh with more triangles is simplified to about so many, and the page says so.
    std::size_t mostTriangles = 3000000;
    /// Of more samples so many are shown, evenly thinned, and the page says how many there are.
    std::size_t mostSamples = 100000;
};

/// A page that shows the scene in a browser: complete in itself, with nothing loaded from anywhere.
///
/// Places are rounded to 1/65535 of the longest side of the mesh; normals, colours, densities and distances
/// to 8 bits, densities from their 1st to their 99th percentile and distances from 0, which the page tells.
/// Triangles with corners that are no finite numbers are left out, with a note. Places so far out that the
/// mesh's origin and these steps cannot tell them apart in `double` make the page's coordinates as inexact.
///
/// Some 5 bytes a triangle, 7 with colours, before the text encoding, which adds a third, and 0.6 MB for the
/// viewer. Time O(n log n), memory a small multiple of the mesh's and 32 MB; on all threads of
/// `CVescaThreadingTasksHelper`. The same scene gives the same bytes for any number of them.
///
/// \throws InputError the mesh is missing, its arrays do not fit together, or its origin is not finite
/// \throws CUserIntrException by the progress counter, which may be null
QZMATH_VIEWER_API std::string meshPage(MeshScene const & scene, PageOptions const & options = {},
                                       CProgressCounter * progress = nullptr);

/// The same as a new file of `files`, which the caller commits, or to standard output at once for "-".
/// \throws OutputError the system refuses
QZMATH_VIEWER_API void writeMeshPage(MeshScene const & scene, std::string const & path, PendingFiles & files,
                                     PageOptions const & options = {}, CProgressCounter * progress = nullptr);

} // namespace QZmath

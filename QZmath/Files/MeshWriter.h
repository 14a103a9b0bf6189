// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Export.h>
#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <iosfwd>
#include <string>

class CProgressCounter;

namespace QZmath
{

/// The formats of meshes.
enum class MeshFormat
{
    /// Binary, little-endian. Positions in `float` when the origin is 0, else, with the origin added, in
    /// `double`; normals as nx ny nz, colours as red green blue, `density`.
    ply,
    obj, ///< positions with the origin added, colours from 0 to 1 behind them, normals; no density
    stl, ///< binary, positions and normals of triangles only; an origin other than 0 stands in the header
         /// Positions, normals, colours as COLOR_0 in linear light, density as _DENSITY; the origin as
         /// translation of the nodes around the mesh. The numbers are in a file of the same name and the
         /// ending .bin beside it.
    gltf,
    glb ///< the same in one file; at most 4 GB
};

/// The format by the ending of the file's name, in any case: .ply, .obj, .stl, .gltf or .glb; PLY for "-".
/// Throws `InputError` for others.
QZMATH_FILES_API MeshFormat meshFormatOf(std::string const & path);

/// Writes a mesh to a file, or as PLY to standard output for "-". The file is written beside its place and
/// then moved there, see `PendingFiles`. Made on all threads; takes less than a megabyte for each of at most
/// 8 beside the mesh. O(n).
///
/// \throws InputError  the ending is not known
/// \throws OutputError the system refuses, the format cannot hold the mesh, or its arrays do not fit together
/// \throws CUserIntrException by the progress counter, which may be null
QZMATH_FILES_API void writeMesh(TriangleMesh const & mesh, std::string const & path,
                                CProgressCounter * progress = nullptr);

/// The same to new files of `files`, which the caller commits; "-" is written at once.
QZMATH_FILES_API void writeMesh(TriangleMesh const & mesh, std::string const & path, MeshFormat format,
                                PendingFiles & files, CProgressCounter * progress = nullptr);

/// The same to a stream; `gltf`, which takes two files, is refused.
QZMATH_FILES_API void writeMesh(TriangleMesh const & mesh, std::ostream & stream, MeshFormat format,
                                CProgressCounter * progress = nullptr);

} // namespace QZmath

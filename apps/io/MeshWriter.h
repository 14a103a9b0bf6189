// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/io/PendingFiles.h>
#include <apps/io/TriangleMesh.h>

#include <string>

namespace qz_io
{

enum class MeshFormat
{
    ply, ///< binary, little-endian
    obj,
    stl,  ///< binary
    gltf, ///< with the numbers in a file of the same name and the ending .bin beside it
    glb,
};

/// The format by the ending of the file's name: .ply, .obj, .stl, .gltf or .glb. Throws `InputError` for
/// others.
MeshFormat meshFormatOf(std::string const & path);

/// Writes a mesh to new files of `files`, which the caller commits. Throws `OutputError`. Takes about 150
/// bytes of memory for each triangle. An OBJ file gets smooth normals when the mesh has none.
void writeMesh(TriangleMesh const & mesh, std::string const & path, MeshFormat format, PendingFiles & files);

} // namespace qz_io

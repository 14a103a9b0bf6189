// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Export.h>
#include <QZmath/Files/MeshWriter.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <cstddef>
#include <string>

class CProgressCounter;

namespace QZmath
{

/// Reads a mesh by the ending of the file's name; of "-", PLY from standard input. Polygons are cut into
/// triangles that share their first corner.
///
/// Where `float` would lose digits of the positions, the mesh gets an origin. PLY and OBJ give back the
/// vertices as they are; STL has none, so corners in the same place become one vertex. OBJ, where corners
/// have normals of their own, keeps for each vertex the first; glTF gives the meshes of all nodes as one, at
/// their places in the scene, without what is no triangle; what it leaves to extensions is refused.
///
/// Memory is bounded by the size of the file as with `readPoints`; of glTF, which may repeat a mesh, by 50
/// vertices for each byte. O(n), STL O(n log n).
///
/// \throws InputError of what cannot be read
/// \throws CUserIntrException when the progress counter was interrupted
/// \throws std::bad_alloc
QZMATH_FILES_API TriangleMesh readMesh(std::string const & path, CProgressCounter * progress = nullptr);

/// The same from memory; a `gltf` has to hold its numbers itself.
QZMATH_FILES_API TriangleMesh readMeshFromMemory(void const * bytes, std::size_t size, MeshFormat format,
                                                 CProgressCounter * progress = nullptr);

} // namespace QZmath

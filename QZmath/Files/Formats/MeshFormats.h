// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Streams/ByteSink.h>
#include <QZmath/Foundation/PointCloudView.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <string>

namespace QZmath
{

/// The writers of one format each, of meshes and clouds whose arrays fit together. Throw `OutputError`.
void writePly(TriangleMesh const & mesh, ByteSink & sink);
void writeObj(TriangleMesh const & mesh, ByteSink & sink);
void writeStl(TriangleMesh const & mesh, ByteSink & sink);
void writeGlb(TriangleMesh const & mesh, ByteSink & sink);
/// The file itself, which names the file of the numbers, and that one.
void writeGltf(TriangleMesh const & mesh, std::string const & nameOfNumbers, ByteSink & sink);
void writeGltfNumbers(TriangleMesh const & mesh, ByteSink & sink);

void writePly(PointCloudView const & cloud, ByteSink & sink);
void writeObj(PointCloudView const & cloud, ByteSink & sink);
/// \param separator ' ' or ','
void writeText(PointCloudView const & cloud, char separator, ByteSink & sink);

inline bool hasOrigin(TriangleMesh const & mesh)
{
    return mesh.origin[0] != 0 || mesh.origin[1] != 0 || mesh.origin[2] != 0;
}

} // namespace QZmath

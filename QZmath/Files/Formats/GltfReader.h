// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Formats/PointFormats.h>

#include <cstddef>
#include <string>

namespace QZmath
{

/// The meshes of all nodes of a glTF file as one, positions at their places in the scene. Density is not
/// read.
VertexData readGltf(std::string const & path);
/// The same from memory; `ending` is gltf or glb.
VertexData readGltfFromMemory(void const * bytes, std::size_t size, char const * ending);

} // namespace QZmath

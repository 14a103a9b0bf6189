// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Formats/PointFormats.h>

#include <string>

namespace QZmath
{

/// The meshes of all nodes of a glTF file, or of its binary form, as one, at their places in the scene.
/// Numbers in other files are looked for in `folder` and below it; empty: there are none. Throws
/// `InputError`.
VertexData readGltf(ByteSource & source, std::string const & folder);

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Viewer/Drawing/SceneMesh.h>

#include <cstdint>
#include <vector>

namespace QZmath::Viewing
{

/// How much of the sky over each vertex's outer side nothing else of the mesh covers, by the cosine to the
/// normal: 255 for all of it, 0 for nothing. One byte a vertex.
///
/// The mesh is drawn into a map of depths for each of a few dozen directions; the same for any number of
/// threads. A few dozen steps a triangle and a vertex.
std::vector<std::uint8_t> skyOver(SceneMesh const & mesh);

} // namespace QZmath::Viewing

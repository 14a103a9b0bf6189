// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/sampling/SampleShapes.h>

#include <string>

namespace qz_sampling
{

/// Whether the extension of a file name is one that `writeCloud` knows: ply, obj, xyz or txt, in either case.
bool isCloudFileName(std::string const & fileName);

/// Writes a cloud in the form that the extension tells:
/// - .ply: binary little-endian, floats x y z nx ny nz and, with boundary marks, a uchar `boundary`;
/// - .obj: `v` and `vn` lines;
/// - .xyz, .txt: six columns.
///
/// Numbers in text have the fewest digits that give back the same float. The file is written beside its place
/// under a name of its own and then renamed, so that a failure leaves no partial file and an older one
/// untouched. Throws `CVescaTextException` with one sentence on failure.
void writeCloud(Cloud const & cloud, std::string const & fileName);

} // namespace qz_sampling

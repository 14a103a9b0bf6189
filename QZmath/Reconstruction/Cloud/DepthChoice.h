// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

struct CCloudMeasures;

namespace QZmath
{

class LocalCloud;
struct LocalFrame;
struct ReconstructionOptions;

/// The greatest depth of an octree: its lattice has to fit into an `int`.
int const mostDepth = 29;

/// Edge of the leaf cells of an octree of that depth, in local units, nearly: without the small margin around
/// the cloud, whose extent is given.
QZMATH_SISTER_API double leafCellOf(double extent, int depth);

/// The least depth whose leaf cells are at most `cellSize` large, in units of the cloud; `extent` is local.
/// \throws ReconstructionError when that would be deeper than `most`
QZMATH_SISTER_API int depthOfCellSize(LocalFrame const & frame, double extent, double cellSize, int most);

/// The depth that the options name, or the one that suits the samples.
///
/// The chosen one has leaf cells of 0.45 to 0.9 of the spacing, so that the polygoniser's cubes, which are
/// twice as large, are about as far apart as the samples: that is what samples can tell. On noisy clouds leaf
/// cells are not finer than the noise.
int chooseDepth(LocalCloud const & cloud, ReconstructionOptions const & options,
                CCloudMeasures const & measures);

} // namespace QZmath

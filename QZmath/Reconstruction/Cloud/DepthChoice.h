// SPDX-License-Identifier: Apache-2.0
#pragma once

struct CCloudMeasures;

namespace QZmath
{

class LocalCloud;
struct ReconstructionOptions;

/// The greatest depth of an octree: its lattice has to fit into an `int`.
int const mostDepth = 29;

/// Edge of the leaf cells of an octree of that depth, in local units, nearly: without the small margin around
/// the cloud.
double leafCellOf(LocalCloud const & cloud, int depth);

/// The depth that the options name, or the one that suits the samples.
///
/// The chosen one has leaf cells of 0.45 to 0.9 of the spacing, so that the polygoniser's cubes, which are
/// twice as large, are about as far apart as the samples: that is what samples can tell. On noisy clouds leaf
/// cells are not finer than the noise.
int chooseDepth(LocalCloud const & cloud, ReconstructionOptions const & options,
                CCloudMeasures const & measures);

} // namespace QZmath

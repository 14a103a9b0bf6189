// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Cloud/DepthChoice.h>

#include <QZmath/Reconstruction/Cloud/LocalCloud.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <QZmath/SurfaceAnalysis/CloudMeasures.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace QZmath
{

namespace
{

int const leastDepth = 3;
int const greatestDepth = 16; // that is chosen; 29 can be asked for

// The least depth whose leaf cells are not larger than `cell`.
int depthFor(LocalCloud const & cloud, double cell)
{
    double const depth = std::ceil(std::log2(cloud.extent() / cell));
    return static_cast<int>(std::clamp(depth, 0.0, 64.0));
}

} // namespace

double leafCellOf(LocalCloud const & cloud, int depth) { return std::ldexp(cloud.extent(), -depth); }

int chooseDepth(LocalCloud const & cloud, ReconstructionOptions const & options,
                CCloudMeasures const & measures)
{
    if (options.depth > 0)
        return options.depth;
    if (options.cellSize > 0.0) {
        int const depth = depthFor(cloud, options.cellSize * cloud.frame().scale);
        if (depth > mostDepth) {
            char text[160];
            std::snprintf(text, sizeof(text), "cells of %g would take depth %d, and %d is the greatest",
                          options.cellSize, depth, mostDepth);
            throw ReconstructionError(ReconstructionError::Kind::options, text);
        }
        return std::max(depth, 2);
    }
    if (!(measures.spacing > 0.0)) // a handful of points
        return leastDepth;
    int const bySpacing = depthFor(cloud, 0.9 * measures.spacing);
    int const byNoise = measures.noise > 0.0 ? depthFor(cloud, 2.0 * measures.noise) : greatestDepth;
    return std::clamp(std::min(bySpacing, byNoise), leastDepth, greatestDepth);
}

} // namespace QZmath

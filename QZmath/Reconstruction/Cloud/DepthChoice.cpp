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
int depthFor(double extent, double cell)
{
    double const depth = std::ceil(std::log2(extent / cell));
    return static_cast<int>(std::clamp(depth, 0.0, 64.0));
}

} // namespace

double leafCellOf(double extent, int depth) { return std::ldexp(extent, -depth); }

int depthOfCellSize(LocalFrame const & frame, double extent, double cellSize, int most)
{
    int const depth = depthFor(extent, cellSize * frame.scale);
    if (depth > most) {
        char text[160];
        std::snprintf(text, sizeof(text), "cells of %g would take depth %d, and %d is the greatest", cellSize,
                      depth, most);
        throw ReconstructionError(ReconstructionError::Kind::options, text);
    }
    return std::max(depth, 2);
}

int chooseDepth(LocalCloud const & cloud, ReconstructionOptions const & options,
                CCloudMeasures const & measures)
{
    if (options.depth > 0)
        return options.depth;
    if (options.cellSize > 0.0)
        return depthOfCellSize(cloud.frame(), cloud.extent(), options.cellSize, mostDepth);
    if (!(measures.spacing > 0.0)) // a handful of points
        return leastDepth;
    int const bySpacing = depthFor(cloud.extent(), 0.9 * measures.spacing);
    int const byNoise = measures.noise > 0.0 ? depthFor(cloud.extent(), 2.0 * measures.noise) : greatestDepth;
    return std::clamp(std::min(bySpacing, byNoise), leastDepth, greatestDepth);
}

} // namespace QZmath

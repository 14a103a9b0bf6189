// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SampleSplat.h>

#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>

namespace VolTr
{

namespace
{

// How many times a ratio can be divided by four until it falls below four. No tree is deeper than 32.
int log4(double ratio)
{
    int count = 0;
    for (; ratio >= 4.0 && count < 32; ++count)
        ratio *= 0.25;
    return count;
}

int splatDepth(float weight, float averageDensity, int first, int deepest)
{
    float const density = weight > 0.0f ? 1.0f / weight : 0.0f;
    double const ratio = static_cast<double>(density) / averageDensity;
    if (!(ratio > 0.0) || !std::isfinite(ratio))
        return deepest;
    int const level = ratio >= 1.0 ? log4(ratio) : -log4(1.0 / ratio);
    return std::max(first, std::min(deepest, deepest + level));
}

} // namespace

SplatShare splatShareOf(SampleDensity const * density, int sample, int first, int deepest)
{
    if (density == nullptr)
        return {1.0f, deepest};
    float const weight = density->weights.at(static_cast<std::size_t>(sample));
    return {weight, splatDepth(weight, density->averageDensity, first, deepest)};
}

void splatNormals(StageContext const & context, VectorField & field)
{
    IInputSamples const & samples = context.samples;
    COctree const & octree = context.octree;
    int const samplesNumber = samples.pointsNumber();
    int const deepest = octree.getNodeDepthEnd() - 1;
    int const first = octree.getNodeDepthBegin();
    for (int sample = 0; sample < samplesNumber; ++sample) {
        CPrgCntSubPhase phase(context.progress, static_cast<double>(sample) / samplesNumber,
                              1.0 / samplesNumber, 1, true);
        float const * point = samples.getSampleCoords3(sample);
        SplatShare const splat = splatShareOf(context.density, sample, first, deepest);
        int const cell = octree.getCellByCoordinates(sample);
        CParallelepiped const box = octree.getBoxOnNbrNodes(cell, splat.depth);
        float const * normal = samples.getSampleNormal3(sample);
        for (COctreeNeighborNodeIterator it(&octree, cell, splat.depth); !it.isFinished(); it.next()) {
            int const node = it.currentNodeIndex();
            double position[3];
            octree.getNodePosition(node, position);
            double const share = calcTrilinearWeight(point, position, box) * splat.weight;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                Combination & component = *field[axis];
                component.setBasisCoefficient(node,
                                              component.getBasisCoefficient(node) + normal[axis] * share);
            }
        }
    }
}

} // namespace VolTr

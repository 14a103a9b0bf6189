// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SampleSplat.h>

#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>

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

} // namespace

int splatDepth(float weight, float averageDensity, int first, int deepest)
{
    float const density = weight > 0.0f ? 1.0f / weight : 0.0f;
    double const ratio = static_cast<double>(density) / averageDensity;
    if (!(ratio > 0.0) || !std::isfinite(ratio))
        return deepest;
    int const level = ratio >= 1.0 ? log4(ratio) : -log4(1.0 / ratio);
    return std::max(first, std::min(deepest, deepest + level));
}

void splatNormals(IInputSamples const & samples, COctree const & octree, SampleDensity const * density,
                  VectorField & field, CProgressCounter * progress)
{
    int const samplesNumber = samples.pointsNumber();
    int const deepest = octree.getNodeDepthEnd() - 1;
    int const first = octree.getNodeDepthBegin();
    for (int sample = 0; sample < samplesNumber; ++sample) {
        CPrgCntSubPhase phase(progress, static_cast<double>(sample) / samplesNumber, 1.0 / samplesNumber, 1,
                              true);
        float const * point = samples.getSampleCoords3(sample);
        float weight = 1.0f;
        int depth = deepest;
        if (density != nullptr) {
            weight = density->weights.at(static_cast<std::size_t>(sample));
            depth = splatDepth(weight, density->averageDensity, first, deepest);
        }
        int const cell = octree.getCellByCoordinates(sample);
        CParallelepiped const box = octree.getBoxOnNbrNodes(cell, depth);
        float const * normal = samples.getSampleNormal3(sample);
        for (COctreeNeighborNodeIterator it(&octree, cell, depth); !it.isFinished(); it.next()) {
            int const node = it.currentNodeIndex();
            double position[3];
            octree.getNodePosition(node, position);
            double const share = calcTrilinearWeight(point, position, box) * weight;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                Combination & component = *field[axis];
                component.setBasisCoefficient(node,
                                              component.getBasisCoefficient(node) + normal[axis] * share);
            }
        }
    }
}

} // namespace VolTr

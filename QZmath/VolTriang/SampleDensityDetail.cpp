// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/SampleDensityDetail.h>

#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/LogLineDetail.h>
#include <QZmath/VolTriang/NormalizeByLastDetail.h>
#include <QZmath/VolTriang/OctreeIterators.h>

#include <QZsys/Progress.h>

#include <cfloat>

namespace VolTr
{

namespace
{

bool isInside(CParallelepiped const & box, double const * point)
{
    for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
        if (!(point[axis] >= box.getMin()[axis] && point[axis] <= box.getMax()[axis]))
            return false;
    }
    return true;
}

// Trilinear count of the samples in the eight cells of edge `edge` that meet in `node`. A sample on a face
// that cells share counts in each of them.
double countAroundNode(IInputSamples const & samples, COctree const & octree, double const * node,
                       double edge)
{
    double sum = 0.0;
    for (int corner = 0; corner < 8; ++corner) {
        CParallelepiped box;
        for (int axis = 0; axis < 3; ++axis) {
            bool const below = (corner >> axis & 1) != 0;
            box.setDimension(axis, below ? CInterval(node[axis] - edge, node[axis])
                                         : CInterval(node[axis], node[axis] + edge));
        }
        for (CSamplePointsIteratorInBox it(samples, octree, box, -1); !it.isFinished(); it.next()) {
            if (isInside(box, *it))
                sum += calcTrilinearWeight(*it, node, box);
        }
    }
    return sum;
}

} // namespace

SampleDensity estimateSampleDensity(IInputSamples const & samples, COctree const & octree,
                                    Basis const & basis, int estimationDepth, CProgressCounter * progress,
                                    VsUt::IDebugLog * log)
{
    SampleDensity density;
    std::vector<float> & values = density.weights;
    values.assign(static_cast<std::size_t>(samples.pointsNumber()), 0.0f);

    CParallelepiped const box = octree.getNodesBoundaryBox();
    int nodesNumber = 0;
    for (COctreeInBoxNodeIterator it(&octree, box, estimationDepth); !it.isFinished(); it.next())
        ++nodesNumber;

    double const edge = octree.getCellSize(estimationDepth);
    int done = 0;
    for (COctreeInBoxNodeIterator it(&octree, box, estimationDepth); !it.isFinished(); it.next()) {
        if (progress != nullptr)
            progress->SetPosFloat(static_cast<double>(done) / nodesNumber);
        ++done;
        int const node = it.currentNodeIndex();
        double position[3];
        octree.getNodePosition(node, position);
        double const sum = countAroundNode(samples, octree, position, edge);
        if (sum == 0.0)
            continue;
        CParallelepiped const support = getScaledFunctionCommonSupport(basis.makeFunctionByIndex(node));
        for (CSamplePointsIteratorInBox sample(samples, octree, support, -1); !sample.isFinished();
             sample.next()) {
            if (isInside(support, *sample)) {
                values[static_cast<std::size_t>(sample.currentSampleIndex())] +=
                    static_cast<float>(basis.evalBasisValue(node, *sample) * sum);
            }
        }
    }

    logValues(log, "Weights normalized by factor", normalizeByLast(values));

    float minimum = values.empty() ? 0.0f : FLT_MAX;
    float maximum = 0.0f;
    for (float & value : values) {
        density.averageDensity += value;
        minimum = value < minimum ? value : minimum;
        maximum = value > maximum ? value : maximum;
        if (value > 0.0f)
            value = 1.0f / value;
    }
    if (!values.empty())
        density.averageDensity /= static_cast<float>(values.size());
    logValues(log, "Average density", density.averageDensity);
    logValues(log, "Minimal density", minimum);
    logValues(log, "Maximal density", maximum);
    return density;
}

} // namespace VolTr

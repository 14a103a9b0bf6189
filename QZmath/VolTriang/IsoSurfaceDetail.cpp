// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/IsoSurfaceDetail.h>

#include <QZmath/Foundation/Functor.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/VolTriang/LogLineDetail.h>
#include <QZmath/VolTriang/OctreeFuncEvalHelper.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>
#include <QZmath/VolTriang/jbProcess.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>

namespace VolTr
{

using REmath::Point3D_d;

namespace
{

double squaredDistance(double const * a, double const * b)
{
    double sum = 0.0;
    for (int axis = 0; axis < 3; ++axis)
        sum += (a[axis] - b[axis]) * (a[axis] - b[axis]);
    return sum;
}

// The implicit function relative to its iso-value. On an open surface it marks points that the walk must not
// cross.
class tf_OctreeFunAdapter final : public REmath::Functor2<double, Point3D_d const &, int *>
{
public:
    Combination const * function = nullptr;
    COctree const * octree = nullptr;
    double isoValue = 0.0;
    COctreeFuncEvalHelper * helper = nullptr;
    IInputSamples const * samples = nullptr;
    double outerRadius = -1.0; // negative on a closed surface, where every point is usable
    double innerRadius = -1.0;

    double operator()(Point3D_d const & point, int * flag) const override
    {
        double const coords[3] = {point.x(), point.y(), point.z()};
        if (flag != nullptr)
            *flag = outerRadius > 0.0 && isBeyondSurface(coords) ? 1 : 0;
        return function->eval(coords, helper) - isoValue;
    }

private:
    // A point close to any sample is usable. One farther off is refused when the sample at hand lies on the
    // border; this is the last sample of the walk inside the outer radius, or the first of the walk when none
    // is inside.
    bool isBeyondSurface(double const * point) const
    {
        double low[3];
        double high[3];
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = point[axis] - outerRadius;
            high[axis] = point[axis] + outerRadius;
        }
        int nearest = -1;
        for (CSamplePointsIteratorInBox it(*samples, *octree, CParallelepiped(low, high), -1);
             !it.isFinished(); it.next()) {
            double const distance = squaredDistance(point, *it);
            if (distance < innerRadius * innerRadius)
                return false;
            if (nearest < 0 || distance < outerRadius * outerRadius)
                nearest = it.currentSampleIndex();
        }
        return nearest < 0 || samples->isBoundaryVertex(nearest);
    }
};

// Hands new vertices, with the gradient as their normal if wanted, and each triangle to the target.
class tf_TriangleProcessor final : public REmath::Functor4<int, int, int, int, jbVertices>
{
public:
    ITriangulationTarget * target = nullptr;
    int * vertexCount = nullptr;
    VectorField gradient;
    COctreeFuncEvalHelper * gradientHelpers = nullptr; // one per axis
    CProgressCounter * progress = nullptr;
    int expectedFaces = 0;
    int * triangleCount = nullptr;
    bool withNormals = false;

    int operator()(int a, int b, int c, jbVertices vertices) const override
    {
        while (*vertexCount < vertices.count) {
            Point3D_d const & position = vertices.items[*vertexCount].position;
            double const coords[3] = {position.x(), position.y(), position.z()};
            double normal[3] = {0.0, 0.0, 0.0};
            if (withNormals)
                evalNormal(coords, normal);
            target->addNewVertex(*vertexCount, coords, normal);
            ++*vertexCount;
        }
        target->addNewTriangle(a, b, c);
        ++*triangleCount;
        if (progress != nullptr)
            progress->SetPosFloat(VsPCnt::prgCntLongJobPosition(*triangleCount, expectedFaces, 0.3));
        return 1;
    }

private:
    void evalNormal(double const * coords, double * normal) const
    {
        double squaredLength = 0.0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            normal[axis] = gradient[axis]->eval(coords, &gradientHelpers[axis]);
            squaredLength += normal[axis] * normal[axis];
        }
        if (squaredLength != 0.0) {
            NormalizeVector(normal);
        } else {
            normal[0] = 1.0;
            normal[1] = normal[2] = 0.0;
        }
    }
};

// Walks from the middle of the octree toward the samples. The point moves with every sample that is nearer to
// it than the last step was long, so the result is a sample near the middle, not always the nearest.
Point3D_d findStartPoint(IInputSamples const & samples, COctree const & octree)
{
    double start[3];
    octree.getBoxCenter(start);
    double best = DBL_MAX;
    int const samplesNumber = samples.pointsNumber();
    for (int sample = 0; sample < samplesNumber; ++sample) {
        float const * coords = samples.getSampleCoords3(sample);
        double const point[3] = {coords[0], coords[1], coords[2]};
        double const distance = squaredDistance(start, point);
        if (distance < best) {
            best = distance;
            std::copy(point, point + 3, start);
        }
    }
    return Point3D_d(start[0], start[1], start[2]);
}

// Cubes on each side of the start point, in `float` and truncated; saturated where that leaves the `int`
// range.
int cubesPerSide(float reconstructFactor, int leafCellDepth)
{
    float const cubes = reconstructFactor * static_cast<float>(1 << leafCellDepth) + 1.0f;
    if (std::isnan(cubes))
        return 0;
    float const bound = 1 << 30;
    return static_cast<int>(std::clamp(cubes, -bound, bound));
}

} // namespace

void extractIsoSurface(Combination const & function, double isoValue, GradientBasis const * gradBasis,
                       IInputSamples const & samples, COctree const & octree,
                       CVolTriangulationParams const & params, ITriangulationTarget & target,
                       CProgressCounter * progress, VsUt::IDebugLog * log)
{
    logText(log, "<Marching cubes>");
    double const edge = octree.getCellSize(params.getOctreeDepth() - 1) / params.getReconstructFactor();
    int const cubes = cubesPerSide(params.getReconstructFactor(), octree.getLeafCellDepth());
    int bounds[3] = {cubes, cubes, cubes};
    Point3D_d const start = findStartPoint(samples, octree);
    // The walk stays local and returns to places that it left a while ago, so a few regions are kept.
    COctreeFuncEvalHelper helper(8, edge * 4.0);

    tf_OctreeFunAdapter adapter;
    adapter.function = &function;
    adapter.octree = &octree;
    adapter.isoValue = isoValue;
    adapter.helper = &helper;
    adapter.samples = &samples;
    if (!params.getClosed()) {
        adapter.outerRadius = edge * 4.0;
        adapter.innerRadius = edge * 2.0;
    }

    int vertexCount = 0;
    int triangleCount = 0;
    std::vector<COctreeFuncEvalHelper> gradientHelpers(3, helper);
    tf_TriangleProcessor processor;
    processor.target = &target;
    processor.progress = progress;
    processor.expectedFaces = static_cast<int>(std::min(6.0 * cubes * cubes, static_cast<double>(INT_MAX)));
    processor.vertexCount = &vertexCount;
    processor.triangleCount = &triangleCount;
    processor.gradientHelpers = gradientHelpers.data();
    if (gradBasis != nullptr) {
        processor.withNormals = true;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            processor.gradient[axis] = std::make_unique<Combination>((*gradBasis)[axis].get());
            for (int node = 0; node < octree.getNodesNumber(); ++node)
                processor.gradient[axis]->setBasisCoefficient(node, function.getBasisCoefficient(node));
        }
    }

    logValues(log, "Edge length", edge);
    logValues(log, "Bounds", bounds[0], bounds[1], bounds[2]);
    logValues(log, "Start point", start.x(), start.y(), start.z());
    logValues(log, "Expected faces number", processor.expectedFaces);

    jbProcess process;
    if (process.polygonize(adapter, edge, bounds, start, processor) != 0 || triangleCount == 0) {
        char const * const text = "Failed to reconstruct iso-value surface";
        logText(log, text);
        throw CVolTriangulationError(text);
    }
    logValues(log, "Added vertexes", vertexCount);
    logValues(log, "Added triangles", triangleCount);
    logText(log, "</Marching cubes>");
}

} // namespace VolTr

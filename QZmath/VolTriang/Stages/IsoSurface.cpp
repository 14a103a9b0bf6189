// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/IsoSurface.h>

#include <QZmath/Foundation/Functor.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Bricks/BrickSurface.h>
#include <QZmath/VolTriang/Bricks/WorkTeam.h>
#include <QZmath/VolTriang/OctreeFuncEvalHelper.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolTriangulationError.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>
#include <QZmath/VolTriang/jbProcess.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>

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

// Where an open surface ends: points that the walk must not cross.
class SurfaceEnd
{
public:
    SurfaceEnd(IInputSamples const & samples, COctree const & octree, double edge)
        : m_samples(samples), m_octree(octree), m_outerRadius(edge * 4.0), m_innerRadius(edge * 2.0)
    {}

    // A point close to any sample is usable. One farther off is refused when the sample at hand lies on the
    // border; this is the last sample of the walk inside the outer radius, or the first of the walk when none
    // is inside. Thread-safe.
    bool isBeyond(double const * point) const
    {
        if (!(m_outerRadius > 0.0))
            return false;
        double low[3];
        double high[3];
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = point[axis] - m_outerRadius;
            high[axis] = point[axis] + m_outerRadius;
        }
        int nearest = -1;
        for (CSamplePointsIteratorInBox it(m_samples, m_octree, CParallelepiped(low, high), -1);
             !it.isFinished(); it.next()) {
            double const distance = squaredDistance(point, *it);
            if (distance < m_innerRadius * m_innerRadius)
                return false;
            if (nearest < 0 || distance < m_outerRadius * m_outerRadius)
                nearest = it.currentSampleIndex();
        }
        return nearest < 0 || m_samples.isBoundaryVertex(nearest);
    }

private:
    IInputSamples const & m_samples;
    COctree const & m_octree;
    double m_outerRadius;
    double m_innerRadius;
};

// The implicit function relative to its iso-value. On an open surface it marks points that the walk must not
// cross.
template <class Value>
class tf_OctreeFunAdapter final : public REmath::Functor2<double, Point3D_d const &, int *>
{
public:
    tf_OctreeFunAdapter(Value value, double isoValue, SurfaceEnd const * end)
        : m_value(value), m_isoValue(isoValue), m_end(end)
    {}

    double operator()(Point3D_d const & point, int * flag) const override
    {
        double const coords[3] = {point.x(), point.y(), point.z()};
        if (flag != nullptr)
            *flag = m_end != nullptr && m_end->isBeyond(coords) ? 1 : 0;
        return m_value(coords) - m_isoValue;
    }

private:
    Value m_value;
    double m_isoValue;
    SurfaceEnd const * m_end; // null on a closed surface, where every point is usable
};

// A unit vector along a gradient, or along x where it is zero.
void normalizeGradient(double * normal)
{
    double squaredLength = 0.0;
    for (int axis = 0; axis < 3; ++axis)
        squaredLength += normal[axis] * normal[axis];
    if (squaredLength != 0.0) {
        NormalizeVector(normal);
    } else {
        normal[0] = 1.0;
        normal[1] = normal[2] = 0.0;
    }
}

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
        for (std::size_t axis = 0; axis < 3; ++axis)
            normal[axis] = gradient[axis]->eval(coords, &gradientHelpers[axis]);
        normalizeGradient(normal);
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

// The lattice of the polygoniser's cubes.
struct SurfaceLattice
{
    double edge;
    int bounds[3];
    Point3D_d start;
    int expectedFaces;

    SurfaceLattice(IInputSamples const & samples, COctree const & octree,
                   CVolTriangulationParams const & params, VsUt::IDebugLog * log)
    {
        logText(log, "<Marching cubes>");
        edge = octree.getCellSize(params.getOctreeDepth() - 1) / params.getReconstructFactor();
        int const cubes = cubesPerSide(params.getReconstructFactor(), octree.getLeafCellDepth());
        std::fill(bounds, bounds + 3, cubes);
        start = findStartPoint(samples, octree);
        expectedFaces = static_cast<int>(std::min(6.0 * cubes * cubes, static_cast<double>(INT_MAX)));
    }
};

void logLattice(SurfaceLattice const & lattice, VsUt::IDebugLog * log)
{
    logValues(log, "Edge length", lattice.edge);
    logValues(log, "Bounds", lattice.bounds[0], lattice.bounds[1], lattice.bounds[2]);
    logValues(log, "Start point", lattice.start.x(), lattice.start.y(), lattice.start.z());
    logValues(log, "Expected faces number", lattice.expectedFaces);
}

void concludeSurface(bool isDone, int vertexCount, int triangleCount, VsUt::IDebugLog * log)
{
    if (!isDone || triangleCount == 0) {
        char const * const text = "Failed to reconstruct iso-value surface";
        logText(log, text);
        throw CVolTriangulationError(text);
    }
    logValues(log, "Added vertexes", vertexCount);
    logValues(log, "Added triangles", triangleCount);
    logText(log, "</Marching cubes>");
}

// Hands the walk over bricks to the target.
class BrickSink final : public BrickSurface::Sink
{
public:
    BrickSink(ITriangulationTarget & target, BrickFunction const & function, bool withNormals,
              CProgressCounter * progress, int expectedFaces)
        : m_target(target), m_function(function), m_withNormals(withNormals), m_progress(progress),
          m_expectedFaces(expectedFaces)
    {}

    void addVertex(double const * position) override
    {
        double normal[3] = {0.0, 0.0, 0.0};
        if (m_withNormals) {
            m_function.gradient(position, normal, m_hint);
            normalizeGradient(normal);
        }
        m_target.addNewVertex(vertexCount, position, normal);
        ++vertexCount;
    }

    void addTriangle(int a, int b, int c) override
    {
        m_target.addNewTriangle(a, b, c);
        ++triangleCount;
        if (m_progress != nullptr)
            m_progress->SetPosFloat(VsPCnt::prgCntLongJobPosition(triangleCount, m_expectedFaces, 0.3));
    }

    int vertexCount = 0;
    int triangleCount = 0;

private:
    ITriangulationTarget & m_target;
    BrickFunction const & m_function;
    bool m_withNormals;
    CProgressCounter * m_progress;
    int m_expectedFaces;
    BrickFunction::Hint m_hint;
};

} // namespace

void extractIsoSurface(Combination const & function, double isoValue, GradientBasis const * gradBasis,
                       IInputSamples const & samples, COctree const & octree,
                       CVolTriangulationParams const & params, ITriangulationTarget & target,
                       CProgressCounter * progress, VsUt::IDebugLog * log)
{
    SurfaceLattice lattice(samples, octree, params, log);
    double const edge = lattice.edge;
    // The walk stays local and returns to places that it left a while ago, so a few regions are kept.
    COctreeFuncEvalHelper helper(8, edge * 4.0);

    SurfaceEnd const end(samples, octree, edge);
    auto const valueAt = [&](double const * point) { return function.eval(point, &helper); };
    tf_OctreeFunAdapter<decltype(valueAt)> adapter(valueAt, isoValue, params.getClosed() ? nullptr : &end);

    int vertexCount = 0;
    int triangleCount = 0;
    std::vector<COctreeFuncEvalHelper> gradientHelpers(3, helper);
    tf_TriangleProcessor processor;
    processor.target = &target;
    processor.progress = progress;
    processor.expectedFaces = lattice.expectedFaces;
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

    logLattice(lattice, log);

    jbProcess process;
    bool const isDone = process.polygonize(adapter, edge, lattice.bounds, lattice.start, processor) == 0;
    concludeSurface(isDone, vertexCount, triangleCount, log);
}

void extractIsoSurface(BrickFunction const & function, double isoValue, bool withNormals,
                       IInputSamples const & samples, COctree const & octree,
                       CVolTriangulationParams const & params, ITriangulationTarget & target,
                       CProgressCounter * progress, VsUt::IDebugLog * log, int threads)
{
    SurfaceLattice lattice(samples, octree, params, log);
    logLattice(lattice, log);
    SurfaceEnd const end(samples, octree, lattice.edge);
    BrickFunction::Hint hint;
    auto const valueAt = [&](double const * point) { return function.eval(point, hint); };
    tf_OctreeFunAdapter<decltype(valueAt)> adapter(valueAt, isoValue, params.getClosed() ? nullptr : &end);

    BrickSink sink(target, function, withNormals, progress, lattice.expectedFaces);
    jbProcess search;
    search.function = &adapter;
    search.size = lattice.edge;
    jbTest const inside = search.find(1, lattice.start);
    jbTest const outside = search.find(0, lattice.start);
    // A negative subdivision factor makes no lattice.
    bool const isFound = inside.ok != 0 && outside.ok != 0 && !(lattice.edge < 0.0);
    if (isFound) {
        Point3D_d const start = search.converge(inside.point, outside.point, inside.value);
        double const startCoords[3] = {start.x(), start.y(), start.z()};
        std::function<bool(double const *)> isRefused;
        if (!params.getClosed())
            isRefused = [&end](double const * point) { return end.isBeyond(point); };
        BrickSurface surface(function, isoValue, startCoords, lattice.edge, lattice.bounds, isRefused);
        {
            CPrgCntSubPhase phase(progress, 0.0, 0.3, 0, true);
            WorkTeam::run(threads, progress, [&surface](WorkTeam & team) { surface.prepare(team); });
        }
        CPrgCntSubPhase phase(progress, 0.3, 0.7, 0, true);
        surface.walk(sink);
    }
    concludeSurface(isFound, sink.vertexCount, sink.triangleCount, log);
}

} // namespace VolTr

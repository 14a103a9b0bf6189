// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/LevelSet.h>

#include <QZmath/Foundation/Functor.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>
#include <QZmath/VolTriang/jbProcess.h>

namespace VolTr
{

using REmath::Point3D_d;

SurfaceEnd::SurfaceEnd(IInputSamples const & samples, COctree const & octree, double edge)
    : m_samples(samples), m_octree(octree), m_outerRadius(edge * 4.0), m_innerRadius(edge * 2.0)
{}

bool SurfaceEnd::isBeyond(double const * point) const
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
    for (CSamplePointsIteratorInBox it(m_samples, m_octree, CParallelepiped(low, high), -1); !it.isFinished();
         it.next()) {
        double squaredDistance = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            double const difference = point[axis] - (*it)[axis];
            squaredDistance += difference * difference;
        }
        if (squaredDistance < m_innerRadius * m_innerRadius)
            return false;
        if (nearest < 0 || squaredDistance < m_outerRadius * m_outerRadius)
            nearest = it.currentSampleIndex();
    }
    return nearest < 0 || m_samples.isBoundaryVertex(nearest);
}

namespace
{

// The implicit function relative to its iso-value. On an open surface it marks points
// that the walk must not cross.
class tf_OctreeFunAdapter final : public REmath::Functor2<double, Point3D_d const &, int *>
{
public:
    tf_OctreeFunAdapter(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet)
        : m_evaluator(evaluator), m_isoValue(levelSet.isoValue), m_end(levelSet.end)
    {}

    double operator()(Point3D_d const & point, int * flag) const override
    {
        double const coords[3] = {point.x(), point.y(), point.z()};
        if (flag != nullptr)
            *flag = m_end != nullptr && m_end->isBeyond(coords) ? 1 : 0;
        return m_evaluator.value(coords) - m_isoValue;
    }

private:
    ImplicitFunction::Evaluator & m_evaluator;
    double m_isoValue;
    SurfaceEnd const * m_end;
};

// Passes vertices that are new in the walk's list, then the triangle.
class tf_TriangleProcessor final : public REmath::Functor4<int, int, int, int, jbVertices>
{
public:
    explicit tf_TriangleProcessor(TriangleSink & sink) : m_sink(sink) {}

    int operator()(int a, int b, int c, jbVertices vertices) const override
    {
        for (; m_passed < vertices.count; ++m_passed) {
            Point3D_d const & position = vertices.items[m_passed].position;
            double const coords[3] = {position.x(), position.y(), position.z()};
            m_sink.addVertex(coords);
        }
        m_sink.addTriangle(a, b, c);
        return 1;
    }

private:
    TriangleSink & m_sink;
    mutable int m_passed = 0;
};

} // namespace

std::optional<Point3D_d> findSurface(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet)
{
    tf_OctreeFunAdapter adapter(evaluator, levelSet);
    jbProcess search;
    search.function = &adapter;
    search.size = levelSet.lattice.edge;
    jbTest const inside = search.find(1, levelSet.lattice.start);
    jbTest const outside = search.find(0, levelSet.lattice.start);
    if (inside.ok == 0 || outside.ok == 0)
        return std::nullopt;
    return search.converge(inside.point, outside.point, inside.value);
}

bool polygoniseByCubes(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet,
                       TriangleSink & sink)
{
    SurfaceLattice lattice = levelSet.lattice;
    tf_OctreeFunAdapter adapter(evaluator, levelSet);
    tf_TriangleProcessor processor(sink);
    jbProcess process;
    if (process.polygonize(adapter, lattice.edge, lattice.bounds, lattice.start, processor) != 0)
        return false;
    sink.finish();
    return true;
}

} // namespace VolTr

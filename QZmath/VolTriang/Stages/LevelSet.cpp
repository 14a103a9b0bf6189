// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/LevelSet.h>

#include <QZmath/Foundation/Functor.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Polygoniser/CubePlan.h>
#include <QZmath/VolTriang/Polygoniser/CubeTables.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/Stages/SurfaceWalk.h>
#include <QZmath/VolTriang/jbProcess.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

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

// Cubes, corners and vertices from the tables of a polygoniser.
class EvaluatedCubes
{
public:
    using Cube = jbCube;

    EvaluatedCubes(jbProcess::Function & function, CubeFrame const & frame)
    {
        m_tables.function = &function;
        m_tables.size = frame.edge;
        m_tables.start = Point3D_d(frame.start[0], frame.start[1], frame.start[2]);
    }
    ~EvaluatedCubes() { m_tables.freeprocess(); }
    EvaluatedCubes(EvaluatedCubes const &) = delete;
    EvaluatedCubes & operator=(EvaluatedCubes const &) = delete;

    static Cube at(CubeIndex const & index)
    {
        Cube cube;
        cube.i = index[0];
        cube.j = index[1];
        cube.k = index[2];
        return cube;
    }

    static Cube across(Cube const & cube, CubeCut::Face const & face)
    {
        Cube next = at({cube.i + face.step[0], cube.j + face.step[1], cube.k + face.step[2]});
        int const opposite = 4 * std::abs(face.step[0]) + 2 * std::abs(face.step[1]) + std::abs(face.step[2]);
        for (int const shared : face.corners)
            next.corners[shared ^ opposite] = cube.corners[shared];
        return next;
    }

    bool complete(Cube & cube)
    {
        bool isUsable = true;
        for (int n = 0; n < 8; ++n) {
            if (cube.corners[n] == nullptr)
                cube.corners[n] =
                    m_tables.setcorner(cube.i + (n >> 2 & 1), cube.j + (n >> 1 & 1), cube.k + (n & 1));
            isUsable = isUsable && cube.corners[n]->flag == 0;
        }
        return isUsable;
    }

    static CubeIndex indexOf(Cube const & cube) { return {cube.i, cube.j, cube.k}; }

    static int signsOf(Cube const & cube)
    {
        int signs = 0;
        for (int n = 0; n < 8; ++n)
            signs |= (cube.corners[n]->value > 0 ? 1 : 0) << n;
        return signs;
    }

    bool markSeen(Cube & cube)
    {
        // Where the corner is, its record has room for the mark.
        if (cube.corners[0] == nullptr)
            cube.corners[0] = m_tables.setcorner(cube.i, cube.j, cube.k);
        return m_tables.setcenter(cube.i, cube.j, cube.k) == 0;
    }

    static bool isSeenAcross(Cube const &, CubeCut::Face const &) { return false; }
    static bool isSettled(CubeIndex const &) { return false; }

    void addTriangles(Cube const & cube, CubePlan const & plan, TriangleSink & sink)
    {
        int vertices[CubePlan::greatestEdges];
        for (CubePlan::Operation const & operation : plan.operations) {
            if (operation.edges[1] < 0)
                vertices[operation.edges[0]] =
                    vertexOf(cube, plan.edges[static_cast<std::size_t>(operation.edges[0])], sink);
            else
                sink.addTriangle(vertices[operation.edges[0]], vertices[operation.edges[1]],
                                 vertices[operation.edges[2]]);
        }
    }
    static void passOn(TriangleSink &) {}

private:
    int vertexOf(Cube const & cube, CubePlan::Edge const & edge, TriangleSink & sink)
    {
        int const vertex = m_tables.vertid(cube.corners[edge.from], cube.corners[edge.to]);
        if (vertex >= m_passed) {
            Point3D_d const & position = m_tables.vertices.items[vertex].position;
            double const coords[3] = {position.x(), position.y(), position.z()};
            sink.addVertex(coords);
            m_passed = vertex + 1;
        }
        return vertex;
    }

    jbProcess m_tables;
    int m_passed = 0;
};

// Why a search around the start met one side of the level set only.
std::string reasonOf(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet,
                     StageContext const & context, bool hasInside, bool hasOutside)
{
    int const samplesNumber = context.samples.pointsNumber();
    if (samplesNumber <= 0)
        return "there are no samples";
    if (!(levelSet.lattice.edge > 0.0 && std::isfinite(levelSet.lattice.edge)))
        return "reconstructFactor gives the cubes of the lattice no size";
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    int const samplesPerTurn = 1 << 12;
    for (int sample = 0; sample < samplesNumber; ++sample) {
        if (context.progress != nullptr && sample % samplesPerTurn == 0)
            context.progress->SetPosFloat(0.0);
        float const * const coords = context.samples.getSampleCoords3(sample);
        double const point[3] = {coords[0], coords[1], coords[2]};
        double const value = evaluator.value(point);
        if (!std::isfinite(value))
            return "the implicit function is not finite at sample " + std::to_string(sample);
        low = std::min(low, value);
        high = std::max(high, value);
    }
    if (samplesNumber > 1 && low == high)
        return "the implicit function is the same everywhere: the normals are zero, or they cancel each "
               "other";
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.precision(9);
    Point3D_d const & start = levelSet.lattice.start;
    text << "no crossing with cubes of edge " << levelSet.lattice.edge << " near the start point ("
         << start.x() << ", " << start.y() << ", " << start.z()
         << "): at all places tried, the implicit function is "
         << (hasInside    ? "above"
             : hasOutside ? "not above"
                          : "undefined against")
         << " its mean at the samples";
    if (levelSet.end != nullptr)
        text << ", or they lie beyond the end of the open surface";
    return text.str();
}

} // namespace

std::optional<CubeFrame> findSurface(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet,
                                     StageContext const & context)
{
    tf_OctreeFunAdapter adapter(evaluator, levelSet);
    jbProcess search;
    search.function = &adapter;
    search.size = levelSet.lattice.edge;
    jbTest const inside = search.find(1, levelSet.lattice.start);
    jbTest const outside = search.find(0, levelSet.lattice.start);
    if (inside.ok == 0 || outside.ok == 0) {
        context.report.failure = reasonOf(evaluator, levelSet, context, inside.ok != 0, outside.ok != 0);
        return std::nullopt;
    }
    Point3D_d const start = search.converge(inside.point, outside.point, inside.value);
    return CubeFrame{{start.x(), start.y(), start.z()}, levelSet.lattice.edge};
}

bool polygoniseByCubes(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet,
                       StageContext const & context, TriangleSink & sink)
{
    std::optional<CubeFrame> const frame = findSurface(evaluator, levelSet, context);
    if (!frame)
        return false;
    tf_OctreeFunAdapter adapter(evaluator, levelSet);
    EvaluatedCubes cubes(adapter, *frame);
    walkSurface(cubes, *frame, levelSet, context, sink);
    return true;
}

} // namespace VolTr

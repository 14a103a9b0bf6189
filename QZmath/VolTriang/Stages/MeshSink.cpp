// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/MeshSink.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/Progress.h>

#include <algorithm>

namespace VolTr
{

namespace
{

// A triangle takes half a vertex, so both lists fill up at the same time.
std::size_t const greatestBatchVertices = 1024;
std::size_t const greatestBatchTriangles = 2048;
int const verticesPerTask = 256;

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

} // namespace

MeshSink::MeshSink(ITriangulationTarget & target, EvaluableFunction const & function, double extent,
                   StageContext const & context, int expectedTriangles)
    : m_target(target), m_function(function), m_extent(extent), m_context(context),
      m_expectedTriangles(expectedTriangles), m_withNormals(context.params.getEstimateResultNormals()),
      m_evaluators(1)
{}

double MeshSink::position() const
{
    return VsPCnt::prgCntLongJobPosition(m_triangleCount, m_expectedTriangles, 0.3);
}

void MeshSink::addVertex(double const * position)
{
    m_positions.insert(m_positions.end(), position, position + 3);
}

void MeshSink::addTriangle(int a, int b, int c)
{
    m_triangles.push_back({{a, b, c}, m_vertexCount + static_cast<int>(batchVertices())});
    if (batchVertices() >= greatestBatchVertices || m_triangles.size() >= greatestBatchTriangles)
        handOver();
}

void MeshSink::addRun(TriangleRun const & run)
{
    handOver();
    m_positions.resize(3 * static_cast<std::size_t>(run.vertices()));
    m_normals.resize(m_withNormals ? m_positions.size() : 0);
    m_triangles.resize(static_cast<std::size_t>(run.triangles()));
    int const vertexTasks = (run.vertices() + verticesPerTask - 1) / verticesPerTask;
    QzBackend::LoopTeam::run(m_context.threads, m_context.progress, [&](QzBackend::LoopTeam & team) {
        m_evaluators.resize(std::max(m_evaluators.size(), static_cast<std::size_t>(team.threads())));
        team.setPosition(position());
        team.forEachOnSlot(vertexTasks + run.parts(), [&](int slot, int task) {
            if (task >= vertexTasks) {
                int const part = task - vertexTasks;
                run.makeTriangles(part, m_triangles.data() + run.firstOf(part));
                return;
            }
            int const begin = task * verticesPerTask;
            int const end = std::min(run.vertices(), begin + verticesPerTask);
            run.makeVertices(begin, end, m_positions.data() + 3 * begin);
            findNormals(static_cast<std::size_t>(begin), static_cast<std::size_t>(end), slot);
        });
    });
    passOn();
}

void MeshSink::handOver()
{
    m_normals.resize(m_withNormals ? m_positions.size() : 0);
    findNormals(0, batchVertices(), 0);
    passOn();
}

// Of vertices of the batch.
void MeshSink::findNormals(std::size_t begin, std::size_t end, int slot)
{
    if (!m_withNormals)
        return;
    auto & evaluator = m_evaluators[static_cast<std::size_t>(slot)];
    if (evaluator == nullptr)
        evaluator = m_function.makeEvaluator(m_extent);
    for (std::size_t first = 3 * begin; first < 3 * end; first += 3) {
        evaluator->gradient(&m_positions[first], &m_normals[first]);
        normalizeGradient(&m_normals[first]);
    }
}

void MeshSink::passOn()
{
    int const end = m_vertexCount + static_cast<int>(batchVertices());
    m_batchBegin = m_vertexCount;
    for (Triangle const & triangle : m_triangles) {
        passVertices(triangle.verticesBefore);
        m_target.addNewTriangle(triangle.corners[0], triangle.corners[1], triangle.corners[2]);
        ++m_triangleCount;
        if (m_context.progress != nullptr)
            m_context.progress->SetPosFloat(position());
    }
    passVertices(end);
    m_positions.clear();
    m_triangles.clear();
}

void MeshSink::passVertices(int end)
{
    double const none[3] = {0, 0, 0};
    for (; m_vertexCount < end; ++m_vertexCount) {
        std::size_t const first = 3 * static_cast<std::size_t>(m_vertexCount - m_batchBegin);
        m_target.addNewVertex(m_vertexCount, &m_positions[first], m_withNormals ? &m_normals[first] : none);
    }
}

} // namespace VolTr

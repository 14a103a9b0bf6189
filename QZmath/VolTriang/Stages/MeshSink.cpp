// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/MeshSink.h>

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/VolTriang/TriangulationTarget.h>

#include <QZsys/Progress.h>

namespace VolTr
{

namespace
{

// A triangle takes half a vertex, so both lists fill up at the same time.
std::size_t const greatestBatchVertices = 1024;
std::size_t const greatestBatchTriangles = 2048;

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

MeshSink::MeshSink(ITriangulationTarget & target, ImplicitFunction::Evaluator * normals,
                   CProgressCounter * progress, int expectedTriangles)
    : m_target(target), m_normalsOf(normals), m_progress(progress), m_expectedTriangles(expectedTriangles)
{}

void MeshSink::addVertex(double const * position)
{
    m_positions.insert(m_positions.end(), position, position + 3);
}

void MeshSink::addTriangle(int a, int b, int c)
{
    m_triangles.push_back({{a, b, c}, batchVertices()});
    if (batchVertices() >= greatestBatchVertices || m_triangles.size() >= greatestBatchTriangles)
        handOver();
}

void MeshSink::handOver()
{
    findNormals();
    for (Triangle const & triangle : m_triangles) {
        passVertices(triangle.verticesBefore);
        m_target.addNewTriangle(triangle.corners[0], triangle.corners[1], triangle.corners[2]);
        ++m_triangleCount;
        if (m_progress != nullptr)
            m_progress->SetPosFloat(VsPCnt::prgCntLongJobPosition(m_triangleCount, m_expectedTriangles, 0.3));
    }
    passVertices(batchVertices());
    m_positions.clear();
    m_triangles.clear();
    m_passed = 0;
}

void MeshSink::findNormals()
{
    m_normals.assign(m_positions.size(), 0.0);
    if (m_normalsOf == nullptr)
        return;
    for (std::size_t first = 0; first < m_positions.size(); first += 3) {
        m_normalsOf->gradient(&m_positions[first], &m_normals[first]);
        normalizeGradient(&m_normals[first]);
    }
}

void MeshSink::passVertices(std::size_t end)
{
    for (; m_passed < end; ++m_passed) {
        m_target.addNewVertex(m_vertexCount, &m_positions[3 * m_passed], &m_normals[3 * m_passed]);
        ++m_vertexCount;
    }
}

} // namespace VolTr

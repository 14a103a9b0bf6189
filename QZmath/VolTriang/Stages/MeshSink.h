// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>

#include <vector>

class CProgressCounter;

namespace VolTr
{

class ITriangulationTarget;

/// The one way of the mesh to the caller's target.
///
/// Vertices and triangles wait until there is a batch of them. A batch gets its normals and is then handed
/// over in the order in which it came, with the progress after each triangle. So what is to be done with
/// vertices is done with many at a time, and the target does not notice.
class MeshSink final : public TriangleSink
{
public:
    /// \param normals evaluates the gradient that gives the vertices their normals; null for zero normals
    /// \param expectedTriangles only for the progress
    MeshSink(ITriangulationTarget & target, ImplicitFunction::Evaluator * normals,
             CProgressCounter * progress, int expectedTriangles);

    void addVertex(double const * position) override;
    void addTriangle(int a, int b, int c) override;
    void finish() override { handOver(); }

    /// What the target has got so far.
    int vertexCount() const { return m_vertexCount; }
    int triangleCount() const { return m_triangleCount; }

private:
    struct Triangle
    {
        int corners[3];
        std::size_t verticesBefore; // of the batch
    };

    std::size_t batchVertices() const { return m_positions.size() / 3; }
    void handOver();
    void findNormals();
    void passVertices(std::size_t end);

    ITriangulationTarget & m_target;
    ImplicitFunction::Evaluator * m_normalsOf;
    CProgressCounter * m_progress;
    int m_expectedTriangles;
    int m_vertexCount = 0;
    int m_triangleCount = 0;
    // The batch, three coordinates a vertex.
    std::vector<double> m_positions;
    std::vector<double> m_normals;
    std::vector<Triangle> m_triangles;
    std::size_t m_passed = 0; // vertices of the batch that the target has got
};

} // namespace VolTr

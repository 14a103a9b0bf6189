// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>

#include <memory>
#include <vector>

namespace VolTr
{

class ITriangulationTarget;
struct StageContext;

/// The one way of the mesh to the caller's target.
///
/// Vertices and triangles wait until there is a batch of them. A batch gets its normals and is then handed
/// over in the order in which it came, with the progress after each triangle. So what is to be done with
/// vertices is done with many at a time, and the target does not notice.
class QZMATH_SISTER_API MeshSink final : public TriangleSink
{
public:
    /// \param function its gradient gives the vertices their normals where the parameters want them
    /// \param extent of the region in which an evaluator serves at a time
    /// \param expectedTriangles only for the progress
    MeshSink(ITriangulationTarget & target, EvaluableFunction const & function, double extent,
             StageContext const & context, int expectedTriangles);

    void addVertex(double const * position) override;
    void addTriangle(int a, int b, int c) override;
    void addRun(TriangleRun const & run) override;
    void finish() override { handOver(); }

    /// What the target has got so far.
    int vertexCount() const { return m_vertexCount; }
    int triangleCount() const { return m_triangleCount; }

private:
    using Triangle = TriangleRun::Triangle;

    std::size_t batchVertices() const { return m_positions.size() / 3; }
    void handOver();
    void passOn();
    void findNormals(std::size_t begin, std::size_t end, int slot);
    void passVertices(int end);
    double position() const;

    ITriangulationTarget & m_target;
    EvaluableFunction const & m_function;
    double const m_extent;
    StageContext const & m_context;
    int const m_expectedTriangles;
    bool const m_withNormals;
    std::vector<std::unique_ptr<EvaluableFunction::Evaluator>> m_evaluators; // by slot of the team
    int m_vertexCount = 0;
    int m_triangleCount = 0;
    int m_batchBegin = 0; // first vertex of the batch
    // The batch, three coordinates a vertex.
    std::vector<double> m_positions;
    std::vector<double> m_normals;
    std::vector<Triangle> m_triangles;
};

} // namespace VolTr

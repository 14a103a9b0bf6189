// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/SurfaceAnalysis/MeshProjection.h>
#include <QZmath/VolTriang/TriangulationTarget.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace qz_test
{

/// Indexed triangle mesh. `normals` is empty or as long as `vertices`.
struct Mesh
{
    std::vector<REmath::Point3D_d> vertices;
    std::vector<REmath::Point3D_d> normals;
    std::vector<std::array<int, 3>> triangles;
};

bool operator==(Mesh const & left, Mesh const & right);

/// Collects what a reconstruction delivers. Records a violation of the delivery order instead of failing at
/// once.
class MeshTarget : public VolTr::ITriangulationTarget
{
public:
    MeshTarget() = default;
    ~MeshTarget() override;

    Mesh const & mesh() const { return m_mesh; }
    /// Empty as long as vertices came with rising indices from 0 and before the triangles that use them.
    std::string const & violation() const { return m_violation; }

private:
    void onAddNewVertex(int index, double const * coords, double const * normal) override;
    void onAddNewVertex(int index, float const * coords, float const * normal) override;
    void onAddNewTriangle(int a, int b, int c) override;

    Mesh m_mesh;
    std::string m_violation;
};

/// The topology of a mesh, in one pass. Vertices that no triangle uses are counted apart and left out of the
/// rest.
struct Topology
{
    int unusedVertices = 0;
    int usedVertices = 0;
    int edges = 0;
    int triangles = 0;
    /// Connected by shared vertices.
    int components = 0;
    /// Triangles with two equal corners or an index out of range; they are left out of the rest.
    int brokenTriangles = 0;
    /// Edges with exactly one triangle.
    int boundaryEdges = 0;
    /// Edges with more than two triangles, or with two that run through it in the same direction.
    int badEdges = 0;
    /// Vertices whose triangles are not one fan.
    int badVertices = 0;

    int eulerNumber() const { return usedVertices - edges + triangles; }
    bool isManifold() const { return brokenTriangles == 0 && badEdges == 0 && badVertices == 0; }
    /// Closed, consistently oriented and manifold.
    bool isClosed() const { return triangles > 0 && boundaryEdges == 0 && isManifold(); }
};

Topology examine(Mesh const & mesh);

/// Volume inside a closed mesh; positive when its triangles are counter-clockwise as seen from outside.
double signedVolume(Mesh const & mesh);
double area(Mesh const & mesh);

/// Distance of one point to the triangles of a mesh, with places in single precision.
class MeshDistance
{
public:
    explicit MeshDistance(Mesh const & mesh);
    /// Infinite for a mesh without triangles.
    double operator()(REmath::Point3D_d const & point) const;

private:
    std::optional<CMeshProjector> m_projector;
};

} // namespace qz_test

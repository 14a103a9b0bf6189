// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/VolTriang/TriangulationTarget.h>

namespace qz_recon
{

/// True when every edge has exactly two triangles, which run through it in opposite directions. O(n log n).
bool isClosed(QZmath::TriangleMesh const & mesh);

/// Takes a mesh from a reconstruction. Keeps a reference.
class MeshCollector : public VolTr::ITriangulationTarget
{
public:
    /// \param withNormals store the vertex normals too
    MeshCollector(QZmath::TriangleMesh & mesh, bool withNormals) : m_mesh(mesh), m_withNormals(withNormals) {}

private:
    void onAddNewVertex(int index, double const * coords, double const * normal) override;
    void onAddNewVertex(int index, float const * coords, float const * normal) override;
    void onAddNewTriangle(int a, int b, int c) override;

    QZmath::TriangleMesh & m_mesh;
    bool m_withNormals;
};

} // namespace qz_recon

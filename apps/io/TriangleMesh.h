// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/TriangulationTarget.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qz_io
{

/// An indexed triangle mesh in memory.
struct TriangleMesh
{
    std::vector<float> coords;            ///< x y z of one vertex behind the other
    std::vector<float> normals;           ///< empty, or as long as `coords`
    std::vector<std::uint32_t> triangles; ///< three vertex indices each, counter-clockwise seen from outside

    std::size_t vertexCount() const { return coords.size() / 3; }
    std::size_t triangleCount() const { return triangles.size() / 3; }
};

/// True when every edge has exactly two triangles, which run through it in opposite directions. O(n log n).
bool isClosed(TriangleMesh const & mesh);

/// Takes a mesh from a reconstruction. Keeps a reference.
class MeshCollector : public VolTr::ITriangulationTarget
{
public:
    /// \param withNormals store the vertex normals too
    MeshCollector(TriangleMesh & mesh, bool withNormals) : m_mesh(mesh), m_withNormals(withNormals) {}

private:
    void onAddNewVertex(int index, double const * coords, double const * normal) override;
    void onAddNewVertex(int index, float const * coords, float const * normal) override;
    void onAddNewTriangle(int a, int b, int c) override;

    TriangleMesh & m_mesh;
    bool m_withNormals;
};

} // namespace qz_io

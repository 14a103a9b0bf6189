// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/MeshCollector.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace qz_recon
{

bool isClosed(QZmath::TriangleMesh const & mesh)
{
    // An edge is keyed by its lower and higher vertex, with its direction in the lowest bit: the two
    // triangles of an edge of a closed oriented mesh are neighbours after sorting and differ in that bit.
    std::vector<std::uint64_t> edges;
    edges.reserve(mesh.triangles.size());
    for (std::size_t triangle = 0; triangle < mesh.triangleCount(); ++triangle)
        for (std::size_t corner = 0; corner < 3; ++corner) {
            auto const from = static_cast<std::uint64_t>(mesh.triangles[3 * triangle + corner]);
            auto const to = static_cast<std::uint64_t>(mesh.triangles[3 * triangle + (corner + 1) % 3]);
            edges.push_back(from < to ? from << 32 | to << 1 : to << 32 | from << 1 | 1u);
        }
    std::sort(edges.begin(), edges.end());
    if (edges.empty() || edges.size() % 2 != 0)
        return false;
    for (std::size_t i = 0; i < edges.size(); i += 2) {
        bool const opposite = (edges[i] & 1u) == 0 && edges[i + 1] == (edges[i] | 1u);
        if (!opposite || (i + 2 < edges.size() && edges[i + 2] >> 1 == edges[i] >> 1))
            return false;
    }
    return true;
}

void MeshCollector::onAddNewVertex(int, double const * coords, double const * normal)
{
    for (int axis = 0; axis < 3; ++axis)
        m_mesh.positions.push_back(static_cast<float>(coords[axis]));
    if (m_withNormals)
        for (int axis = 0; axis < 3; ++axis)
            m_mesh.normals.push_back(static_cast<float>(normal[axis]));
}

void MeshCollector::onAddNewVertex(int, float const * coords, float const * normal)
{
    m_mesh.positions.insert(m_mesh.positions.end(), coords, coords + 3);
    if (m_withNormals)
        m_mesh.normals.insert(m_mesh.normals.end(), normal, normal + 3);
}

void MeshCollector::onAddNewTriangle(int a, int b, int c)
{
    for (int corner : {a, b, c})
        m_mesh.triangles.push_back(corner);
}

} // namespace qz_recon

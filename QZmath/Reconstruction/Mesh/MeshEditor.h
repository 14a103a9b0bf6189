// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath::Stages
{

/// Collapses and flips edges of a manifold mesh, one at a time, and refuses what would make it not manifold.
/// Half-edge 3 t + k runs from corner k of triangle t to the next one. 12 bytes a triangle.
class MeshEditor
{
public:
    MeshEditor(TriangleMesh & mesh, QzBackend::LoopTeam & team);

    std::int32_t origin(std::int32_t halfEdge) const { return m_mesh.triangles[at(halfEdge)]; }
    std::int32_t target(std::int32_t halfEdge) const { return origin(nextInTriangle(halfEdge)); }
    std::int32_t opposite(std::int32_t halfEdge) const { return m_opposite[at(halfEdge)]; }
    bool isAlive(std::size_t triangle) const { return m_mesh.triangles[3 * triangle] >= 0; }

    /// The half-edges that leave the origin of one, in the order in which they turn around it, one for each
    /// triangle there. At a border the first is the one with no triangle on its right.
    struct Star
    {
        std::vector<std::int32_t> leaving;
        bool isClosed = true;
    };
    void starOf(std::int32_t halfEdge, Star & star) const;

    /// May one end of the edge be merged into the other? Expects the stars of both.
    bool mayCollapse(std::int32_t halfEdge, Star const & going, Star const & staying) const;
    /// Merges into the vertex that stays. The two triangles of the edge, or one at a border, are gone.
    void collapse(std::int32_t halfEdge, Star const & going, std::int32_t staying);

    /// May the edge be replaced by the one between the two corners across it? Expects the star of one of
    /// those, which is the target of `nextInTriangle(halfEdge)`.
    bool mayFlip(std::int32_t halfEdge, Star const & atCorner) const;
    /// Replaces it: the triangle of the half-edge keeps the origin, that of the opposite one the target.
    void flip(std::int32_t halfEdge);

    /// Removes the triangles that are gone, and the vertices that none has.
    void finish(QzBackend::LoopTeam & team);

private:
    /// Has the origin of a half-edge more triangles than it needs?
    bool canLose(std::int32_t halfEdge) const;
    bool isNeighbour(Star const & star, std::int32_t vertex) const;
    void join(std::int32_t a, std::int32_t b);
    void remove(std::int32_t halfEdge);

    TriangleMesh & m_mesh;
    RawArray<std::int32_t> m_opposite;
};

} // namespace QZmath::Stages

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/Vec.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath::Stages
{

inline std::size_t at(std::int32_t index) { return static_cast<std::size_t>(index); }

inline Vec vertexOf(TriangleMesh const & mesh, std::int32_t vertex)
{
    return Vec::of(&mesh.positions[3 * at(vertex)]);
}

inline Triangle triangleOf(TriangleMesh const & mesh, std::size_t triangle)
{
    std::int32_t const * corners = &mesh.triangles[3 * triangle];
    return {vertexOf(mesh, corners[0]), vertexOf(mesh, corners[1]), vertexOf(mesh, corners[2])};
}

// Half-edge 3 t + k runs from corner k of triangle t to the next one.
inline std::int32_t nextInTriangle(std::int32_t halfEdge)
{
    return halfEdge % 3 == 2 ? halfEdge - 2 : halfEdge + 1;
}
inline std::int32_t previousInTriangle(std::int32_t halfEdge)
{
    return halfEdge % 3 == 0 ? halfEdge + 2 : halfEdge - 1;
}

/// The half-edges that leave each vertex, ascending. 4 bytes a half-edge and a vertex, twice as much while
/// they are found.
class VertexStars
{
public:
    VertexStars(TriangleMesh const & mesh, QzBackend::LoopTeam & team);

    std::int32_t const * begin(std::int32_t vertex) const
    {
        return m_halfEdges.data() + m_starts[at(vertex)];
    }
    std::int32_t const * end(std::int32_t vertex) const
    {
        return m_halfEdges.data() + m_starts[at(vertex) + 1];
    }

private:
    std::vector<std::uint32_t> m_starts;
    RawArray<std::int32_t> m_halfEdges;
};

/// For each half-edge the one that runs the other way along the same edge; -1 at a border. Half-edges of
/// edges with more than two triangles, or with two that run the same way, count as border.
RawArray<std::int32_t> oppositeHalfEdges(TriangleMesh const & mesh, VertexStars const & stars,
                                         QzBackend::LoopTeam & team);

/// The closed loops along which a manifold mesh ends.
struct BorderLoops
{
    int count = 0;
    double length = 0;
};
BorderLoops measureBorders(TriangleMesh const & mesh, QzBackend::LoopTeam & team); ///< 8 bytes a vertex

/// Drops the triangles that are not kept, `keep` empty: none, then all vertices that no triangle has. What is
/// left keeps its order; normals, colours and densities go with their vertices.
void compact(TriangleMesh & mesh, std::vector<std::uint8_t> const & keep, QzBackend::LoopTeam & team);

/// Which vertices are one: a union-find with the least vertex of each set as its representative. May be used
/// from many threads at the same time; the sets that come out do not depend on who came first.
class VertexSets
{
public:
    explicit VertexSets(std::size_t vertices);
    std::int32_t find(std::int32_t vertex);
    void unite(std::int32_t a, std::int32_t b);

private:
    // No vertex is its own parent's lesser: so chains end, whatever others do to them meanwhile.
    RawArray<std::atomic<std::int32_t>> m_parents;
};

} // namespace QZmath::Stages

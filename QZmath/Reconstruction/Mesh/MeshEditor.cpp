// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/MeshEditor.h>

#include <QZmath/Reconstruction/Mesh/Ranges.h>

#include <algorithm>

namespace QZmath::Stages
{

MeshEditor::MeshEditor(TriangleMesh & mesh, QzBackend::LoopTeam & team)
    : m_mesh(mesh), m_opposite(oppositeHalfEdges(mesh, VertexStars(mesh, team), team))
{}

void MeshEditor::starOf(std::int32_t halfEdge, Star & star) const
{
    // Back to where a border begins the turn, if there is one; then once around.
    std::int32_t first = halfEdge;
    star.isClosed = true;
    while (opposite(first) >= 0) {
        first = nextInTriangle(opposite(first));
        if (first == halfEdge)
            break;
    }
    star.isClosed = opposite(first) >= 0;
    star.leaving.clear();
    for (std::int32_t h = first; h >= 0;) {
        star.leaving.push_back(h);
        h = opposite(previousInTriangle(h));
        if (h == first)
            break;
    }
}

// An inner vertex needs three triangles, one at the border one.
bool MeshEditor::canLose(std::int32_t halfEdge) const
{
    int triangles = 1;
    std::int32_t h = opposite(previousInTriangle(halfEdge));
    for (; h >= 0 && h != halfEdge && triangles < 4; h = opposite(previousInTriangle(h)))
        ++triangles;
    if (h >= 0)
        return triangles >= 4;
    for (h = opposite(halfEdge); h >= 0; h = opposite(nextInTriangle(h)))
        ++triangles;
    return triangles >= 2;
}

// The neighbours of a star's middle are the targets of what leaves it, and at a border the one before that,
// too, where the last triangle's third side ends.
bool MeshEditor::isNeighbour(Star const & star, std::int32_t vertex) const
{
    for (std::int32_t const h : star.leaving) {
        if (target(h) == vertex)
            return true;
    }
    return !star.isClosed && origin(previousInTriangle(star.leaving.back())) == vertex;
}

bool MeshEditor::mayCollapse(std::int32_t halfEdge, Star const & going, Star const & staying) const
{
    std::int32_t const back = opposite(halfEdge);
    bool const isBorderEdge = back < 0;
    if (!going.isClosed && !isBorderEdge) // a border vertex stays on the border
        return false;
    if (isBorderEdge && going.leaving.size() < 2)
        return false;
    // No triangle may lie on both sides of what becomes one edge.
    int common = 0;
    for (std::int32_t const h : staying.leaving)
        common += isNeighbour(going, target(h));
    if (!staying.isClosed)
        common += isNeighbour(going, origin(previousInTriangle(staying.leaving.back())));
    if (common != (isBorderEdge ? 1 : 2))
        return false;
    // The corners across the edge lose a neighbour.
    return canLose(previousInTriangle(halfEdge)) && (isBorderEdge || canLose(previousInTriangle(back)));
}

void MeshEditor::join(std::int32_t a, std::int32_t b)
{
    if (a >= 0)
        m_opposite[at(a)] = b;
    if (b >= 0)
        m_opposite[at(b)] = a;
}

// Takes the triangle of a half-edge out and closes the gap between its two other sides.
void MeshEditor::remove(std::int32_t halfEdge)
{
    join(opposite(nextInTriangle(halfEdge)), opposite(previousInTriangle(halfEdge)));
    std::size_t const triangle = at(halfEdge) / 3;
    for (std::size_t k = 0; k < 3; ++k)
        m_mesh.triangles[3 * triangle + k] = -1;
}

void MeshEditor::collapse(std::int32_t halfEdge, Star const & going, std::int32_t staying)
{
    std::int32_t const back = opposite(halfEdge);
    for (std::int32_t const h : going.leaving)
        m_mesh.triangles[at(h)] = staying;
    remove(halfEdge);
    if (back >= 0)
        remove(back);
}

bool MeshEditor::mayFlip(std::int32_t halfEdge, Star const & atCorner) const
{
    std::int32_t const back = opposite(halfEdge);
    if (back < 0 || isNeighbour(atCorner, origin(previousInTriangle(back))))
        return false;
    return canLose(halfEdge) && canLose(back);
}

void MeshEditor::flip(std::int32_t halfEdge)
{
    // (a, b, c) and (b, a, d) become (a, d, c) and (b, c, d).
    std::int32_t const back = opposite(halfEdge);
    std::int32_t const bc = nextInTriangle(halfEdge);
    std::int32_t const ad = nextInTriangle(back);
    std::int32_t const c = origin(previousInTriangle(halfEdge));
    std::int32_t const d = origin(previousInTriangle(back));
    std::int32_t const outerBc = opposite(bc);
    std::int32_t const outerAd = opposite(ad);
    m_mesh.triangles[at(bc)] = d; // a -> d, d -> c, c -> a
    m_mesh.triangles[at(ad)] = c; // b -> c, c -> d, d -> b
    join(halfEdge, outerAd);
    join(back, outerBc);
    join(bc, ad);
}

void MeshEditor::finish(QzBackend::LoopTeam & team)
{
    m_opposite = {};
    std::vector<std::uint8_t> keep(m_mesh.triangleCount());
    forRanges(team, keep.size(), 8192, [&](std::size_t begin, std::size_t end) {
        for (std::size_t t = begin; t < end; ++t)
            keep[t] = isAlive(t);
    });
    compact(m_mesh, keep, team);
}

} // namespace QZmath::Stages

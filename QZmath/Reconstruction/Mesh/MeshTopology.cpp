// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>

#include <QZmath/Reconstruction/Mesh/Ranges.h>

#include <algorithm>
#include <numeric>

namespace QZmath::Stages
{

VertexStars::VertexStars(TriangleMesh const & mesh)
    : m_starts(mesh.vertexCount() + 1, 0), m_halfEdges(mesh.triangles.size())
{
    // Counted one place further on, and filled backwards from the ends: the starts come out in place.
    for (std::int32_t const vertex : mesh.triangles)
        ++m_starts[at(vertex)];
    std::uint32_t sum = 0;
    for (std::uint32_t & start : m_starts) {
        sum += start;
        start = sum;
    }
    for (std::size_t h = mesh.triangles.size(); h-- > 0;)
        m_halfEdges[--m_starts[at(mesh.triangles[h])]] = static_cast<std::int32_t>(h);
}

std::vector<std::int32_t> oppositeHalfEdges(TriangleMesh const & mesh, VertexStars const & stars,
                                            QzBackend::LoopTeam & team)
{
    std::vector<std::int32_t> opposite(mesh.triangles.size(), -1);
    // How many half-edges run from a to b, and one of them.
    auto const count = [&](std::int32_t a, std::int32_t b, std::int32_t & found) {
        int number = 0;
        for (std::int32_t const * h = stars.begin(a); h != stars.end(a); ++h) {
            if (mesh.triangles[at(nextInTriangle(*h))] == b) {
                found = *h;
                ++number;
            }
        }
        return number;
    };
    forRanges(team, opposite.size(), 3 * 1024, [&](std::size_t begin, std::size_t end) {
        for (std::size_t h = begin; h < end; ++h) {
            std::int32_t const a = mesh.triangles[h];
            std::int32_t const b = mesh.triangles[at(nextInTriangle(static_cast<std::int32_t>(h)))];
            std::int32_t forth = -1;
            std::int32_t back = -1;
            if (a != b && count(b, a, back) == 1 && count(a, b, forth) == 1)
                opposite[h] = back;
        }
    });
    return opposite;
}

BorderLoops measureBorders(TriangleMesh const & mesh, QzBackend::LoopTeam & team)
{
    BorderLoops loops;
    std::vector<std::int32_t> const opposite = oppositeHalfEdges(mesh, VertexStars(mesh), team);
    // A loop turns from one border edge to the next around the vertex between them.
    std::vector<std::int32_t> border;
    for (std::size_t h = 0; h < opposite.size(); ++h) {
        if (opposite[h] < 0)
            border.push_back(static_cast<std::int32_t>(h));
    }
    std::vector<std::uint8_t> isSeen(border.size(), 0);
    auto const slotOf = [&](std::int32_t halfEdge) {
        return static_cast<std::size_t>(std::lower_bound(border.begin(), border.end(), halfEdge) -
                                        border.begin());
    };
    for (std::size_t first = 0; first < border.size(); ++first) {
        if (isSeen[first])
            continue;
        ++loops.count;
        for (std::size_t slot = first; !isSeen[slot];) {
            isSeen[slot] = 1;
            std::int32_t halfEdge = border[slot];
            std::int32_t const next = nextInTriangle(halfEdge);
            loops.length +=
                (vertexOf(mesh, mesh.triangles[at(next)]) - vertexOf(mesh, mesh.triangles[at(halfEdge)]))
                    .length();
            halfEdge = next;
            while (opposite[at(halfEdge)] >= 0)
                halfEdge = nextInTriangle(opposite[at(halfEdge)]);
            slot = slotOf(halfEdge);
        }
    }
    return loops;
}

std::size_t splitFans(TriangleMesh & mesh, QzBackend::LoopTeam & team)
{
    std::size_t const vertices = mesh.vertexCount();
    VertexStars const stars(mesh);
    std::vector<std::int32_t> const opposite = oppositeHalfEdges(mesh, stars, team);
    auto const isWithout = [&](std::int32_t h) { return opposite[at(h)] < 0; };
    // Half-edges of a vertex that begin or end a fan: a second fan is where one more than the first begins,
    // or where turning around does not meet all.
    std::vector<std::uint8_t> hasMore(vertices, 0);
    forRanges(team, vertices, 1024, [&](std::size_t begin, std::size_t end) {
        for (std::size_t v = begin; v < end; ++v) {
            std::int32_t const vertex = static_cast<std::int32_t>(v);
            std::ptrdiff_t const degree = stars.end(vertex) - stars.begin(vertex);
            if (degree == 0)
                continue;
            std::int32_t first = *stars.begin(vertex);
            for (std::int32_t const * h = stars.begin(vertex); h != stars.end(vertex); ++h)
                first = isWithout(*h) ? *h : first;
            std::ptrdiff_t met = 1;
            for (std::int32_t h = opposite[at(previousInTriangle(first))];
                 h >= 0 && h != first && met < degree; h = opposite[at(previousInTriangle(h))])
                ++met;
            hasMore[v] = met < degree;
        }
    });
    std::vector<std::int32_t> copies;
    for (std::size_t v = 0; v < vertices; ++v) {
        if (!hasMore[v])
            continue;
        std::int32_t const vertex = static_cast<std::int32_t>(v);
        std::vector<std::int32_t> left(stars.begin(vertex), stars.end(vertex));
        bool isFirst = true;
        while (!left.empty()) {
            std::int32_t first = left.front();
            for (std::int32_t const h : left)
                first = isWithout(h) ? h : first;
            std::int32_t const name = isFirst ? vertex : static_cast<std::int32_t>(vertices + copies.size());
            if (!isFirst)
                copies.push_back(vertex);
            isFirst = false;
            for (std::int32_t h = first; h >= 0;) {
                auto const place = std::find(left.begin(), left.end(), h);
                if (place == left.end())
                    break;
                left.erase(place);
                mesh.triangles[at(h)] = name;
                h = opposite[at(previousInTriangle(h))];
            }
        }
    }
    auto const append = [&](auto & values, std::size_t perVertex) {
        if (values.empty())
            return;
        for (std::int32_t const vertex : copies) {
            for (std::size_t n = 0; n < perVertex; ++n)
                values.push_back(values[perVertex * at(vertex) + n]);
        }
    };
    append(mesh.positions, 3);
    append(mesh.normals, 3);
    append(mesh.colors, 3);
    append(mesh.density, 1);
    return copies.size();
}

void compact(TriangleMesh & mesh, std::vector<std::uint8_t> const & keep, QzBackend::LoopTeam & team)
{
    std::vector<std::int32_t> & triangles = mesh.triangles;
    if (!keep.empty()) {
        std::size_t kept = 0;
        for (std::size_t t = 0; t < keep.size(); ++t) {
            if (!keep[t])
                continue;
            std::copy_n(triangles.begin() + static_cast<std::ptrdiff_t>(3 * t), 3,
                        triangles.begin() + static_cast<std::ptrdiff_t>(3 * kept));
            ++kept;
        }
        triangles.resize(3 * kept);
    }
    std::vector<std::int32_t> names(mesh.vertexCount(), -1);
    for (std::int32_t const vertex : triangles)
        names[at(vertex)] = 0;
    std::int32_t used = 0;
    for (std::int32_t & name : names)
        name = name < 0 ? -1 : used++;
    if (at(used) == names.size())
        return;
    auto const pack = [&](auto & values, std::size_t perVertex) {
        if (values.empty())
            return;
        for (std::size_t v = 0; v < names.size(); ++v) {
            if (names[v] < 0)
                continue;
            for (std::size_t n = 0; n < perVertex; ++n)
                values[perVertex * at(names[v]) + n] = values[perVertex * v + n];
        }
        values.resize(perVertex * at(used));
    };
    pack(mesh.positions, 3);
    pack(mesh.normals, 3);
    pack(mesh.colors, 3);
    pack(mesh.density, 1);
    forRanges(team, triangles.size(), 8192, [&](std::size_t begin, std::size_t end) {
        for (std::size_t n = begin; n < end; ++n)
            triangles[n] = names[at(triangles[n])];
    });
}

VertexSets::VertexSets(std::size_t vertices) : m_parents(vertices)
{
    std::iota(m_parents.begin(), m_parents.end(), 0);
}

std::int32_t VertexSets::find(std::int32_t vertex)
{
    while (m_parents[at(vertex)] != vertex) {
        m_parents[at(vertex)] = m_parents[at(m_parents[at(vertex)])];
        vertex = m_parents[at(vertex)];
    }
    return vertex;
}

void VertexSets::unite(std::int32_t a, std::int32_t b)
{
    a = find(a);
    b = find(b);
    if (a != b)
        m_parents[at(std::max(a, b))] = std::min(a, b);
}

} // namespace QZmath::Stages

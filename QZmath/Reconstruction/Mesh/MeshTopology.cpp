// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>

#include <QZmath/Reconstruction/Mesh/Ranges.h>

#include <algorithm>
#include <numeric>
#include <tuple>

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
    forRanges(team, opposite.size(), 3072, [&](std::size_t begin, std::size_t end) {
        for (std::size_t h = begin; h < end; ++h) {
            std::int32_t const a = mesh.triangles[h];
            std::int32_t const b = mesh.triangles[at(nextInTriangle(static_cast<std::int32_t>(h)))];
            std::int32_t forth = -1;
            std::int32_t back = -1;
            if (a < b && count(b, a, back) == 1 && count(a, b, forth) == 1) {
                opposite[h] = back;
                opposite[at(back)] = static_cast<std::int32_t>(h);
            }
        }
    });
    return opposite;
}

BorderLoops measureBorders(TriangleMesh const & mesh)
{
    // Around an inner vertex, each neighbour comes once after it in a triangle and once before it. Where the
    // two do not cancel out, there is a border. Numbers that are mixed well do not cancel out by chance.
    auto const mixed = [](std::int32_t vertex) {
        std::uint64_t bits = static_cast<std::uint64_t>(vertex) + 0x9e3779b97f4a7c15;
        bits = (bits ^ bits >> 30) * 0xbf58476d1ce4e5b9;
        bits = (bits ^ bits >> 27) * 0x94d049bb133111eb;
        return bits ^ bits >> 31;
    };
    std::vector<std::uint64_t> sums(mesh.vertexCount(), 0);
    for (std::size_t n = 0; n < mesh.triangles.size(); n += 3) {
        std::int32_t const * corners = &mesh.triangles[n];
        std::uint64_t const numbers[3] = {mixed(corners[0]), mixed(corners[1]), mixed(corners[2])};
        for (std::size_t k = 0; k < 3; ++k)
            sums[at(corners[k])] += numbers[(k + 1) % 3] - numbers[(k + 2) % 3];
    }
    struct Edge
    {
        std::int32_t from, to;
        bool isBack; // of one that runs from `to` to `from`
    };
    std::vector<Edge> edges;
    for (std::size_t h = 0; h < mesh.triangles.size(); ++h) {
        std::int32_t const a = mesh.triangles[h];
        std::int32_t const b = mesh.triangles[at(nextInTriangle(static_cast<std::int32_t>(h)))];
        if (sums[at(a)] != 0 && sums[at(b)] != 0) {
            edges.push_back({a, b, false});
            edges.push_back({b, a, true});
        }
    }
    std::sort(edges.begin(), edges.end(), [](Edge const & a, Edge const & b) {
        return std::tie(a.from, a.to, a.isBack) < std::tie(b.from, b.to, b.isBack);
    });
    std::vector<Edge> border; // half-edges without one that runs the other way
    for (std::size_t n = 0; n < edges.size();) {
        std::size_t const first = n;
        while (n < edges.size() && edges[n].from == edges[first].from && edges[n].to == edges[first].to)
            ++n;
        if (!edges[first].isBack && !edges[n - 1].isBack)
            border.push_back(edges[first]);
    }
    BorderLoops loops;
    std::vector<std::uint8_t> isSeen(border.size(), 0);
    for (std::size_t first = 0; first < border.size(); ++first) {
        loops.count += isSeen[first] == 0;
        for (std::size_t n = first; n < border.size() && !isSeen[n];) {
            isSeen[n] = 1;
            std::int32_t const end = border[n].to;
            loops.length += (vertexOf(mesh, end) - vertexOf(mesh, border[n].from)).length();
            n = static_cast<std::size_t>(
                std::lower_bound(border.begin(), border.end(), end,
                                 [](Edge const & edge, std::int32_t vertex) { return edge.from < vertex; }) -
                border.begin());
            while (n < border.size() && border[n].from == end && isSeen[n])
                ++n;
            if (n < border.size() && border[n].from != end)
                n = border.size();
        }
    }
    return loops;
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

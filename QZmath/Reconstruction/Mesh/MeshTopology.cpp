// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>

#include <QZmath/Backend/LargeVector.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace QZmath::Stages
{

namespace
{

std::size_t const blockBits = 14; // vertices of a block: what is kept of one fits into the cache
std::size_t const mostPieces = 64;
std::size_t const itemsPerPiece = 1 << 14;

// Moves the wanted items of a list to its begin, and drops the others.
template <class Value, class IsWanted>
void pack(std::vector<Value> & values, std::size_t width, IsWanted const & isWanted,
          QzBackend::LoopTeam & team)
{
    std::size_t const count = values.size() / width;
    std::vector<std::size_t> kept((count + itemsPerPiece - 1) / itemsPerPiece, 0);
    auto const place = [&](std::size_t item) {
        return values.begin() + static_cast<std::ptrdiff_t>(width * item);
    };
    forRanges(team, count, itemsPerPiece, [&](std::size_t begin, std::size_t end) {
        std::size_t to = begin;
        for (std::size_t item = begin; item < end; ++item) {
            if (!isWanted(item))
                continue;
            if (to != item)
                std::copy_n(place(item), width, place(to));
            ++to;
        }
        kept[begin / itemsPerPiece] = to - begin;
    });
    std::size_t end = 0;
    for (std::size_t piece = 0; piece < kept.size(); ++piece) {
        if (end != piece * itemsPerPiece)
            std::copy_n(place(piece * itemsPerPiece), width * kept[piece], place(end));
        end += kept[piece];
    }
    values.resize(width * end);
}

} // namespace

VertexStars::VertexStars(TriangleMesh const & mesh, QzBackend::LoopTeam & team)
    : m_halfEdges(mesh.triangles.size())
{
    QzBackend::assignLarge(team, m_starts, mesh.vertexCount() + 1);
    // Sorted by blocks of vertices first, piece by piece, then by vertices, block by block; in their order
    // both times.
    std::size_t const count = mesh.triangles.size();
    std::size_t const vertices = mesh.vertexCount();
    std::size_t const blocks = (vertices >> blockBits) + 1;
    std::size_t const perPiece = std::max(itemsPerPiece, count / mostPieces + 1);
    std::size_t const pieces = (count + perPiece - 1) / perPiece;
    std::vector<std::uint32_t> places(blocks * pieces, 0); // numbers, then where they begin
    auto const placeOf = [&](std::size_t block, std::size_t piece) -> std::uint32_t & {
        return places[block * pieces + piece];
    };
    forRanges(team, count, perPiece, [&](std::size_t begin, std::size_t end) {
        std::vector<std::uint32_t> numbers(blocks, 0);
        for (std::size_t h = begin; h < end; ++h)
            ++numbers[at(mesh.triangles[h]) >> blockBits];
        for (std::size_t block = 0; block < blocks; ++block)
            placeOf(block, begin / perPiece) = numbers[block];
    });
    std::uint32_t sum = 0;
    std::vector<std::uint32_t> firstOf(blocks + 1, 0);
    for (std::size_t block = 0; block < blocks; ++block) {
        firstOf[block] = sum;
        for (std::size_t piece = 0; piece < pieces; ++piece) {
            std::uint32_t const number = placeOf(block, piece);
            placeOf(block, piece) = sum;
            sum += number;
        }
    }
    firstOf[blocks] = sum;
    RawArray<std::int32_t> byBlock(count);
    forRanges(team, count, perPiece, [&](std::size_t begin, std::size_t end) {
        std::vector<std::uint32_t> next(blocks);
        for (std::size_t block = 0; block < blocks; ++block)
            next[block] = placeOf(block, begin / perPiece);
        for (std::size_t h = begin; h < end; ++h)
            byBlock[next[at(mesh.triangles[h]) >> blockBits]++] = static_cast<std::int32_t>(h);
    });
    forRanges(team, blocks, 1, [&](std::size_t block, std::size_t) {
        // Counted one place further on, and filled backwards from the ends: the starts come out in place. The
        // end of the last vertex is the begin of the next block, which that sets itself.
        std::size_t const begin = block << blockBits;
        std::size_t const end = std::min(vertices, (block + 1) << blockBits);
        for (std::size_t n = firstOf[block]; n < firstOf[block + 1]; ++n)
            ++m_starts[at(mesh.triangles[at(byBlock[n])])];
        std::uint32_t last = firstOf[block];
        for (std::size_t v = begin; v < end; ++v) {
            last += m_starts[v];
            m_starts[v] = last;
        }
        for (std::size_t n = firstOf[block + 1]; n-- > firstOf[block];)
            m_halfEdges[--m_starts[at(mesh.triangles[at(byBlock[n])])]] = byBlock[n];
    });
    m_starts[vertices] = sum;
}

RawArray<std::int32_t> oppositeHalfEdges(TriangleMesh const & mesh, VertexStars const & stars,
                                         QzBackend::LoopTeam & team)
{
    RawArray<std::int32_t> opposite(mesh.triangles.size());
    forRanges(team, opposite.size(), itemsPerPiece, [&](std::size_t begin, std::size_t end) {
        for (std::size_t h = begin; h < end; ++h)
            opposite[h] = -1;
    });
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

BorderLoops measureBorders(TriangleMesh const & mesh, QzBackend::LoopTeam & team)
{
    // Around an inner vertex, each neighbour comes once after it in a triangle and once before it. Where the
    // two do not cancel out, there is a border. Numbers that are mixed well do not cancel out by chance.
    auto const mixed = [](std::int32_t vertex) {
        std::uint64_t bits = static_cast<std::uint64_t>(vertex) + 0x9e3779b97f4a7c15;
        bits = (bits ^ bits >> 30) * 0xbf58476d1ce4e5b9;
        bits = (bits ^ bits >> 27) * 0x94d049bb133111eb;
        return bits ^ bits >> 31;
    };
    RawArray<std::atomic<std::uint64_t>> sums(mesh.vertexCount());
    forRanges(team, sums.size(), 8192, [&](std::size_t begin, std::size_t end) {
        for (std::size_t v = begin; v < end; ++v)
            sums[v].store(0, std::memory_order_relaxed);
    });
    bool const isAlone = team.threads() == 1;
    forRanges(team, mesh.triangleCount(), 4096, [&](std::size_t begin, std::size_t end) {
        for (std::size_t t = begin; t < end; ++t) {
            std::int32_t const * corners = &mesh.triangles[3 * t];
            std::uint64_t const numbers[3] = {mixed(corners[0]), mixed(corners[1]), mixed(corners[2])};
            for (std::size_t k = 0; k < 3; ++k) {
                std::atomic<std::uint64_t> & sum = sums[at(corners[k])];
                std::uint64_t const part = numbers[(k + 1) % 3] - numbers[(k + 2) % 3];
                if (isAlone) // as fast as without atomic
                    sum.store(sum.load(std::memory_order_relaxed) + part, std::memory_order_relaxed);
                else
                    sum.fetch_add(part, std::memory_order_relaxed);
            }
        }
    });
    auto const isAtBorder = [&](std::int32_t vertex) {
        return sums[at(vertex)].load(std::memory_order_relaxed) != 0;
    };
    auto const endOf = [&](std::size_t h) {
        return mesh.triangles[at(nextInTriangle(static_cast<std::int32_t>(h)))];
    };
    std::vector<std::uint32_t> const halfEdges =
        indicesWhere<std::uint32_t>(team, mesh.triangles.size(), [&](std::size_t h) {
            return isAtBorder(mesh.triangles[h]) && isAtBorder(endOf(h));
        });
    struct Edge
    {
        std::int32_t from, to;
        bool isBack; // of one that runs from `to` to `from`
    };
    std::vector<Edge> edges;
    edges.reserve(2 * halfEdges.size());
    for (std::uint32_t const h : halfEdges) {
        edges.push_back({mesh.triangles[h], endOf(h), false});
        edges.push_back({endOf(h), mesh.triangles[h], true});
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
    if (!keep.empty())
        pack(
            triangles, 3, [&](std::size_t t) { return keep[t] != 0; }, team);
    RawArray<std::atomic<std::uint8_t>> isUsed(mesh.vertexCount());
    forRanges(team, isUsed.size(), itemsPerPiece, [&](std::size_t begin, std::size_t end) {
        for (std::size_t v = begin; v < end; ++v)
            isUsed[v].store(0, std::memory_order_relaxed);
    });
    forRanges(team, triangles.size(), 8192, [&](std::size_t begin, std::size_t end) {
        for (std::size_t n = begin; n < end; ++n) {
            std::atomic<std::uint8_t> & mark = isUsed[at(triangles[n])];
            if (mark.load(std::memory_order_relaxed) == 0)
                mark.store(1, std::memory_order_relaxed);
        }
    });
    auto const isWanted = [&](std::size_t v) { return isUsed[v].load(std::memory_order_relaxed) != 0; };
    std::vector<std::int32_t> firstName((isUsed.size() + itemsPerPiece - 1) / itemsPerPiece, 0);
    forRanges(team, isUsed.size(), itemsPerPiece, [&](std::size_t begin, std::size_t end) {
        for (std::size_t v = begin; v < end; ++v)
            firstName[begin / itemsPerPiece] += isWanted(v);
    });
    std::int32_t used = 0;
    for (std::int32_t & name : firstName)
        name = std::exchange(used, used + name);
    if (at(used) == isUsed.size())
        return;
    RawArray<std::int32_t> names(isUsed.size());
    forRanges(team, names.size(), itemsPerPiece, [&](std::size_t begin, std::size_t end) {
        std::int32_t name = firstName[begin / itemsPerPiece];
        for (std::size_t v = begin; v < end; ++v)
            names[v] = isWanted(v) ? name++ : -1;
    });
    pack(mesh.positions, 3, isWanted, team);
    pack(mesh.normals, 3, isWanted, team);
    pack(mesh.colors, 3, isWanted, team);
    pack(mesh.density, 1, isWanted, team);
    forRanges(team, triangles.size(), 8192, [&](std::size_t begin, std::size_t end) {
        for (std::size_t n = begin; n < end; ++n)
            triangles[n] = names[at(triangles[n])];
    });
}

VertexSets::VertexSets(std::size_t vertices) : m_parents(vertices)
{
    for (std::size_t v = 0; v < vertices; ++v)
        m_parents[v].store(static_cast<std::int32_t>(v), std::memory_order_relaxed);
}

std::int32_t VertexSets::find(std::int32_t vertex)
{
    for (;;) {
        std::int32_t parent = m_parents[at(vertex)].load(std::memory_order_relaxed);
        if (parent == vertex)
            return vertex;
        std::int32_t const above = m_parents[at(parent)].load(std::memory_order_relaxed);
        // Any vertex further up the chain serves, also where another thread has gone further meanwhile.
        if (above != parent)
            m_parents[at(vertex)].store(above, std::memory_order_relaxed);
        vertex = above;
    }
}

// The greater representative gets the lesser one as its parent, unless another thread was first: then they
// are looked for again.
void VertexSets::unite(std::int32_t a, std::int32_t b)
{
    for (;;) {
        a = find(a);
        b = find(b);
        if (a == b)
            return;
        std::int32_t own = std::max(a, b);
        if (m_parents[at(own)].compare_exchange_strong(own, std::min(a, b), std::memory_order_relaxed))
            return;
    }
}

} // namespace QZmath::Stages

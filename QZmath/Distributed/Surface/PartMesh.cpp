// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/PartMesh.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SurfaceCut.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <utility>

namespace QZmath::Distributed
{

using Stages::at;
using Stages::SampleIndex;

namespace
{

// Sets of numbers from 0 on, each named by its least one.
class NumberSets
{
public:
    explicit NumberSets(std::size_t count) : m_parents(count)
    {
        std::iota(m_parents.begin(), m_parents.end(), std::size_t{0});
    }
    std::size_t find(std::size_t number)
    {
        while (m_parents[number] != number) {
            m_parents[number] = m_parents[m_parents[number]];
            number = m_parents[number];
        }
        return number;
    }
    void unite(std::size_t a, std::size_t b)
    {
        a = find(a);
        b = find(b);
        m_parents[std::max(a, b)] = std::min(a, b);
    }

private:
    std::vector<std::size_t> m_parents;
};

// Calls visit(low, high, sides) for the edges of which not as many half-edges run upwards as downwards. 18
// bytes a triangle.
template <class Visit>
void forUnpairedEdges(TriangleMesh const & mesh, Visit const & visit)
{
    // The half-edges by their lesser ends: the other end, and below it whether they run downwards.
    std::vector<std::size_t> starts(mesh.vertexCount() + 1, 0);
    std::vector<std::uint32_t> others(mesh.triangles.size());
    auto const forHalfEdges = [&](auto const & take) {
        for (std::size_t half = 0; half < mesh.triangles.size(); ++half) {
            std::int32_t const from = mesh.triangles[half];
            std::int32_t const to =
                mesh.triangles[at(Stages::nextInTriangle(static_cast<std::int32_t>(half)))];
            take(at(std::min(from, to)),
                 static_cast<std::uint32_t>(std::max(from, to)) << 1 | (from < to ? 0U : 1U));
        }
    };
    forHalfEdges([&](std::size_t low, std::uint32_t) { ++starts[low]; });
    std::size_t sum = 0;
    for (std::size_t & start : starts)
        sum += std::exchange(start, sum);
    forHalfEdges([&](std::size_t low, std::uint32_t other) { others[starts[low]++] = other; });
    std::size_t begin = 0;
    for (std::size_t low = 0; low < mesh.vertexCount(); ++low) {
        std::size_t const end = starts[low];
        std::sort(others.begin() + static_cast<std::ptrdiff_t>(begin),
                  others.begin() + static_cast<std::ptrdiff_t>(end));
        while (begin < end) {
            std::uint32_t const high = others[begin] >> 1;
            int sides = 0;
            for (; begin < end && others[begin] >> 1 == high; ++begin)
                sides += (others[begin] & 1) != 0 ? -1 : 1;
            if (sides != 0)
                visit(low, std::size_t{high}, sides);
        }
    }
}

} // namespace

void dropUnused(PartMesh & part)
{
    TriangleMesh & mesh = part.mesh;
    std::int32_t const unused = -1;
    std::vector<std::int32_t> names(mesh.vertexCount(), unused);
    for (std::int32_t const corner : mesh.triangles)
        names[at(corner)] = 0;
    std::int32_t used = 0;
    for (std::int32_t & name : names)
        name = name == unused ? unused : used++;
    auto const shrink = [&](auto & values) {
        if (values.empty())
            return;
        for (std::size_t vertex = 0; vertex < names.size(); ++vertex) {
            if (names[vertex] != unused)
                std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(3 * vertex), 3,
                            values.begin() + 3 * static_cast<std::ptrdiff_t>(names[vertex]));
        }
        values.resize(3 * at(used));
    };
    shrink(mesh.positions);
    shrink(mesh.normals);
    shrink(mesh.colors);
    for (std::int32_t & corner : mesh.triangles)
        corner = names[at(corner)];
    part.border.erase(
        std::remove_if(part.border.begin(), part.border.end(),
                       [&](BorderVertex const & entry) { return names[at(entry.vertex)] == unused; }),
        part.border.end());
    for (BorderVertex & entry : part.border)
        entry.vertex = names[at(entry.vertex)];
}

std::vector<std::int64_t> numberVertices(Communicator const & ranks, SharedVertices const & shared,
                                         std::size_t vertices, std::int64_t & first)
{
    std::vector<std::int64_t> numbers;
    std::int64_t own = 0;
    ranks.together([&] {
        numbers.resize(vertices);
        for (std::size_t vertex = 0; vertex < vertices; ++vertex) {
            if (shared.isOwn(vertex))
                numbers[vertex] = own++;
        }
    });
    first = ranks.sumBefore(own);
    for (std::int64_t & number : numbers)
        number += first;
    shared.spread(numbers);
    return numbers;
}

void trimPart(PartMesh & part, SharedVertices const & shared, std::vector<std::int64_t> const & numbers,
              SampleIndex const & samples, double distance, QzBackend::LoopTeam & team)
{
    TriangleMesh & mesh = part.mesh;
    std::size_t const before = mesh.vertexCount();
    std::vector<std::uint8_t> isOutside(before);
    Stages::forRanges(team, before, 512, [&](std::size_t begin, std::size_t end) {
        std::int32_t hint = SampleIndex::none;
        for (std::size_t vertex = begin; vertex < end; ++vertex) {
            std::int32_t const found =
                samples.anyWithin(Stages::vertexOf(mesh, static_cast<std::int32_t>(vertex)), distance, hint);
            isOutside[vertex] = found == SampleIndex::none;
            hint = isOutside[vertex] != 0 ? hint : found;
        }
    });
    std::vector<Stages::EdgeCrossing> const crossings = Stages::cutThrough(
        mesh, isOutside,
        [&](Stages::Vec const & place) { return samples.anyWithin(place, distance) == SampleIndex::none; },
        team);

    // An edge can have other ranks that both of its ends have.
    part.border = shared.border();
    std::vector<std::int32_t> borderAt(before, -1);
    for (std::size_t n = 0; n < part.border.size(); ++n) {
        BorderVertex & entry = part.border[n];
        borderAt[at(entry.vertex)] = static_cast<std::int32_t>(n);
        entry.key = {numbers[at(entry.vertex)], -1};
    }
    for (std::size_t n = 0; n < crossings.size(); ++n) {
        std::int32_t const ends[2] = {borderAt[at(crossings[n].inside)], borderAt[at(crossings[n].outside)]};
        if (ends[0] < 0 || ends[1] < 0)
            continue;
        BorderVertex entry;
        std::size_t others = 0;
        std::array<std::int32_t, 3> const & second = part.border[at(ends[1])].others;
        for (std::int32_t const rank : part.border[at(ends[0])].others) {
            if (rank != BorderVertex::none && std::find(second.begin(), second.end(), rank) != second.end())
                entry.others[others++] = rank;
        }
        if (others == 0)
            continue;
        entry.key = {numbers[at(crossings[n].inside)], numbers[at(crossings[n].outside)]};
        entry.vertex = static_cast<std::int32_t>(before + n);
        part.border.push_back(entry);
    }
}

PieceFindings dropSmallPieces(Communicator const & ranks, PartMesh & part, SharedVertices const & shared,
                              double smallest)
{
    struct Piece
    {
        std::int64_t number; // over all ranks
        std::int64_t triangles;
    };
    using Pair = std::array<std::int64_t, 2>;

    TriangleMesh & mesh = part.mesh;
    std::vector<std::int64_t> pieceOf; // by vertex
    std::vector<Piece> pieces;
    ranks.together([&] {
        NumberSets sets(mesh.vertexCount());
        for (std::size_t corner = 0; corner < mesh.triangles.size(); corner += 3) {
            sets.unite(at(mesh.triangles[corner]), at(mesh.triangles[corner + 1]));
            sets.unite(at(mesh.triangles[corner]), at(mesh.triangles[corner + 2]));
        }
        pieceOf.resize(mesh.vertexCount());
        for (std::size_t vertex = 0; vertex < pieceOf.size(); ++vertex) {
            std::size_t const root = sets.find(vertex);
            if (root == vertex)
                pieces.push_back({0, 0});
            pieceOf[vertex] = root == vertex ? static_cast<std::int64_t>(pieces.size()) - 1 : pieceOf[root];
        }
        for (std::size_t corner = 0; corner < mesh.triangles.size(); corner += 3)
            ++pieces[static_cast<std::size_t>(pieceOf[at(mesh.triangles[corner])])].triangles;
    });
    std::int64_t const first = ranks.sumBefore(static_cast<std::int64_t>(pieces.size()));
    for (std::size_t n = 0; n < pieces.size(); ++n)
        pieces[n].number = first + static_cast<std::int64_t>(n);
    for (std::int64_t & piece : pieceOf)
        piece += first;

    // Which pieces of different ranks are one, and the sizes of those, are known to all.
    std::vector<Pair> pairs;
    {
        std::vector<std::int64_t> ownersPiece;
        ranks.together([&] { ownersPiece = pieceOf; });
        shared.spread(ownersPiece);
        ranks.together([&] {
            for (BorderVertex const & entry : shared.border()) {
                if (!shared.isOwn(at(entry.vertex)))
                    pairs.push_back({pieceOf[at(entry.vertex)], ownersPiece[at(entry.vertex)]});
            }
            std::sort(pairs.begin(), pairs.end());
            pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
        });
    }
    pairs = ranks.gatherToAll(pairs);
    std::vector<Piece> joined; // sorted, as the ranks are
    ranks.together([&] {
        std::vector<std::uint8_t> isJoined(pieces.size(), 0);
        for (Pair const & pair : pairs) {
            for (std::int64_t const number : pair) {
                if (number >= first && number - first < static_cast<std::int64_t>(pieces.size()))
                    isJoined[static_cast<std::size_t>(number - first)] = 1;
            }
        }
        for (std::size_t n = 0; n < pieces.size(); ++n) {
            if (isJoined[n] != 0)
                joined.push_back(pieces[n]);
        }
    });
    joined = ranks.gatherToAll(joined);

    double const least =
        smallest * static_cast<double>(ranks.sum(static_cast<std::int64_t>(mesh.triangleCount())));
    PieceFindings findings;
    std::int64_t alone = 0;
    std::int64_t aloneKept = 0;
    ranks.together([&] {
        auto const placeOf = [&](std::int64_t number) {
            return static_cast<std::size_t>(
                std::lower_bound(joined.begin(), joined.end(), number,
                                 [](Piece const & piece, std::int64_t of) { return piece.number < of; }) -
                joined.begin());
        };
        auto const isLarge = [&](std::int64_t triangles) { return static_cast<double>(triangles) >= least; };
        NumberSets sets(joined.size());
        for (Pair const & pair : pairs)
            sets.unite(placeOf(pair[0]), placeOf(pair[1]));
        std::vector<std::int64_t> sizes(joined.size(), 0);
        for (std::size_t n = 0; n < joined.size(); ++n)
            sizes[sets.find(n)] += joined[n].triangles;
        for (std::size_t n = 0; n < joined.size(); ++n) {
            findings.found += sets.find(n) == n;
            findings.kept += sets.find(n) == n && isLarge(sizes[n]);
        }
        std::vector<std::uint8_t> isKept(pieces.size());
        for (std::size_t n = 0; n < pieces.size(); ++n) {
            std::size_t const place = placeOf(pieces[n].number);
            bool const isAlone = place == joined.size() || joined[place].number != pieces[n].number;
            isKept[n] = isLarge(isAlone ? pieces[n].triangles : sizes[sets.find(place)]);
            alone += isAlone;
            aloneKept += isAlone && isKept[n] != 0;
        }
        std::size_t kept = 0;
        for (std::size_t corner = 0; corner < mesh.triangles.size(); corner += 3) {
            std::int64_t const piece = pieceOf[at(mesh.triangles[corner])] - first;
            if (isKept[static_cast<std::size_t>(piece)] == 0)
                continue;
            std::copy_n(mesh.triangles.begin() + static_cast<std::ptrdiff_t>(corner), 3,
                        mesh.triangles.begin() + static_cast<std::ptrdiff_t>(kept));
            kept += 3;
        }
        mesh.triangles.resize(kept);
    });
    findings.found += ranks.sum(alone);
    findings.kept += ranks.sum(aloneKept);
    return findings;
}

std::int64_t countBorderEdges(Communicator const & ranks, TriangleMesh const & mesh,
                              SharedVertices const & shared, std::vector<std::int64_t> const & numbers,
                              std::int64_t firstNumber)
{
    struct Edge
    {
        std::int64_t low, high;
        std::int64_t sides; // half-edges upwards less those downwards

        bool isOf(Edge const & other) const { return low == other.low && high == other.high; }
    };
    std::vector<std::int64_t> const firsts = ranks.all(firstNumber);
    std::int64_t alone = 0;
    std::vector<std::vector<Edge>> toRanks(static_cast<std::size_t>(ranks.size()));
    ranks.together([&] {
        std::vector<std::uint8_t> isBorder(mesh.vertexCount(), 0);
        for (BorderVertex const & entry : shared.border())
            isBorder[at(entry.vertex)] = 1;
        forUnpairedEdges(mesh, [&](std::size_t low, std::size_t high, int sides) {
            if (isBorder[low] == 0 || isBorder[high] == 0) {
                ++alone;
                return;
            }
            Edge edge = {numbers[low], numbers[high], sides};
            if (edge.low > edge.high)
                edge = {edge.high, edge.low, -edge.sides};
            // The owner of the lesser end puts them together.
            auto const owner = std::upper_bound(firsts.begin(), firsts.end(), edge.low) - 1;
            toRanks[static_cast<std::size_t>(owner - firsts.begin())].push_back(edge);
        });
    });
    std::vector<Edge> arrived = ranks.exchange(toRanks);
    ranks.together([&] {
        std::sort(arrived.begin(), arrived.end(), [](Edge const & a, Edge const & b) {
            return a.low != b.low ? a.low < b.low : a.high < b.high;
        });
        for (std::size_t n = 0; n < arrived.size();) {
            Edge sum = arrived[n];
            for (++n; n < arrived.size() && arrived[n].isOf(sum); ++n)
                sum.sides += arrived[n].sides;
            alone += sum.sides != 0;
        }
    });
    return ranks.sum(alone);
}

} // namespace QZmath::Distributed

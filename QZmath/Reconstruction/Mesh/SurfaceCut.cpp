// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/SurfaceCut.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace QZmath::Stages
{

namespace
{

// What cuts through triangles leaves slivers as they are, and is to change little when the mesh does.
int const bisectionsThrough = 20;
double const farthestSnap = 0.3;   // of an edge
double const leastSnapSine = 0.17; // of the angles of triangles that a snap may leave, unless they had less

enum class Side : std::uint8_t
{
    inside,
    outside,
    on
};

// What a vertex carries becomes a mixture of what two carry. It may be one of them.
void blend(TriangleMesh & mesh, std::int32_t to, EdgeCrossing const & crossing)
{
    std::size_t const a = at(crossing.inside);
    std::size_t const b = at(crossing.outside);
    double const share = crossing.share;
    auto const mixed = [&](auto const & values, std::size_t width, std::size_t n) {
        return (1 - share) * static_cast<double>(values[width * a + n]) +
               share * static_cast<double>(values[width * b + n]);
    };
    auto const mix = [&](std::vector<float> & values, std::size_t width) {
        for (std::size_t n = 0; n < width && !values.empty(); ++n)
            values[width * at(to) + n] = static_cast<float>(mixed(values, width, n));
    };
    mix(mesh.positions, 3);
    mix(mesh.normals, 3);
    mix(mesh.density, 1);
    for (std::size_t n = 0; n < 3 && !mesh.colors.empty(); ++n)
        mesh.colors[3 * at(to) + n] = static_cast<std::uint8_t>(std::lround(mixed(mesh.colors, 3, n)));
    if (!mesh.normals.empty()) {
        Vec const normal = Vec::of(&mesh.normals[3 * at(to)]);
        double const length = normal.length();
        if (length > 0)
            (normal * (1 / length)).store(&mesh.normals[3 * at(to)]);
    }
}

// Moves vertices onto the line where it passes close to them.
class Snapping
{
public:
    Snapping(TriangleMesh & mesh, VertexStars const & stars, std::vector<Side> & sides)
        : m_mesh(mesh), m_stars(stars), m_sides(sides)
    {}

    void run(std::vector<EdgeCrossing> const & crossings)
    {
        struct Candidate
        {
            std::int32_t vertex;
            double distance;
            std::size_t crossing;
        };
        std::vector<Candidate> candidates;
        for (std::size_t n = 0; n < crossings.size(); ++n) {
            EdgeCrossing const & crossing = crossings[n];
            double const length =
                (vertexOf(m_mesh, crossing.outside) - vertexOf(m_mesh, crossing.inside)).length();
            if (crossing.share < farthestSnap)
                candidates.push_back({crossing.inside, crossing.share * length, n});
            else if (crossing.share > 1 - farthestSnap)
                candidates.push_back({crossing.outside, (1 - crossing.share) * length, n});
        }
        std::sort(candidates.begin(), candidates.end(), [](Candidate const & a, Candidate const & b) {
            return std::tie(a.vertex, a.distance, a.crossing) < std::tie(b.vertex, b.distance, b.crossing);
        });
        for (Candidate const & candidate : candidates) {
            EdgeCrossing const & crossing = crossings[candidate.crossing];
            if (sideOf(crossing.inside) == Side::inside && sideOf(crossing.outside) == Side::outside &&
                mayMove(candidate.vertex, placeOf(m_mesh, crossing)))
                blend(m_mesh, candidate.vertex, crossing);
        }
    }

private:
    Side & sideOf(std::int32_t vertex) { return m_sides[at(vertex)]; }
    Side sideOf(std::int32_t vertex) const { return m_sides[at(vertex)]; }

    std::pair<std::int32_t, std::int32_t> othersOf(std::int32_t halfEdge) const
    {
        return {m_mesh.triangles[at(nextInTriangle(halfEdge))],
                m_mesh.triangles[at(previousInTriangle(halfEdge))]};
    }

    // Is what the cut leaves around a vertex on the line one fan? Pieces of two triangles meet in the edge
    // between them unless that leads outside.
    bool hasOneFan(std::int32_t vertex)
    {
        m_ends.clear();
        std::size_t ends = 0;
        for (std::int32_t const * h = m_stars.begin(vertex); h != m_stars.end(vertex); ++h) {
            auto const [x, y] = othersOf(*h);
            if (sideOf(x) != Side::inside && sideOf(y) != Side::inside)
                continue;
            for (std::int32_t const other : {x, y}) {
                auto const met = std::find(m_ends.begin(), m_ends.end(), other);
                if (sideOf(other) == Side::outside)
                    ++ends;
                else if (met == m_ends.end())
                    m_ends.push_back(other);
                else
                    m_ends.erase(met);
            }
        }
        return ends + m_ends.size() == 2;
    }

    // Makes the vertex one on the line if that does no harm.
    bool mayMove(std::int32_t vertex, Vec const & place)
    {
        Side const before = sideOf(vertex);
        sideOf(vertex) = Side::on;
        bool isGood = hasOneFan(vertex);
        for (std::int32_t const * h = m_stars.begin(vertex); isGood && h != m_stars.end(vertex); ++h) {
            auto const [x, y] = othersOf(*h);
            Triangle const old = {vertexOf(m_mesh, vertex), vertexOf(m_mesh, x), vertexOf(m_mesh, y)};
            Triangle const moved = {place, old.b, old.c};
            double const sine = moved.leastSine();
            if (sideOf(x) == Side::inside || sideOf(y) == Side::inside)
                isGood = dot(old.areaNormal(), moved.areaNormal()) > 0 &&
                         (sine >= leastSnapSine || sine >= old.leastSine());
            isGood =
                isGood && (sideOf(x) != Side::on || hasOneFan(x)) && (sideOf(y) != Side::on || hasOneFan(y));
        }
        if (!isGood)
            sideOf(vertex) = before;
        return isGood;
    }

    TriangleMesh & m_mesh;
    VertexStars const & m_stars;
    std::vector<Side> & m_sides;
    std::vector<std::int32_t> m_ends;
};

std::vector<Side> sidesOf(std::vector<std::uint8_t> const & isOutside)
{
    std::vector<Side> sides(isOutside.size());
    for (std::size_t v = 0; v < sides.size(); ++v)
        sides[v] = isOutside[v] ? Side::outside : Side::inside;
    return sides;
}

// Takes from the triangles what is outside.
void splitAlong(TriangleMesh & mesh, std::vector<EdgeCrossing> const & crossings,
                std::vector<Side> const & sides)
{
    // A vertex of its own for each crossing that is left.
    std::vector<std::int32_t> names(crossings.size(), -1);
    std::size_t vertices = mesh.vertexCount();
    for (std::size_t n = 0; n < crossings.size(); ++n) {
        if (sides[at(crossings[n].inside)] == Side::inside &&
            sides[at(crossings[n].outside)] == Side::outside)
            names[n] = static_cast<std::int32_t>(vertices++);
    }
    mesh.positions.resize(3 * vertices);
    mesh.normals.resize(mesh.normals.empty() ? 0 : 3 * vertices);
    mesh.colors.resize(mesh.colors.empty() ? 0 : 3 * vertices);
    mesh.density.resize(mesh.density.empty() ? 0 : vertices);
    for (std::size_t n = 0; n < crossings.size(); ++n) {
        if (names[n] >= 0)
            blend(mesh, names[n], crossings[n]);
    }
    auto const nameOf = [&](std::int32_t inside, std::int32_t outside) {
        return names[crossingOf(crossings, inside, outside)];
    };

    std::vector<std::int32_t> triangles;
    triangles.reserve(mesh.triangles.size());
    auto const add = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
        triangles.insert(triangles.end(), {a, b, c});
    };
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        std::array<std::int32_t, 3> corners;
        int insides = 0;
        int outsides = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            corners[k] = mesh.triangles[3 * t + k];
            insides += sides[at(corners[k])] == Side::inside;
            outsides += sides[at(corners[k])] == Side::outside;
        }
        if (insides == 0)
            continue;
        // The one that is outside goes last, or of two the one that is inside first.
        Side const single = outsides == 2 ? Side::inside : Side::outside;
        std::size_t const place = outsides == 2 ? 0 : 2;
        while (outsides > 0 && sides[at(corners[place])] != single)
            std::rotate(corners.begin(), corners.begin() + 1, corners.end());
        auto const [a, b, c] = corners;
        if (outsides == 0) {
            add(a, b, c);
        } else if (outsides == 2) {
            add(a, nameOf(a, b), nameOf(a, c));
        } else if (sides[at(a)] == Side::on) {
            add(a, b, nameOf(b, c));
        } else if (sides[at(b)] == Side::on) {
            add(a, b, nameOf(a, c));
        } else {
            std::int32_t const p = nameOf(b, c);
            std::int32_t const q = nameOf(a, c);
            bool const isFirstShorter = (vertexOf(mesh, a) - vertexOf(mesh, p)).squared() <=
                                        (vertexOf(mesh, b) - vertexOf(mesh, q)).squared();
            if (isFirstShorter) {
                add(a, b, p);
                add(a, p, q);
            } else {
                add(a, b, q);
                add(b, p, q);
            }
        }
    }
    mesh.triangles.swap(triangles);
}

} // namespace

std::vector<EdgeCrossing> findCrossings(TriangleMesh const & mesh,
                                        std::vector<std::uint8_t> const & isOutside,
                                        IsOutsideAt const & isOutsideAt, QzBackend::LoopTeam & team,
                                        int bisections)
{
    std::vector<EdgeCrossing> crossings;
    for (std::size_t h = 0; h < mesh.triangles.size(); ++h) {
        std::int32_t const a = mesh.triangles[h];
        std::int32_t const b = mesh.triangles[at(nextInTriangle(static_cast<std::int32_t>(h)))];
        if (isOutside[at(a)] != isOutside[at(b)])
            crossings.push_back(isOutside[at(b)] ? EdgeCrossing{a, b, 0} : EdgeCrossing{b, a, 0});
    }
    std::sort(crossings.begin(), crossings.end(), [](EdgeCrossing const & a, EdgeCrossing const & b) {
        return std::tie(a.inside, a.outside) < std::tie(b.inside, b.outside);
    });
    crossings.erase(std::unique(crossings.begin(), crossings.end(),
                                [](EdgeCrossing const & a, EdgeCrossing const & b) {
                                    return a.inside == b.inside && a.outside == b.outside;
                                }),
                    crossings.end());
    forRanges(team, crossings.size(), 64, [&](std::size_t begin, std::size_t end) {
        for (std::size_t n = begin; n < end; ++n) {
            double low = 0;
            double high = 1;
            for (int step = 0; step < bisections; ++step) {
                crossings[n].share = 0.5 * (low + high);
                (isOutsideAt(placeOf(mesh, crossings[n])) ? high : low) = crossings[n].share;
            }
            crossings[n].share = 0.5 * (low + high);
        }
    });
    return crossings;
}

std::size_t crossingOf(std::vector<EdgeCrossing> const & crossings, std::int32_t inside, std::int32_t outside)
{
    auto const place =
        std::lower_bound(crossings.begin(), crossings.end(), std::make_pair(inside, outside),
                         [](EdgeCrossing const & a, auto const & ends) {
                             return std::tie(a.inside, a.outside) < std::tie(ends.first, ends.second);
                         });
    return static_cast<std::size_t>(place - crossings.begin());
}

Vec placeOf(TriangleMesh const & mesh, EdgeCrossing const & crossing)
{
    return vertexOf(mesh, crossing.inside) * (1 - crossing.share) +
           vertexOf(mesh, crossing.outside) * crossing.share;
}

void cutOff(TriangleMesh & mesh, VertexStars const & stars, std::vector<std::uint8_t> const & isOutside,
            IsOutsideAt const & isOutsideAt, QzBackend::LoopTeam & team)
{
    std::vector<EdgeCrossing> const crossings = findCrossings(mesh, isOutside, isOutsideAt, team);
    std::vector<Side> sides = sidesOf(isOutside);
    Snapping(mesh, stars, sides).run(crossings);
    splitAlong(mesh, crossings, sides);
}

std::vector<EdgeCrossing> cutThrough(TriangleMesh & mesh, std::vector<std::uint8_t> const & isOutside,
                                     IsOutsideAt const & isOutsideAt, QzBackend::LoopTeam & team)
{
    std::vector<EdgeCrossing> crossings =
        findCrossings(mesh, isOutside, isOutsideAt, team, bisectionsThrough);
    splitAlong(mesh, crossings, sidesOf(isOutside));
    return crossings;
}

} // namespace QZmath::Stages

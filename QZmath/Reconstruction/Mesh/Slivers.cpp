// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Slivers.h>

#include <QZmath/Reconstruction/Mesh/MeshEditor.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>

#include <algorithm>
#include <cmath>

namespace QZmath::Stages
{

namespace
{

double const degree = 3.14159265358979323846 / 180;
double const sliverSine = std::sin(1.0 * degree);
double const soundSine = std::sin(5.0 * degree); // of triangles whose normals can be trusted
double const leastTurn = std::cos(20.0 * degree);
double const leastTinyTurn = std::cos(75.0 * degree); // where a vertex hardly moves
double const leastUpright = 0.5;                      // cosine between a face and the mean of those around it
double const leastImprovement = 1.2;                  // of the worst sine around
double const greatestMove = 0.01;                     // leaf cells
double const crowdedLength = 10;                      // of an edge, in greatest moves
int const mostRounds = 6;

struct Edit
{
    enum class Kind
    {
        none,
        collapse,
        flip
    };
    Kind kind = Kind::none;
    std::int32_t halfEdge = -1;
    bool isBackward = false; // the target goes, and not the origin
    double sine = 0;         // worst of the triangles that it makes
    bool isFromAfar = false; // was it looked for on the edges around the sliver's corners, too?
};

// Looks for edits, and changes nothing.
class EditSearch
{
public:
    EditSearch(TriangleMesh const & mesh, MeshEditor const & editor, double squaredBound)
        : m_mesh(mesh), m_editor(editor), m_bound(squaredBound)
    {}

    /// The best edit of a sliver. It follows from the stars of its corners and of those across its edges,
    /// and, where it was looked for from afar, from those of all neighbours of the corners.
    Edit bestEdit(std::int32_t triangle)
    {
        Edit best;
        for (std::int32_t k = 0; k < 3; ++k) {
            std::int32_t const halfEdge = 3 * triangle + k;
            tryFlip(halfEdge, best);
            for (bool const isBackward : {false, true})
                tryCollapse(halfEdge, isBackward, -1, best);
        }
        bool const isFromAfar = best.kind == Edit::Kind::none;
        if (isFromAfar)
            thinOut(triangle, best);
        best.isFromAfar = isFromAfar;
        return best;
    }

private:
    using Star = MeshEditor::Star;

    Vec placeOf(std::int32_t vertex) const { return vertexOf(m_mesh, vertex); }

    // Where vertices stand so close together that any edit would turn a triangle, another of the short edges
    // around may go first.
    void thinOut(std::int32_t triangle, Edit & best)
    {
        double const longest = crowdedLength * std::sqrt(m_bound);
        for (std::int32_t k = 0; k < 3; ++k) {
            m_editor.starOf(3 * triangle + k, m_around);
            for (std::int32_t const leaving : m_around.leaving) {
                double const length =
                    (placeOf(m_editor.target(leaving)) - placeOf(m_editor.origin(leaving))).length();
                if (length > longest)
                    continue;
                for (bool const isBackward : {false, true})
                    tryCollapse(leaving, isBackward, 0, best);
            }
        }
    }

    void tryFlip(std::int32_t halfEdge, Edit & best)
    {
        std::int32_t const back = m_editor.opposite(halfEdge);
        if (back < 0)
            return;
        Vec const a = placeOf(m_editor.origin(halfEdge));
        Vec const b = placeOf(m_editor.target(halfEdge));
        Vec const c = placeOf(m_editor.origin(previousInTriangle(halfEdge)));
        Vec const d = placeOf(m_editor.origin(previousInTriangle(back)));
        Triangle const before[2] = {{a, b, c}, {b, a, d}};
        Triangle const after[2] = {{a, d, c}, {b, c, d}};
        double const sine = std::min(after[0].leastSine(), after[1].leastSine());
        if (sine <= best.sine ||
            sine <= leastImprovement * std::min(before[0].leastSine(), before[1].leastSine()))
            return;
        // The two diagonals pass each other at the distance by which the surface moves.
        Vec const across = cross(b - a, d - c);
        double const height = dot(c - a, across);
        if (height * height > m_bound * across.squared())
            return;
        Vec const mean = before[0].areaNormal() + before[1].areaNormal();
        for (Triangle const & face : after) {
            for (Triangle const & old : before) {
                if (!isUpright(old, face, mean) || !isKept(old, face, leastTurn))
                    return;
            }
        }
        m_editor.starOf(previousInTriangle(halfEdge), m_staying);
        if (m_editor.mayFlip(halfEdge, m_staying))
            best = {Edit::Kind::flip, halfEdge, false, sine};
    }

    // \param mostSlivers that it may add
    void tryCollapse(std::int32_t halfEdge, bool isBackward, int mostSlivers, Edit & best)
    {
        m_editor.starOf(isBackward ? nextInTriangle(halfEdge) : halfEdge, m_going);
        std::int32_t const name = isBackward ? m_editor.origin(halfEdge) : m_editor.target(halfEdge);
        Vec const from = placeOf(isBackward ? m_editor.target(halfEdge) : m_editor.origin(halfEdge));
        Vec const to = placeOf(name);
        double sine = 1;
        int slivers = 0; // added
        Vec mean;
        double const turn = (to - from).squared() <= m_bound ? leastTinyTurn : leastTurn;
        m_before.clear();
        m_gone.clear();
        m_after.clear();
        for (std::int32_t const h : m_going.leaving) {
            std::int32_t const x = m_editor.target(h);
            std::int32_t const y = m_editor.origin(previousInTriangle(h));
            Triangle const old = {from, placeOf(x), placeOf(y)};
            slivers -= old.leastSine() < sliverSine;
            mean = mean + old.areaNormal();
            if (x == name || y == name) {
                m_gone.push_back(old);
                continue;
            }
            m_before.push_back(old);
            m_after.push_back({to, old.b, old.c});
            double const own = m_after.back().leastSine();
            sine = std::min(sine, own);
            slivers += own < sliverSine;
            if (sine <= best.sine || !isKept(old, m_after.back(), turn))
                return;
        }
        if (m_after.empty() || slivers > mostSlivers)
            return;
        double distance = m_bound * 2;
        for (std::size_t n = 0; n < m_after.size(); ++n) {
            if (!isUpright(m_before[n], m_after[n], mean))
                return;
            distance = std::min(distance, squaredDistance(from, m_after[n]));
        }
        if (distance > m_bound)
            return;
        // Spokes that are new: their middles were on the surface as well.
        for (Triangle const & face : m_after) {
            for (Vec const & end : {face.b, face.c}) {
                Vec const middle = (to + end) * 0.5;
                auto const isNear = [&](Triangle const & old) {
                    return squaredDistance(middle, old) <= m_bound;
                };
                if (std::none_of(m_before.begin(), m_before.end(), isNear) &&
                    std::none_of(m_gone.begin(), m_gone.end(), isNear))
                    return;
            }
        }
        if (!m_going.isClosed && !keepsRim(name, from, to))
            return;
        m_editor.starOf(isBackward ? halfEdge : nextInTriangle(halfEdge), m_staying);
        if (m_editor.mayCollapse(halfEdge, m_going, m_staying))
            best = {Edit::Kind::collapse, halfEdge, isBackward, sine};
    }

    // A vertex of the rim that goes into its neighbour there: is it near the line to its other neighbour?
    bool keepsRim(std::int32_t name, Vec const & from, Vec const & to) const
    {
        std::int32_t const first = m_editor.target(m_going.leaving.front());
        std::int32_t const last = m_editor.origin(previousInTriangle(m_going.leaving.back()));
        std::int32_t const other = name == first ? last : first;
        return squaredDistance(from, to, placeOf(other)) <= m_bound;
    }

    // Does a new triangle look the way of those around it, or at least no less than the one that it replaces?
    static bool isUpright(Triangle const & old, Triangle const & face, Vec const & mean)
    {
        auto const cosine = [&](Triangle const & triangle) {
            Vec const normal = triangle.areaNormal();
            double const lengths = normal.length() * mean.length();
            return lengths > 0 ? dot(normal, mean) / lengths : -1.0;
        };
        double const own = cosine(face);
        return own > leastUpright || (own > 0 && own >= cosine(old) - (1 - leastTurn));
    }

    // Where an old triangle had a normal to speak of, a new one in its place looks the same way.
    static bool isKept(Triangle const & old, Triangle const & face, double leastCosine)
    {
        if (old.leastSine() < soundSine)
            return true;
        Vec const a = old.areaNormal();
        Vec const b = face.areaNormal();
        return dot(a, b) >= leastCosine * a.length() * b.length();
    }

    TriangleMesh const & m_mesh;
    MeshEditor const & m_editor;
    double const m_bound;
    Star m_going, m_staying, m_around;
    std::vector<Triangle> m_before, m_after, m_gone; // around a vertex: replaced, new, without successor
};

class SliverRemoval
{
public:
    SliverRemoval(TriangleMesh & mesh, double leafCell, QzBackend::LoopTeam & team)
        : m_mesh(mesh), m_team(team), m_editor(mesh, team),
          m_bound(greatestMove * leafCell * greatestMove * leafCell), m_isChanged(mesh.vertexCount(), 0)
    {}

    static constexpr std::size_t sliversPerTurn = 256; // that are looked at before an interruption is

    /// \return the slivers left
    std::size_t run(std::vector<std::int32_t> slivers)
    {
        EditSearch search(m_mesh, m_editor, m_bound);
        for (int round = 0; round < mostRounds && !slivers.empty(); ++round) {
            // Edits are looked for on all threads, and made one after the other. Where one was made nearby
            // meanwhile, the search is done again.
            std::vector<Edit> const edits = searchAll(slivers);
            std::vector<std::int32_t> left;
            for (std::size_t n = 0; n < slivers.size(); ++n) {
                if (n % sliversPerTurn == 0)
                    m_team.serve();
                std::int32_t const t = slivers[n];
                if (!isSliver(t))
                    continue;
                Edit const edit = isValid(edits[n], t) ? edits[n] : search.bestEdit(t);
                if (edit.kind == Edit::Kind::none) {
                    left.push_back(t);
                    continue;
                }
                apply(edit);
                if (m_editor.isAlive(at(t)))
                    left.push_back(t);
                // What an edit leaves behind may itself be a sliver.
                for (std::int32_t const touched : m_touched) {
                    if (touched != t && isSliver(touched))
                        left.push_back(touched);
                }
            }
            bool const isDone = left.size() == slivers.size() && left == slivers;
            slivers.swap(left);
            for (std::int32_t const vertex : m_changed)
                m_isChanged[at(vertex)] = 0;
            m_changed.clear();
            if (isDone)
                break;
        }
        std::sort(slivers.begin(), slivers.end());
        slivers.erase(std::unique(slivers.begin(), slivers.end()), slivers.end());
        auto const left =
            std::count_if(slivers.begin(), slivers.end(), [&](std::int32_t t) { return isSliver(t); });
        m_editor.finish(m_team);
        return static_cast<std::size_t>(left);
    }

private:
    using Star = MeshEditor::Star;

    bool isSliver(std::int32_t triangle) const
    {
        return m_editor.isAlive(at(triangle)) && triangleOf(m_mesh, at(triangle)).leastSine() < sliverSine;
    }

    std::vector<Edit> searchAll(std::vector<std::int32_t> const & slivers) const
    {
        std::vector<Edit> edits(slivers.size());
        forRanges(m_team, slivers.size(), 64, [&](std::size_t begin, std::size_t end) {
            EditSearch search(m_mesh, m_editor, m_bound);
            for (std::size_t n = begin; n < end; ++n) {
                if (isSliver(slivers[n]))
                    edits[n] = search.bestEdit(slivers[n]);
            }
        });
        return edits;
    }

    // Is what an edit follows from as it was at the begin of the round?
    bool isValid(Edit const & edit, std::int32_t triangle)
    {
        auto const isChanged = [&](std::int32_t vertex) { return m_isChanged[at(vertex)] != 0; };
        for (std::int32_t h = 3 * triangle; h < 3 * triangle + 3; ++h) {
            std::int32_t const back = m_editor.opposite(h);
            if (isChanged(m_editor.origin(h)) ||
                (back >= 0 && isChanged(m_editor.origin(previousInTriangle(back)))))
                return false;
        }
        for (std::int32_t h = 3 * triangle; edit.isFromAfar && h < 3 * triangle + 3; ++h) {
            m_editor.starOf(h, m_around);
            for (std::int32_t const leaving : m_around.leaving) {
                if (isChanged(m_editor.target(leaving)) ||
                    isChanged(m_editor.origin(previousInTriangle(leaving))))
                    return false;
            }
        }
        return true;
    }

    void apply(Edit const & edit)
    {
        m_touched.clear();
        std::int32_t const end = nextInTriangle(edit.halfEdge);
        if (edit.kind == Edit::Kind::flip) {
            m_touched = {edit.halfEdge / 3, m_editor.opposite(edit.halfEdge) / 3};
        } else {
            m_editor.starOf(edit.isBackward ? end : edit.halfEdge, m_around);
            for (std::int32_t const h : m_around.leaving)
                m_touched.push_back(h / 3);
        }
        for (std::int32_t const triangle : m_touched) {
            for (std::int32_t k = 0; k < 3; ++k) {
                std::int32_t const vertex = m_editor.origin(3 * triangle + k);
                if (m_isChanged[at(vertex)] == 0)
                    m_changed.push_back(vertex);
                m_isChanged[at(vertex)] = 1;
            }
        }
        if (edit.kind == Edit::Kind::flip)
            m_editor.flip(edit.halfEdge);
        else
            m_editor.collapse(edit.halfEdge, m_around,
                              m_editor.origin(edit.isBackward ? edit.halfEdge : end));
    }

    TriangleMesh & m_mesh;
    QzBackend::LoopTeam & m_team;
    MeshEditor m_editor;
    double const m_bound;
    std::vector<std::uint8_t> m_isChanged; // vertices whose stars are no longer those of the begin of a round
    std::vector<std::int32_t> m_changed;   // which these are
    Star m_around;
    std::vector<std::int32_t> m_touched;
};

std::vector<std::int32_t> findSlivers(TriangleMesh const & mesh, QzBackend::LoopTeam & team, double until)
{
    return indicesWhere<std::int32_t>(
        team, mesh.triangleCount(),
        [&](std::size_t t) { return triangleOf(mesh, t).leastSine() < sliverSine; }, until);
}

} // namespace

AngleDistribution measureAngles(TriangleMesh const & mesh, QzBackend::LoopTeam & team)
{
    AngleDistribution result;
    std::size_t const count = mesh.triangleCount();
    if (count == 0)
        return result;
    struct Part
    {
        double least = 90;
        std::size_t belowOne = 0, belowFive = 0, belowTen = 0;
    };
    std::size_t const perPart = 4096;
    std::vector<Part> parts((count + perPart - 1) / perPart);
    forRanges(team, count, perPart, [&](std::size_t begin, std::size_t end) {
        Part & part = parts[begin / perPart];
        for (std::size_t t = begin; t < end; ++t) {
            double const angle = std::asin(std::min(1.0, triangleOf(mesh, t).leastSine())) / degree;
            part.least = std::min(part.least, angle);
            part.belowOne += angle < 1;
            part.belowFive += angle < 5;
            part.belowTen += angle < 10;
        }
    });
    Part all;
    for (Part const & part : parts) {
        all.least = std::min(all.least, part.least);
        all.belowOne += part.belowOne;
        all.belowFive += part.belowFive;
        all.belowTen += part.belowTen;
    }
    auto const shareOf = [count](std::size_t number) {
        return static_cast<double>(number) / static_cast<double>(count);
    };
    result.least = all.least;
    result.belowOne = shareOf(all.belowOne);
    result.belowFive = shareOf(all.belowFive);
    result.belowTen = shareOf(all.belowTen);
    return result;
}

std::size_t removeSlivers(TriangleMesh & mesh, double leafCell, QzBackend::LoopTeam & team, double until)
{
    std::vector<std::int32_t> const slivers = findSlivers(mesh, team, until);
    if (slivers.empty())
        return 0;
    std::size_t const left = SliverRemoval(mesh, leafCell, team).run(slivers);
    return slivers.size() - std::min(left, slivers.size());
}

} // namespace QZmath::Stages

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Simplification.h>

#include <QZmath/Reconstruction/Mesh/MeshEditor.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace QZmath::Stages
{

namespace
{

double const usableError = 0.92; // of the given one: the surface between points has the rest
double const leastFold = 0.2;    // of the given error, from which a point in the middle of an edge watches it
double const sharpFold = 1.5;    // likewise, from which two more do
double const rimError = 0.02;    // of the given one, by which a rim may leave its course
double const newEdgeError = 0.5; // of the given one, by which a new edge may leave what it replaces
double const leastTurn = 0.7;    // cosine between a triangle and the one that replaces it
double const leastSine = 0.07;   // of the angles of new triangles, unless the old ones had less
double const soundSine = 0.02;   // of triangles whose normals can be trusted
double const lengthShare = 1e-3; // of the length of an edge in its cost, which decides in a plane
double const candidateShare = 0.3; // of the vertices, the cheapest, that a round looks at
double const leastProgress = 1e-3; // share of the vertices that a round must take
int const mostRounds = 200;
std::size_t const mostTries = 3; // ends that a vertex is tried with
std::size_t const perPiece = 256;

class Simplification
{
public:
    Simplification(TriangleMesh & mesh, double error, QzBackend::LoopTeam & team)
        : m_mesh(mesh), m_team(team), m_editor(mesh, team),
          m_bound(usableError * error * usableError * error), m_rimBound(rimError * error * rimError * error),
          m_newBound(newEdgeError * error * newEdgeError * error), m_leaving(mesh.vertexCount(), -1),
          m_choices(mesh.vertexCount(), -1), m_costs(mesh.vertexCount(), 0),
          m_states(mesh.vertexCount(), State::stale), m_marks(mesh.vertexCount(), 0),
          m_firstPoint(mesh.triangleCount(), -1), m_nextPoint(mesh.vertexCount(), -1),
          m_scratch(static_cast<std::size_t>(team.threads()))
    {
        for (std::size_t h = mesh.triangles.size(); h-- > 0;)
            m_leaving[at(mesh.triangles[h])] = static_cast<std::int32_t>(h);
        watchFolds(error);
    }

    void run(double until)
    {
        std::size_t vertices = m_leaving.size();
        double open = 1;
        for (int round = 1; round <= mostRounds; ++round) {
            onEach(m_leaving.size(), [&](Scratch & scratch, std::size_t vertex) {
                rank(scratch, static_cast<std::int32_t>(vertex));
            });
            std::vector<std::int32_t> candidates = cheapest();
            onEach(candidates.size(),
                   [&](Scratch & scratch, std::size_t n) { judge(scratch, candidates[n]); });
            std::size_t const judged = candidates.size();
            std::vector<std::int32_t> const chosen = chosenOf(candidates, round);
            open *= 0.9;
            m_team.forEachOnSlot(
                static_cast<int>(chosen.size()),
                [&](int slot, int n) {
                    collapse(m_scratch[static_cast<std::size_t>(slot)], chosen[static_cast<std::size_t>(n)]);
                },
                until * (1 - open));
            vertices -= chosen.size();
            double const least = leastProgress * static_cast<double>(vertices);
            if (static_cast<double>(chosen.size()) <= least && static_cast<double>(judged) <= 10 * least + 10)
                break;
        }
        m_editor.finish(m_team);
    }

private:
    enum class State : std::uint8_t
    {
        stale,  // something around the vertex has changed
        ranked, // its cost is known
        judged  // its choice is known, too, -1 when it has to stay
    };

    struct Scratch
    {
        MeshEditor::Star star, other;
        std::vector<std::pair<double, std::int32_t>> ends; // cost, half-edge
        std::vector<Triangle> before, after;
        std::vector<std::int32_t> points;
    };

    Vec placeOf(std::int32_t vertex) const { return vertexOf(m_mesh, vertex); }

    /// A vertex that is gone, or one of the points on edges.
    Vec placeOfPoint(std::int32_t point) const
    {
        std::size_t const vertices = m_leaving.size();
        return at(point) < vertices ? placeOf(point) : Vec::of(&m_onEdges[3 * (at(point) - vertices)]);
    }

    // Two triangles that fold can be replaced by the two others between their corners, which is to leave the
    // surface without leaving a vertex. So points on their edge are watched, too.
    void watchFolds(double error)
    {
        std::vector<std::uint8_t> pointsOn(m_mesh.triangles.size(), 0);
        forRanges(m_team, pointsOn.size(), 3072, [&](std::size_t begin, std::size_t end) {
            for (std::size_t n = begin; n < end; ++n) {
                std::int32_t const h = static_cast<std::int32_t>(n);
                std::int32_t const back = m_editor.opposite(h);
                if (back < h)
                    continue;
                Vec const a = placeOf(m_editor.origin(h));
                Vec const c = placeOf(m_editor.origin(previousInTriangle(h)));
                Vec const d = placeOf(m_editor.origin(previousInTriangle(back)));
                Vec const first = triangleOf(m_mesh, n / 3).areaNormal();
                Vec const second = triangleOf(m_mesh, at(back) / 3).areaNormal();
                auto const isAbove = [&](double share) {
                    double const height = share * error;
                    return std::abs(dot(d - a, first)) > height * first.length() ||
                           std::abs(dot(c - a, second)) > height * second.length();
                };
                pointsOn[n] = isAbove(sharpFold) ? 3 : isAbove(leastFold) ? 1 : 0;
            }
        });
        for (std::size_t n = 0; n < pointsOn.size(); ++n) {
            Vec const from = placeOf(m_mesh.triangles[n]);
            Vec const step = placeOf(m_editor.target(static_cast<std::int32_t>(n))) - from;
            for (int k = 1; k <= pointsOn[n]; ++k) {
                std::int32_t const point = static_cast<std::int32_t>(m_nextPoint.size());
                m_onEdges.resize(m_onEdges.size() + 3);
                (from + step * (k / (pointsOn[n] + 1.0))).store(&m_onEdges[m_onEdges.size() - 3]);
                m_nextPoint.push_back(m_firstPoint[n / 3]);
                m_firstPoint[n / 3] = point;
            }
        }
    }

    /// Calls body(scratch, index) for 0 <= index < count.
    template <class Body>
    void onEach(std::size_t count, Body const & body)
    {
        m_team.forEachOnSlot(static_cast<int>((count + perPiece - 1) / perPiece), [&](int slot, int piece) {
            std::size_t const begin = static_cast<std::size_t>(piece) * perPiece;
            for (std::size_t index = begin; index < std::min(count, begin + perPiece); ++index)
                body(m_scratch[static_cast<std::size_t>(slot)], index);
        });
    }

    // What the cheapest collapse of a vertex would cost, allowed or not.
    void rank(Scratch & scratch, std::int32_t vertex)
    {
        if (m_leaving[at(vertex)] < 0 || m_states[at(vertex)] != State::stale)
            return;
        m_editor.starOf(m_leaving[at(vertex)], scratch.star);
        rankEnds(scratch, vertex);
        m_costs[at(vertex)] = scratch.ends.front().first;
        m_choices[at(vertex)] = -1;
        m_states[at(vertex)] = State::ranked;
    }

    // The vertices that cost least, of those that may turn out to be free to go.
    std::vector<std::int32_t> cheapest() const
    {
        std::vector<std::int32_t> candidates;
        for (std::size_t v = 0; v < m_choices.size(); ++v) {
            if (m_leaving[v] >= 0 && (m_states[v] == State::ranked || m_choices[v] >= 0))
                candidates.push_back(static_cast<std::int32_t>(v));
        }
        std::size_t const wanted =
            static_cast<std::size_t>(std::ceil(candidateShare * static_cast<double>(candidates.size())));
        std::nth_element(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(wanted),
                         candidates.end(), [&](std::int32_t a, std::int32_t b) { return isCheaper(a, b); });
        candidates.resize(wanted);
        return candidates;
    }

    bool isCheaper(std::int32_t a, std::int32_t b) const
    {
        return std::tie(m_costs[at(a)], a) < std::tie(m_costs[at(b)], b);
    }

    // Which collapse of a vertex would do least, of those that are allowed. What was found before holds as
    // long as the triangles around it are the same, but for what its neighbours' triangles have to say.
    void judge(Scratch & scratch, std::int32_t vertex)
    {
        std::int32_t & choice = m_choices[at(vertex)];
        m_editor.starOf(m_leaving[at(vertex)], scratch.star);
        if (m_states[at(vertex)] == State::judged && isAllowed(scratch, choice))
            return;
        m_states[at(vertex)] = State::judged;
        choice = -1;
        rankEnds(scratch, vertex);
        for (std::size_t n = 0; n < std::min(mostTries, scratch.ends.size()); ++n) {
            auto const [cost, halfEdge] = scratch.ends[n];
            if (isHarmless(scratch, halfEdge) && isAllowed(scratch, halfEdge)) {
                choice = halfEdge;
                m_costs[at(vertex)] = cost;
                return;
            }
        }
    }

    bool isAllowed(Scratch & scratch, std::int32_t halfEdge) const
    {
        m_editor.starOf(nextInTriangle(halfEdge), scratch.other);
        return m_editor.mayCollapse(halfEdge, scratch.star, scratch.other);
    }

    void rankEnds(Scratch & scratch, std::int32_t vertex) const
    {
        Vec const from = placeOf(vertex);
        scratch.before.clear();
        for (std::int32_t const h : scratch.star.leaving)
            scratch.before.push_back(
                {from, placeOf(m_editor.target(h)), placeOf(m_editor.origin(previousInTriangle(h)))});
        scratch.ends.clear();
        for (std::int32_t const h : scratch.star.leaving) {
            Vec const step = placeOf(m_editor.target(h)) - from;
            double cost = 0;
            double areas = 0;
            for (Triangle const & face : scratch.before) {
                Vec const normal = face.areaNormal();
                double const volume = dot(normal, step);
                double const area = normal.length();
                cost += area > 0 ? volume * volume / area : 0;
                areas += area;
            }
            scratch.ends.emplace_back(cost + lengthShare * areas * std::sqrt(m_bound * step.squared()), h);
        }
        std::sort(scratch.ends.begin(), scratch.ends.end());
    }

    // The triangles that a collapse would leave of a star; false where one of them turns or gets thin.
    bool makeAfter(Scratch & scratch, std::int32_t halfEdge) const
    {
        std::int32_t const name = m_editor.target(halfEdge);
        Vec const to = placeOf(name);
        scratch.after.clear();
        double before = 1;
        double after = 1;
        for (std::size_t n = 0; n < scratch.star.leaving.size(); ++n) {
            std::int32_t const h = scratch.star.leaving[n];
            Triangle const & old = scratch.before[n];
            double const oldSine = old.leastSine();
            before = std::min(before, oldSine);
            if (m_editor.target(h) == name || m_editor.origin(previousInTriangle(h)) == name)
                continue;
            Triangle const face = {to, old.b, old.c};
            Vec const a = old.areaNormal();
            Vec const b = face.areaNormal();
            double const leastCosine = oldSine < soundSine ? 0 : leastTurn;
            if (!(dot(a, b) > leastCosine * a.length() * b.length()))
                return false;
            after = std::min(after, face.leastSine());
            scratch.after.push_back(face);
        }
        return !scratch.after.empty() && (after >= leastSine || after >= before);
    }

    bool isHarmless(Scratch & scratch, std::int32_t halfEdge) const
    {
        if (!makeAfter(scratch, halfEdge))
            return false;
        auto const isNear = [&](Vec const & place) {
            return std::any_of(scratch.after.begin(), scratch.after.end(), [&](Triangle const & face) {
                return squaredDistance(place, face) <= m_bound;
            });
        };
        std::int32_t const vertex = m_editor.origin(halfEdge);
        if (!scratch.star.isClosed) {
            std::int32_t const first = m_editor.target(scratch.star.leaving.front());
            std::int32_t const last = m_editor.origin(previousInTriangle(scratch.star.leaving.back()));
            Vec const other = placeOf(m_editor.target(halfEdge) == first ? last : first);
            if (squaredDistance(placeOf(vertex), placeOf(m_editor.target(halfEdge)), other) > m_rimBound)
                return false;
        }
        if (!isNear(placeOf(vertex)))
            return false;
        for (std::int32_t const h : scratch.star.leaving) {
            for (std::int32_t point = m_firstPoint[at(h) / 3]; point >= 0; point = m_nextPoint[at(point)]) {
                if (!isNear(placeOfPoint(point)))
                    return false;
            }
        }
        // The other way round: edges that are new run along what was there.
        for (Triangle const & face : scratch.after) {
            Vec const middle = (face.a + face.b) * 0.5;
            if (std::none_of(scratch.before.begin(), scratch.before.end(), [&](Triangle const & old) {
                    return squaredDistance(middle, old) <= m_newBound;
                }))
                return false;
        }
        return true;
    }

    // The vertices to go in this round: from the cheapest on, each with all around it left to itself.
    std::vector<std::int32_t> chosenOf(std::vector<std::int32_t> & candidates, int round)
    {
        auto const isStuck = [&](std::int32_t vertex) { return m_choices[at(vertex)] < 0; };
        candidates.erase(std::remove_if(candidates.begin(), candidates.end(), isStuck), candidates.end());
        std::sort(candidates.begin(), candidates.end(),
                  [&](std::int32_t a, std::int32_t b) { return isCheaper(a, b); });
        std::vector<std::int32_t> chosen;
        MeshEditor::Star star;
        for (std::int32_t const vertex : candidates) {
            m_editor.starOf(m_leaving[at(vertex)], star);
            auto const isFree = [&](std::int32_t other) { return m_marks[at(other)] != round; };
            bool isAllFree = isFree(vertex);
            for (std::int32_t const h : star.leaving)
                isAllFree =
                    isAllFree && isFree(m_editor.target(h)) && isFree(m_editor.origin(previousInTriangle(h)));
            if (!isAllFree)
                continue;
            m_marks[at(vertex)] = round;
            for (std::int32_t const h : star.leaving) {
                m_marks[at(m_editor.target(h))] = round;
                m_marks[at(m_editor.origin(previousInTriangle(h)))] = round;
            }
            chosen.push_back(vertex);
        }
        return chosen;
    }

    void collapse(Scratch & scratch, std::int32_t vertex)
    {
        std::int32_t const halfEdge = m_choices[at(vertex)];
        std::int32_t const back = m_editor.opposite(halfEdge);
        std::int32_t const name = m_editor.target(halfEdge);
        m_editor.starOf(m_leaving[at(vertex)], scratch.star);
        scratch.points.assign(1, vertex);
        for (std::int32_t const h : scratch.star.leaving) {
            for (std::int32_t point = m_firstPoint[at(h) / 3]; point >= 0; point = m_nextPoint[at(point)])
                scratch.points.push_back(point);
            m_firstPoint[at(h) / 3] = -1;
            m_states[at(m_editor.target(h))] = State::stale;
            m_states[at(m_editor.origin(previousInTriangle(h)))] = State::stale;
        }
        // The corners across the edge need a half-edge that stays: beyond the side behind the edge one leaves
        // the corner, beyond the side before it one runs to it.
        for (std::int32_t const gone : {halfEdge, back}) {
            if (gone < 0)
                continue;
            std::int32_t const behind = m_editor.opposite(nextInTriangle(gone));
            std::int32_t const before = m_editor.opposite(previousInTriangle(gone));
            m_leaving[at(m_editor.origin(previousInTriangle(gone)))] =
                behind >= 0 ? behind : nextInTriangle(before);
        }
        m_editor.collapse(halfEdge, scratch.star, name);
        m_leaving[at(vertex)] = -1;
        m_choices[at(vertex)] = -1;
        std::vector<std::int32_t> & left = scratch.star.leaving;
        left.erase(std::remove_if(left.begin(), left.end(),
                                  [&](std::int32_t h) { return !m_editor.isAlive(at(h) / 3); }),
                   left.end());
        m_leaving[at(name)] = left.front();
        for (std::int32_t const point : scratch.points) {
            std::size_t nearest = 0;
            double least = std::numeric_limits<double>::infinity();
            for (std::int32_t const h : left) {
                double const distance = squaredDistance(placeOfPoint(point), triangleOf(m_mesh, at(h) / 3));
                if (distance < least) {
                    least = distance;
                    nearest = at(h) / 3;
                }
            }
            m_nextPoint[at(point)] = m_firstPoint[nearest];
            m_firstPoint[nearest] = point;
        }
    }

    TriangleMesh & m_mesh;
    QzBackend::LoopTeam & m_team;
    MeshEditor m_editor;
    double const m_bound;                // squared
    double const m_rimBound;             // squared
    double const m_newBound;             // squared
    std::vector<std::int32_t> m_leaving; // one half-edge of each vertex; -1 for those that are gone
    std::vector<std::int32_t> m_choices; // the half-edge along which a vertex would go; -1 for none
    std::vector<double> m_costs;
    std::vector<State> m_states;
    std::vector<std::int32_t> m_marks; // the round in which something around a vertex was taken
    std::vector<std::int32_t> m_firstPoint, m_nextPoint; // lists of the triangles: what is watched
    std::vector<float> m_onEdges;                        // points behind those that are vertices
    std::vector<Scratch> m_scratch;
};

} // namespace

void simplify(TriangleMesh & mesh, double error, QzBackend::LoopTeam & team, double until)
{
    if (mesh.triangles.empty() || !(error > 0))
        return;
    Simplification(mesh, error, team).run(until);
}

} // namespace QZmath::Stages

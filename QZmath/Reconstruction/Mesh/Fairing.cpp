// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Fairing.h>

#include <QZmath/Reconstruction/Mesh/Crossings.h>
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>
#include <QZmath/Reconstruction/Mesh/ThinPlate.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace QZmath::Stages
{

namespace
{

int const ringsAround = 5; // held ones of a patch: the rim's tangents are measured on them
// Share of the triangles along whose edges the patch may fold: at sharp corners of the rim some edges of the
// mesh run across the corner.
double const mostFolds = 0.01;
double const leastRim = 0.1;  // that counts, as a share of the longest
int const mostHandles = 2;    // of a patch; among samples that are mere noise it has more
double const leastArea = 0.6; // of what it was, that a patch with several rims keeps

// Hands the positions of a solver on to the job, on whose thread it runs.
class TeamProgress final : public CProgressCounter
{
public:
    TeamProgress(QzBackend::LoopTeam & team, double from, double until)
        : m_team(team), m_from(from), m_until(until)
    {}

private:
    void onPosition(double position) override { m_team.setPosition(m_from + (m_until - m_from) * position); }

    QzBackend::LoopTeam & m_team;
    double const m_from, m_until;
};

// A patch with the rings around it, cut out of the mesh.
struct Cutout
{
    std::vector<std::int32_t> vertices, triangles; // of the mesh; the triangles are those that change
    PlatePatch plate;
    Vec centre; // to which its places are relative
};

class Fairing
{
public:
    Fairing(TriangleMesh & mesh, SampleIndex const & samples, FairingRule const & rule,
            QzBackend::LoopTeam & team)
        : m_mesh(mesh), m_samples(samples), m_rule(rule), m_team(team)
    {}

    FairingFindings run(double from, double until)
    {
        FairingFindings findings;
        double const solving = from + 0.2 * (until - from);
        if (!findFar(solving))
            return findings;
        m_stars.emplace(m_mesh, m_team);
        leaveOpenOnes();
        addTransition();
        m_crossings.emplace(m_mesh, m_isFree);
        m_local.assign(m_mesh.vertexCount(), -1);
        std::vector<std::vector<std::int32_t>> const patches = collectPatches();
        std::size_t all = 0;
        for (auto const & patch : patches)
            all += patch.size();
        std::size_t done = 0;
        auto const position = [&] {
            return solving + (until - solving) * static_cast<double>(done) / static_cast<double>(all);
        };
        for (std::vector<std::int32_t> const & patch : patches) {
            double const start = position();
            done += patch.size();
            TeamProgress progress(m_team, start, position());
            ++(fair(patch, progress) ? findings.faired : findings.left);
        }
        return findings;
    }

private:
    template <class Visit>
    void forEachAround(std::int32_t vertex, Visit const & visit) const
    {
        for (std::int32_t const * h = m_stars->begin(vertex); h != m_stars->end(vertex); ++h) {
            visit(m_mesh.triangles[at(nextInTriangle(*h))]);
            visit(m_mesh.triangles[at(previousInTriangle(*h))]);
        }
    }

    // Have all edges of a vertex two triangles?
    bool isInner(std::int32_t vertex) const
    {
        for (std::int32_t const * h = m_stars->begin(vertex); h != m_stars->end(vertex); ++h) {
            std::int32_t const other = m_mesh.triangles[at(nextInTriangle(*h))];
            int forth = 0;
            int back = 0;
            for (std::int32_t const * k = m_stars->begin(vertex); k != m_stars->end(vertex); ++k) {
                forth += m_mesh.triangles[at(nextInTriangle(*k))] == other;
                back += m_mesh.triangles[at(previousInTriangle(*k))] == other;
            }
            if (forth != 1 || back != 1)
                return false;
        }
        return true;
    }

    // The vertices farther than the trim distance from the samples, in parts that are large enough. False
    // when there are none.
    bool findFar(double until)
    {
        m_isFree.assign(m_mesh.vertexCount(), 0);
        forRanges(
            m_team, m_isFree.size(), 512,
            [&](std::size_t begin, std::size_t end) {
                std::int32_t hint = SampleIndex::none;
                for (std::size_t v = begin; v < end; ++v) {
                    std::int32_t const found = m_samples.anyWithin(
                        vertexOf(m_mesh, static_cast<std::int32_t>(v)), m_rule.trimDistance, hint);
                    m_isFree[v] = found == SampleIndex::none;
                    hint = m_isFree[v] ? hint : found;
                }
            },
            until);
        VertexSets sets(m_mesh.vertexCount());
        std::vector<float> areas(m_mesh.vertexCount(), 0.0f);
        for (std::size_t t = 0; t < m_mesh.triangleCount(); ++t) {
            std::int32_t const * corners = &m_mesh.triangles[3 * t];
            for (std::size_t k = 0; k < 3; ++k) {
                if (!m_isFree[at(corners[k])])
                    continue;
                areas[at(corners[k])] += static_cast<float>(triangleOf(m_mesh, t).area() / 3);
                if (m_isFree[at(corners[(k + 1) % 3])])
                    sets.unite(corners[k], corners[(k + 1) % 3]);
            }
        }
        for (std::size_t v = 0; v < m_isFree.size(); ++v) {
            std::size_t const root = at(sets.find(static_cast<std::int32_t>(v)));
            if (root != v)
                areas[root] += areas[v];
        }
        double const least = m_rule.trimDistance * m_rule.trimDistance;
        bool isAny = false;
        for (std::size_t v = 0; v < m_isFree.size(); ++v) {
            m_isFree[v] = m_isFree[v] && areas[at(sets.find(static_cast<std::int32_t>(v)))] >= least;
            isAny = isAny || m_isFree[v];
        }
        return isAny;
    }

    // A part at which the mesh ends closes nothing.
    void leaveOpenOnes()
    {
        std::vector<std::int32_t> open;
        auto const leave = [&](std::int32_t vertex) {
            m_isFree[at(vertex)] = 0;
            open.push_back(vertex);
        };
        for (std::size_t v = 0; v < m_isFree.size(); ++v) {
            if (m_isFree[v] && !isInner(static_cast<std::int32_t>(v)))
                leave(static_cast<std::int32_t>(v));
        }
        while (!open.empty()) {
            std::int32_t const vertex = open.back();
            open.pop_back();
            forEachAround(vertex, [&](std::int32_t other) {
                if (m_isFree[at(other)])
                    leave(other);
            });
        }
    }

    // What may move beside the far vertices.
    void addTransition()
    {
        std::vector<std::pair<std::int32_t, std::int32_t>> open; // vertices, and far ones that they are near
        for (std::size_t v = 0; v < m_isFree.size(); ++v) {
            if (m_isFree[v])
                open.push_back({static_cast<std::int32_t>(v), static_cast<std::int32_t>(v)});
        }
        double const reach = m_rule.trimDistance * m_rule.trimDistance;
        for (std::size_t n = 0; n < open.size(); ++n) {
            auto const [vertex, start] = open[n];
            forEachAround(vertex, [&, origin = start](std::int32_t other) {
                if (m_isFree[at(other)])
                    return;
                Vec const place = vertexOf(m_mesh, other);
                if ((place - vertexOf(m_mesh, origin)).squared() > reach ||
                    m_samples.anyWithin(place, 0.5 * m_rule.trimDistance) != SampleIndex::none)
                    return;
                m_isFree[at(other)] = 1;
                open.push_back({other, origin});
            });
        }
        for (auto const & entry : open)
            m_isFree[at(entry.first)] = isInner(entry.first);
    }

    // The connected parts of what may move, in the order of their least vertices.
    std::vector<std::vector<std::int32_t>> collectPatches() const
    {
        std::vector<std::vector<std::int32_t>> patches;
        std::vector<std::uint8_t> isSeen(m_isFree.size(), 0);
        for (std::size_t v = 0; v < m_isFree.size(); ++v) {
            if (!m_isFree[v] || isSeen[v])
                continue;
            std::vector<std::int32_t> patch(1, static_cast<std::int32_t>(v));
            isSeen[v] = 1;
            for (std::size_t n = 0; n < patch.size(); ++n) {
                forEachAround(patch[n], [&](std::int32_t other) {
                    if (m_isFree[at(other)] && !isSeen[at(other)]) {
                        isSeen[at(other)] = 1;
                        patch.push_back(other);
                    }
                });
            }
            std::sort(patch.begin(), patch.end());
            patches.push_back(std::move(patch));
        }
        return patches;
    }

    Cutout cutOut(std::vector<std::int32_t> const & patch)
    {
        Cutout cutout;
        std::vector<std::int32_t> & vertices = cutout.vertices;
        vertices = patch;
        for (std::size_t n = 0; n < patch.size(); ++n)
            m_local[at(patch[n])] = static_cast<std::int32_t>(n);
        cutout.plate.free = static_cast<std::int32_t>(patch.size());
        std::size_t inner = 0; // vertices whose triangles all belong to the cutout
        for (int ring = 0; ring < ringsAround; ++ring) {
            std::size_t const begin = inner;
            inner = vertices.size();
            for (std::size_t n = begin; n < inner; ++n) {
                forEachAround(vertices[n], [&](std::int32_t other) {
                    if (m_local[at(other)] < 0) {
                        m_local[at(other)] = 0;
                        vertices.push_back(other);
                    }
                });
            }
            auto const first = vertices.begin() + static_cast<std::ptrdiff_t>(inner);
            auto const middle =
                std::partition(first, vertices.end(), [&](std::int32_t v) { return isInner(v); });
            std::sort(first, middle);
            std::sort(middle, vertices.end());
            if (ring == 0)
                cutout.plate.balanced = static_cast<std::int32_t>(middle - first);
            for (std::size_t n = inner; n < vertices.size(); ++n)
                m_local[at(vertices[n])] = static_cast<std::int32_t>(n);
        }
        std::vector<std::int32_t> triangles;
        for (std::size_t n = 0; n < inner; ++n) {
            for (std::int32_t const * h = m_stars->begin(vertices[n]); h != m_stars->end(vertices[n]); ++h)
                triangles.push_back(*h / 3);
        }
        std::sort(triangles.begin(), triangles.end());
        triangles.erase(std::unique(triangles.begin(), triangles.end()), triangles.end());
        for (std::int32_t const t : triangles) {
            std::int32_t const * corners = &m_mesh.triangles[3 * at(t)];
            std::array<std::int32_t, 3> const local = {m_local[at(corners[0])], m_local[at(corners[1])],
                                                       m_local[at(corners[2])]};
            cutout.plate.triangles.push_back(local);
            if (std::min({local[0], local[1], local[2]}) < cutout.plate.free)
                cutout.triangles.push_back(t);
        }
        cutout.centre = vertexOf(m_mesh, vertices.back());
        for (std::int32_t const v : vertices) {
            cutout.plate.places.push_back(vertexOf(m_mesh, v) - cutout.centre);
            m_local[at(v)] = -1;
        }
        return cutout;
    }

    bool fair(std::vector<std::int32_t> const & patch, TeamProgress & progress)
    {
        if (patch.size() > m_rule.mostVertices)
            return false;
        Cutout const cutout = cutOut(patch);
        if (cutout.vertices.size() == patch.size() || leastHandles(cutout.plate) > mostHandles)
            return false;
        ThinPlate plate(cutout.plate, &progress);
        // Over several rims a membrane makes a neck, or closes each of them and leaves nothing between.
        bool const isDisc = !hasSeveralRims(cutout.plate);
        std::vector<Vec> stretched = cutout.plate.places;
        {
            CPrgCntSubPhase const phase(&progress, 0.0, 0.6, 0, true);
            if (!(isDisc ? plate.stretch(stretched, &progress) : plate.bend(stretched, 0.0, &progress)))
                return false;
        }
        std::vector<Vec> bent = stretched;
        {
            CPrgCntSubPhase const phase(&progress, 0.6, 0.3, 0, true);
            if (!plate.bend(bent, isDisc ? m_rule.trimDistance : 0.0, &progress))
                return false;
        }
        progress.SetPosFloat(0.9);
        std::vector<float> before;
        for (std::int32_t const v : patch)
            before.insert(before.end(), &m_mesh.positions[3 * at(v)], &m_mesh.positions[3 * at(v)] + 3);
        auto const restore = [&] {
            for (std::size_t n = 0; n < before.size(); ++n)
                m_mesh.positions[3 * at(patch[n / 3]) + n % 3] = before[n];
        };
        std::optional<Faults> accepted;
        double const areaBefore = areaOf(cutout);
        for (double const share : {1.0, 0.5, 0.0}) {
            auto const take = [&] {
                for (std::size_t n = 0; n < patch.size(); ++n)
                    (stretched[n] * (1 - share) + bent[n] * share + cutout.centre)
                        .store(&m_mesh.positions[3 * at(patch[n])]);
            };
            take();
            if (!isDisc && areaOf(cutout) < leastArea * areaBefore)
                continue;
            Faults const now = countFaults(cutout);
            if (!now.isWithin(fewFaults(cutout))) {
                if (!accepted) {
                    restore();
                    accepted = countFaults(cutout);
                    take();
                }
                if (!now.isWithin(*accepted))
                    continue;
            }
            renewNormals(patch);
            return true;
        }
        restore();
        return false;
    }

    struct Faults
    {
        std::size_t crossings = 0, folds = 0;
        bool isWithin(Faults const & most) const
        {
            return crossings <= most.crossings && folds <= most.folds;
        }
    };
    Faults countFaults(Cutout const & cutout) const
    {
        return {m_crossings->count(cutout.triangles, m_team), countFolds(cutout)};
    }
    static Faults fewFaults(Cutout const & cutout)
    {
        return {0, static_cast<std::size_t>(mostFolds * static_cast<double>(cutout.triangles.size()))};
    }

    double areaOf(Cutout const & cutout) const
    {
        double area = 0;
        for (std::int32_t const t : cutout.triangles)
            area += triangleOf(m_mesh, at(t)).area();
        return area;
    }

    // Edges along which triangles look in opposite directions.
    std::size_t countFolds(Cutout const & cutout) const
    {
        std::size_t folds = 0;
        for (std::int32_t const t : cutout.triangles) {
            Vec const normal = triangleOf(m_mesh, at(t)).areaNormal();
            for (std::int32_t h = 3 * t; h < 3 * t + 3; ++h) {
                std::int32_t const a = m_mesh.triangles[at(h)];
                std::int32_t const b = m_mesh.triangles[at(nextInTriangle(h))];
                for (std::int32_t const * k = m_stars->begin(b); k != m_stars->end(b); ++k) {
                    // An edge between two triangles of the patch is met twice.
                    if (m_mesh.triangles[at(nextInTriangle(*k))] == a)
                        folds += (a < b || !std::binary_search(cutout.triangles.begin(),
                                                               cutout.triangles.end(), *k / 3)) &&
                                 dot(normal, triangleOf(m_mesh, at(*k / 3)).areaNormal()) < 0;
                }
            }
        }
        return folds;
    }

    // By Euler's formula, with as many rims as there can be where they touch each other.
    static int leastHandles(PlatePatch const & plate)
    {
        std::vector<std::uint8_t> isMet(plate.places.size(), 0);
        std::vector<std::pair<std::int32_t, std::int32_t>> edges;
        int faces = 0;
        for (std::array<std::int32_t, 3> const & corners : plate.triangles) {
            if (std::min({corners[0], corners[1], corners[2]}) >= plate.free)
                continue;
            ++faces;
            for (std::size_t k = 0; k < 3; ++k) {
                isMet[at(corners[k])] = 1;
                edges.push_back(std::minmax(corners[k], corners[(k + 1) % 3]));
            }
        }
        std::sort(edges.begin(), edges.end());
        VertexSets rims(plate.places.size());
        std::vector<int> rimEdges(plate.places.size(), 0);
        int different = 0;
        for (std::size_t n = 0; n < edges.size();) {
            std::size_t const first = n;
            while (n < edges.size() && edges[n] == edges[first])
                ++n;
            ++different;
            if (n - first > 1)
                continue;
            rims.unite(edges[first].first, edges[first].second);
            ++rimEdges[at(edges[first].first)];
            ++rimEdges[at(edges[first].second)];
        }
        int vertices = 0;
        int mostRims = 0;
        int touches = 0;
        for (std::size_t v = 0; v < isMet.size(); ++v) {
            vertices += isMet[v];
            mostRims += rimEdges[v] > 0 && at(rims.find(static_cast<std::int32_t>(v))) == v;
            touches += std::max(0, rimEdges[v] / 2 - 1);
        }
        return 1 - (vertices + touches - different + faces + mostRims + touches) / 2;
    }

    // Has the patch a second rim that counts beside the longest? Around single samples in the gap it has
    // small ones, which change nothing.
    static bool hasSeveralRims(PlatePatch const & plate)
    {
        VertexSets sets(plate.places.size());
        std::vector<std::uint8_t> isRim(plate.places.size(), 0);
        for (std::array<std::int32_t, 3> const & corners : plate.triangles) {
            if (std::min({corners[0], corners[1], corners[2]}) >= plate.free)
                continue;
            for (std::size_t k = 0; k < 3; ++k) {
                std::int32_t const a = corners[k];
                std::int32_t const b = corners[(k + 1) % 3];
                isRim[at(a)] = a >= plate.free;
                if (a >= plate.free && b >= plate.free)
                    sets.unite(a, b);
            }
        }
        std::vector<std::size_t> lengths(plate.places.size(), 0);
        for (std::size_t v = 0; v < isRim.size(); ++v)
            lengths[at(sets.find(static_cast<std::int32_t>(v)))] += isRim[v];
        std::size_t const longest = *std::max_element(lengths.begin(), lengths.end());
        return std::count_if(lengths.begin(), lengths.end(), [&](std::size_t length) {
                   return static_cast<double>(length) > leastRim * static_cast<double>(longest);
               }) > 1;
    }

    void renewNormals(std::vector<std::int32_t> const & patch)
    {
        if (m_mesh.normals.empty())
            return;
        for (std::int32_t const v : patch) {
            Vec sum;
            for (std::int32_t const * h = m_stars->begin(v); h != m_stars->end(v); ++h)
                sum = sum + triangleOf(m_mesh, at(*h / 3)).areaNormal();
            double const length = sum.length();
            if (length > 0)
                (sum * (1 / length)).store(&m_mesh.normals[3 * at(v)]);
        }
    }

    TriangleMesh & m_mesh;
    SampleIndex const & m_samples;
    FairingRule const & m_rule;
    QzBackend::LoopTeam & m_team;
    std::optional<VertexStars> m_stars;
    std::optional<CrossingSearch> m_crossings;
    std::vector<std::uint8_t> m_isFree; // vertices that may move
    std::vector<std::int32_t> m_local;  // names of vertices in the cutout at work; -1 of all others
};

} // namespace

FairingFindings fairPatches(TriangleMesh & mesh, SampleIndex const & samples, FairingRule const & rule,
                            QzBackend::LoopTeam & team, double from, double until)
{
    return Fairing(mesh, samples, rule, team).run(from, until);
}

} // namespace QZmath::Stages

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/BoundaryStage.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>
#include <QZmath/Reconstruction/Mesh/SurfaceCut.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace QZmath::Stages
{

namespace
{

std::size_t const verticesPerPiece = 512;

// Distance to the samples from which the cut looks back at them.
double outlookOf(BoundaryRule const & rule) { return 2 * rule.trimDistance; }

// Which vertices are farther from the samples than the trim distance, and how far these and their neighbours
// are exactly.
struct Support
{
    std::vector<std::uint8_t> isFar;
    std::vector<std::size_t> farTriangles; // with at least one far corner
    std::vector<float> distances;          // of the corners of those, at most the outlook
    std::vector<std::int32_t> nearest;     // of them, none beyond the outlook

    Support(TriangleMesh const & mesh, SampleIndex const & samples, BoundaryRule const & rule,
            QzBackend::LoopTeam & team, double until)
        : isFar(mesh.vertexCount())
    {
        forRanges(
            team, isFar.size(), verticesPerPiece,
            [&](std::size_t begin, std::size_t end) {
                std::int32_t hint = SampleIndex::none;
                for (std::size_t v = begin; v < end; ++v) {
                    Vec const place = vertexOf(mesh, static_cast<std::int32_t>(v));
                    std::int32_t const found = samples.anyWithin(place, rule.trimDistance, hint);
                    isFar[v] = found == SampleIndex::none;
                    hint = isFar[v] ? hint : found;
                }
            },
            until);
        std::vector<std::uint8_t> isAsked;
        farTriangles = indicesWhere<std::size_t>(team, mesh.triangleCount(), [&](std::size_t t) {
            std::int32_t const * corners = &mesh.triangles[3 * t];
            return isFar[at(corners[0])] || isFar[at(corners[1])] || isFar[at(corners[2])];
        });
        isAsked.resize(farTriangles.empty() ? 0 : isFar.size());
        for (std::size_t const t : farTriangles) {
            std::int32_t const * corners = &mesh.triangles[3 * t];
            for (std::size_t k = 0; k < 3; ++k)
                isAsked[at(corners[k])] = 1;
        }
        distances.resize(isAsked.size());
        nearest.resize(isAsked.size());
        double const outlook = outlookOf(rule);
        forRanges(team, isAsked.size(), verticesPerPiece, [&](std::size_t begin, std::size_t end) {
            std::int32_t hint = SampleIndex::none;
            for (std::size_t v = begin; v < end; ++v) {
                if (!isAsked[v])
                    continue;
                SampleIndex::Nearest const found =
                    samples.nearest(vertexOf(mesh, static_cast<std::int32_t>(v)), outlook, hint);
                nearest[v] = found.sample;
                distances[v] = static_cast<float>(std::min(outlook, std::sqrt(found.squaredDistance)));
                hint = found.sample;
            }
        });
    }
};

// A connected part of the surface that no sample supports.
struct Patch
{
    double area = 0;
    std::size_t rim = 0;       // edges that lead out of it
    std::size_t markedRim = 0; // of them, those next to samples at the border of the object
    bool reachesBorder = false;
    bool isCut = false;
};

class BoundaryStage
{
public:
    BoundaryStage(TriangleMesh & mesh, SampleIndex const & samples, BoundaryRule const & rule,
                  QzBackend::LoopTeam & team, double until)
        : m_mesh(mesh), m_samples(samples), m_rule(rule), m_team(team),
          m_support(mesh, samples, rule, team, until)
    {}

    BoundaryFindings run()
    {
        m_findings.supportedArea = sumOver(m_team, m_mesh.triangleCount(),
                                           [&](std::size_t t) { return triangleOf(m_mesh, t).area(); });
        if (m_support.farTriangles.empty())
            return m_findings;
        findPatches();
        m_stars.emplace(m_mesh, m_team);
        measurePatches();
        judgePatches();
        if (m_isAnyCut) {
            lookBack();
            widenCut();
            cutOff(
                m_mesh, *m_stars, m_isOutside, [&](Vec const & place) { return isOutsideAt(place); }, m_team);
            m_stars.reset();
            compact(m_mesh, {}, m_team);
        }
        return m_findings;
    }

private:
    bool isFar(std::int32_t vertex) const { return m_support.isFar[at(vertex)] != 0; }
    double distanceOf(std::int32_t vertex) const { return m_support.distances[at(vertex)]; }
    Patch & patchOf(std::int32_t vertex) { return m_patches[at(m_patchOf[at(vertex)])]; }
    double inset() const { return std::min(m_rule.leafCell, 0.5 * m_rule.trimDistance); }

    // Share of a triangle that is far, its distances taken as linear in it.
    double farShare(std::int32_t const * corners) const
    {
        double const limit = m_rule.trimDistance;
        for (std::size_t k = 0; k < 3; ++k) {
            std::int32_t const self = corners[k];
            std::int32_t const x = corners[(k + 1) % 3];
            std::int32_t const y = corners[(k + 2) % 3];
            if (isFar(self) == isFar(x) || isFar(self) == isFar(y))
                continue;
            double const own = (distanceOf(self) - limit) / (distanceOf(self) - distanceOf(x)) *
                               (distanceOf(self) - limit) / (distanceOf(self) - distanceOf(y));
            double const share = std::isfinite(own) ? std::clamp(own, 0.0, 1.0) : 0.5;
            return isFar(self) ? share : 1 - share;
        }
        return 1;
    }

    void findPatches()
    {
        VertexSets sets(m_mesh.vertexCount());
        for (std::size_t const t : m_support.farTriangles) {
            std::int32_t const * corners = &m_mesh.triangles[3 * t];
            for (std::size_t k = 0; k < 3; ++k) {
                if (isFar(corners[k]) && isFar(corners[(k + 1) % 3]))
                    sets.unite(corners[k], corners[(k + 1) % 3]);
            }
        }
        m_patchOf.assign(m_mesh.vertexCount(), -1);
        std::int32_t patches = 0;
        for (std::size_t v = 0; v < m_patchOf.size(); ++v) {
            if (!m_support.isFar[v])
                continue;
            std::int32_t const root = sets.find(static_cast<std::int32_t>(v));
            m_patchOf[v] = at(root) == v ? patches++ : m_patchOf[at(root)];
        }
        m_patches.resize(at(patches));
    }

    void measurePatches()
    {
        for (std::size_t const t : m_support.farTriangles) {
            std::int32_t const * corners = &m_mesh.triangles[3 * t];
            std::size_t const first = isFar(corners[0]) ? 0 : isFar(corners[1]) ? 1 : 2;
            Patch & patch = patchOf(corners[first]);
            patch.area += farShare(corners) * triangleOf(m_mesh, t).area();
            for (std::size_t k = 0; k < 3; ++k) {
                std::int32_t const a = corners[k];
                std::int32_t const b = corners[(k + 1) % 3];
                if (isFar(a) != isFar(b)) {
                    std::int32_t const sample = m_support.nearest[at(isFar(a) ? b : a)];
                    ++patch.rim;
                    patch.markedRim +=
                        m_rule.boundaryMarks != nullptr && m_rule.boundaryMarks[at(sample)] != 0;
                }
                if (!patch.reachesBorder && (isFar(a) || isFar(b)))
                    patch.reachesBorder = isBorder(a, b);
            }
        }
    }

    // Is there no triangle on the other side of the half-edge from a to b?
    bool isBorder(std::int32_t a, std::int32_t b) const
    {
        return std::none_of(m_stars->begin(b), m_stars->end(b),
                            [&](std::int32_t h) { return m_mesh.triangles[at(nextInTriangle(h))] == a; });
    }

    void judgePatches()
    {
        for (Patch const & patch : m_patches)
            m_findings.supportedArea -= patch.area;
        m_findings.supportedArea = std::max(0.0, m_findings.supportedArea);
        double const least = m_rule.trimDistance * m_rule.trimDistance;
        for (Patch & patch : m_patches) {
            bool const isLarge = patch.area > m_rule.largestHole * m_findings.supportedArea;
            bool const isMarked = patch.rim > 0 && 2 * patch.markedRim >= patch.rim;
            switch (m_rule.boundary) {
            case Boundary::automatic:
                patch.isCut = isLarge || isMarked || patch.reachesBorder || patch.rim == 0;
                break;
            case Boundary::open:
                patch.isCut = true;
                break;
            case Boundary::closed:
                break;
            }
            m_isAnyCut = m_isAnyCut || patch.isCut;
            if (patch.isCut) {
                ++m_findings.patchesCut;
            } else if (patch.rim > 0 && !patch.reachesBorder) {
                m_findings.holesClosed += patch.area >= least;
                m_findings.closedArea += patch.area;
            }
        }
    }

    // Points from which to look back at the samples, each with the radius of the disc around it that is out.
    // They stand where the distance to the samples reaches the outlook in a patch that is cut, and where the
    // mesh ends before that.
    void lookBack()
    {
        m_isOutside.assign(m_mesh.vertexCount(), 0);
        std::vector<std::uint8_t> isBeyond(m_mesh.vertexCount(), 0);
        for (std::size_t v = 0; v < m_isOutside.size(); ++v) {
            m_isOutside[v] = m_patchOf[v] >= 0 && m_patches[at(m_patchOf[v])].isCut;
            isBeyond[v] = m_isOutside[v] && m_support.nearest[v] == SampleIndex::none;
        }
        double const outlook = outlookOf(m_rule);
        std::vector<EdgeCrossing> const crossings = findCrossings(
            m_mesh, isBeyond,
            [&](Vec const & place) { return m_samples.anyWithin(place, outlook) == SampleIndex::none; },
            m_team);
        std::vector<float> points;
        auto const add = [&](Vec const & place, double distance) {
            points.resize(points.size() + 3);
            place.store(&points[points.size() - 3]);
            m_reaches.push_back(distance - inset());
        };
        for (EdgeCrossing const & crossing : crossings)
            add(placeOf(m_mesh, crossing), outlook);
        for (std::size_t const t : m_support.farTriangles) {
            std::int32_t const * corners = &m_mesh.triangles[3 * t];
            Vec sum;
            int ends = 0;
            for (std::size_t k = 0; k < 3; ++k) {
                std::int32_t const a = corners[k];
                std::int32_t const b = corners[(k + 1) % 3];
                if (isBeyond[at(a)] != isBeyond[at(b)]) {
                    std::size_t const crossing =
                        isBeyond[at(b)] ? crossingOf(crossings, a, b) : crossingOf(crossings, b, a);
                    sum = sum + placeOf(m_mesh, crossings[crossing]);
                    ++ends;
                } else if (m_isOutside[at(a)] && m_isOutside[at(b)] && !isBeyond[at(a)] && isBorder(a, b)) {
                    add(vertexOf(m_mesh, a), distanceOf(a));
                    Vec const middle = (vertexOf(m_mesh, a) + vertexOf(m_mesh, b)) * 0.5;
                    double const distance = std::sqrt(m_samples.nearest(middle, outlook).squaredDistance);
                    if (distance > m_rule.trimDistance)
                        add(middle, std::min(distance, outlook));
                }
            }
            if (ends == 2)
                add(sum * 0.5, outlook);
        }
        m_lookouts.emplace(points.data(), m_reaches.size(), m_team);
    }

    bool isInDisc(Vec const & place) const
    {
        bool isIn = false;
        m_lookouts->forEachWithin(place, outlookOf(m_rule) - inset(),
                                  [&](std::int32_t lookout, double distance) {
                                      double const reach = m_reaches[at(lookout)];
                                      isIn = isIn || distance < reach * reach;
                                  });
        return isIn;
    }

    bool isOutsideAt(Vec const & place) const
    {
        return m_samples.anyWithin(place, m_rule.trimDistance) == SampleIndex::none || isInDisc(place);
    }

    // Takes what lies in the discs to the outside as well, as far as it is connected to it.
    void widenCut()
    {
        std::vector<std::uint8_t> isIn(m_mesh.vertexCount(), 0);
        forRanges(m_team, isIn.size(), verticesPerPiece, [&](std::size_t begin, std::size_t end) {
            for (std::size_t v = begin; v < end; ++v)
                isIn[v] = !m_isOutside[v] && isInDisc(vertexOf(m_mesh, static_cast<std::int32_t>(v)));
        });
        std::vector<std::int32_t> open;
        for (std::size_t v = 0; v < m_isOutside.size(); ++v) {
            if (m_isOutside[v])
                open.push_back(static_cast<std::int32_t>(v));
        }
        while (!open.empty()) {
            std::int32_t const vertex = open.back();
            open.pop_back();
            for (std::int32_t const * h = m_stars->begin(vertex); h != m_stars->end(vertex); ++h) {
                for (std::int32_t const corner : {nextInTriangle(*h), previousInTriangle(*h)}) {
                    std::int32_t const other = m_mesh.triangles[at(corner)];
                    if (isIn[at(other)] && !m_isOutside[at(other)]) {
                        m_isOutside[at(other)] = 1;
                        open.push_back(other);
                    }
                }
            }
        }
    }

    TriangleMesh & m_mesh;
    SampleIndex const & m_samples;
    BoundaryRule const & m_rule;
    QzBackend::LoopTeam & m_team;
    Support const m_support;
    std::vector<std::int32_t> m_patchOf; // of the far vertices
    std::vector<Patch> m_patches;        // in the order of their first vertices
    std::optional<VertexStars> m_stars;
    bool m_isAnyCut = false;
    std::vector<std::uint8_t> m_isOutside; // vertices that are cut off
    std::optional<SampleIndex> m_lookouts;
    std::vector<double> m_reaches; // of them
    BoundaryFindings m_findings;
};

} // namespace

BoundaryFindings settleBoundary(TriangleMesh & mesh, SampleIndex const & samples, BoundaryRule const & rule,
                                QzBackend::LoopTeam & team, double until)
{
    return BoundaryStage(mesh, samples, rule, team, until).run();
}

} // namespace QZmath::Stages

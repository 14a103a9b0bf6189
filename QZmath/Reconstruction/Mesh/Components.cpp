// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Components.h>

#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/Ranges.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace QZmath::Stages
{

namespace
{

std::size_t const leastSamples = 4; // that support a piece

struct Component
{
    std::size_t triangles = 0;
    std::array<std::int32_t, leastSamples>
        supporters{}; // different samples next to it, as far as they matter
    std::size_t supportersFound = 0;
    std::size_t samples = 0;
    bool isKept = false;

    void support(std::int32_t sample)
    {
        auto const end = supporters.begin() + static_cast<std::ptrdiff_t>(supportersFound);
        if (std::find(supporters.begin(), end, sample) == end)
            supporters[supportersFound++] = sample;
    }
};

// The component of each vertex; -1 for those without triangles. They are numbered by their least vertices.
std::vector<std::int32_t> findComponents(TriangleMesh const & mesh, std::vector<Component> & components,
                                         QzBackend::LoopTeam & team)
{
    std::size_t const perPiece = 8192;
    VertexSets sets(mesh.vertexCount());
    RawArray<std::atomic<std::uint8_t>> isUsed(mesh.vertexCount());
    forRanges(team, isUsed.size(), perPiece, [&](std::size_t begin, std::size_t end) {
        for (std::size_t v = begin; v < end; ++v)
            isUsed[v].store(0, std::memory_order_relaxed);
    });
    forRanges(team, mesh.triangleCount(), perPiece, [&](std::size_t begin, std::size_t end) {
        for (std::size_t t = begin; t < end; ++t) {
            std::int32_t const * corners = &mesh.triangles[3 * t];
            sets.unite(corners[0], corners[1]);
            sets.unite(corners[0], corners[2]);
            for (std::size_t k = 0; k < 3; ++k)
                isUsed[at(corners[k])].store(1, std::memory_order_relaxed);
        }
    });
    std::vector<std::int32_t> componentOf(mesh.vertexCount());
    forRanges(team, componentOf.size(), perPiece, [&](std::size_t begin, std::size_t end) {
        for (std::size_t v = begin; v < end; ++v)
            componentOf[v] =
                isUsed[v].load(std::memory_order_relaxed) != 0 ? sets.find(static_cast<std::int32_t>(v)) : -1;
    });
    std::vector<std::int32_t> const roots =
        indicesWhere<std::int32_t>(team, componentOf.size(), [&](std::size_t v) {
            return componentOf[v] == static_cast<std::int32_t>(v);
        });
    components.resize(roots.size());
    forRanges(team, componentOf.size(), perPiece, [&](std::size_t begin, std::size_t end) {
        for (std::size_t v = begin; v < end; ++v) {
            if (componentOf[v] >= 0)
                componentOf[v] = static_cast<std::int32_t>(
                    std::lower_bound(roots.begin(), roots.end(), componentOf[v]) - roots.begin());
        }
    });
    // Triangles in a row mostly belong to one component.
    struct Run
    {
        std::int32_t component;
        std::size_t triangles;
    };
    std::vector<std::vector<Run>> runs((mesh.triangleCount() + perPiece - 1) / perPiece);
    forRanges(team, mesh.triangleCount(), perPiece, [&](std::size_t begin, std::size_t end) {
        std::vector<Run> & mine = runs[begin / perPiece];
        for (std::size_t t = begin; t < end; ++t) {
            std::int32_t const component = componentOf[at(mesh.triangles[3 * t])];
            if (mine.empty() || mine.back().component != component)
                mine.push_back({component, 0});
            ++mine.back().triangles;
        }
    });
    for (std::vector<Run> const & some : runs)
        for (Run const & run : some)
            components[at(run.component)].triangles += run.triangles;
    return componentOf;
}

} // namespace

ComponentFindings keepComponents(TriangleMesh & mesh, SampleIndex const & samples, ComponentRule const & rule,
                                 QzBackend::LoopTeam & team, double until)
{
    std::vector<Component> components;
    std::vector<std::int32_t> const componentOf = findComponents(mesh, components, team);
    for (std::size_t v = 0; v < componentOf.size(); ++v) {
        if (componentOf[v] < 0)
            continue;
        Component & component = components[at(componentOf[v])];
        if (component.supportersFound == leastSamples)
            continue;
        SampleIndex::Nearest const found =
            samples.nearest(vertexOf(mesh, static_cast<std::int32_t>(v)), rule.supportDistance);
        if (found.sample != SampleIndex::none)
            component.support(found.sample);
    }
    double const least = rule.smallest * static_cast<double>(mesh.triangleCount());
    for (Component & component : components)
        component.isKept =
            component.supportersFound == leastSamples && static_cast<double>(component.triangles) >= least;

    if (!rule.keepAll && components.size() > 1) {
        SampleIndex const vertices(mesh.positions.data(), mesh.vertexCount(), team);
        std::vector<std::int32_t> nearest(samples.size());
        forRanges(
            team, nearest.size(), 512,
            [&](std::size_t begin, std::size_t end) {
                std::int32_t hint = SampleIndex::none;
                for (std::size_t slot = begin; slot < end; ++slot) {
                    nearest[slot] =
                        vertices
                            .nearest(samples.positionOf(samples.sampleAt(slot)), rule.supportDistance, hint)
                            .sample;
                    hint = nearest[slot];
                }
            },
            until);
        for (std::int32_t const vertex : nearest) {
            if (vertex != SampleIndex::none && componentOf[at(vertex)] >= 0)
                ++components[at(componentOf[at(vertex)])].samples;
        }
        Component * best = nullptr;
        for (Component & component : components) {
            if (component.isKept && (best == nullptr || component.samples > best->samples))
                best = &component;
            component.isKept = false;
        }
        if (best != nullptr)
            best->isKept = true;
    }

    ComponentFindings findings;
    findings.found = static_cast<int>(components.size());
    for (Component const & component : components)
        ++(component.isKept ? findings.kept : findings.dropped);
    if (findings.dropped > 0) {
        std::vector<std::uint8_t> keep(mesh.triangleCount());
        for (std::size_t t = 0; t < keep.size(); ++t)
            keep[t] = components[at(componentOf[at(mesh.triangles[3 * t])])].isKept;
        compact(mesh, keep, team);
    }
    return findings;
}

} // namespace QZmath::Stages

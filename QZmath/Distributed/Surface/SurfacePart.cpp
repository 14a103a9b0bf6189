// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/SurfacePart.h>

#include <QZmath/Distributed/Surface/CubeOwners.h>
#include <QZmath/Distributed/Surface/PartMesh.h>
#include <QZmath/Distributed/Surface/RankPeers.h>
#include <QZmath/Distributed/Surface/RankWalk.h>
#include <QZmath/Distributed/Surface/SampleSpacing.h>
#include <QZmath/Distributed/Surface/Steps.h>

#include <QZmath/Backend/FreeMemory.h>
#include <QZmath/Backend/Parallel.h>
#include <QZmath/Reconstruction/Call/MeshTarget.h>
#include <QZmath/Reconstruction/Mesh/Attributes.h>
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZmath/VolTriang/Bricks/BrickSurface.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/BrickedFunction.h>
#include <QZmath/VolTriang/Stages/IsoSurface.h>
#include <QZmath/VolTriang/Stages/LevelSet.h>
#include <QZmath/VolTriang/Stages/MeshSink.h>
#include <QZmath/VolTriang/Stages/Refinement.h>
#include <QZmath/VolTriang/Stages/RefiningSink.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/Stages/SurfaceWalk.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace QZmath::Distributed
{

using QzBackend::LoopTeam;
using Stages::at;
using VolTr::CubeFrame;
using VolTr::CubeIndex;

namespace
{

// In leaf cells; as in one process.
double const spacingThatWarns = 4.5;

// Of an edge, from the least corner of the octree's cube to the next plane of the lattice's corners: no
// simple part, so that the planes run neither along cells of the octree nor in the middle of them, where
// symmetric objects have their faces.
double const latticeShift = 0.38;

VolTr::CVolTriangulationParams partParams(VolTr::CVolTriangulationParams params,
                                          DistributedOptions const & options, double trimDistance)
{
    params.setAllComponents(true);
    params.setReach(trimDistance);
    params.setRefine(options.refine);
    params.setEstimateResultNormals(options.vertexNormals);
    return params;
}

VolTr::StageContext withParams(VolTr::StageContext const & context,
                               VolTr::CVolTriangulationParams const & params)
{
    return {context.samples,  params,      context.octree, context.basis,  context.density,
            context.progress, context.log, context.report, context.threads};
}

CubeFrame latticeOf(VolTr::StageContext const & context)
{
    CubeFrame frame;
    frame.edge = VolTr::polygoniserEdge(context);
    for (std::size_t axis = 0; axis < 3; ++axis)
        frame.start[axis] = context.octree.getBoxMin()[axis] + (0.5 + latticeShift) * frame.edge;
    return frame;
}

// Like `CPrgCntSubPhase`. To open one is a progress operation, which may end the rank, so all meet there.
class RankPhase
{
public:
    RankPhase(Communicator const & ranks, CProgressCounter * progress, double start, double length)
    {
        ranks.together([&] { m_phase.emplace(progress, start, length, 0, true); });
    }

private:
    std::optional<CPrgCntSubPhase> m_phase;
};

// Looks at one call from outside of its stages: they are local work, and what stands between them is not.
class SurfacePart
{
public:
    explicit SurfacePart(SurfaceInput const & input)
        : m_input(input), m_ranks(input.ranks), m_trimDistance(findTrimDistance()),
          m_params(partParams(input.context.params, input.options, m_trimDistance)),
          m_context(withParams(input.context, m_params)), m_frame(latticeOf(m_context)),
          m_owners(input.partition, m_frame, m_context.octree.getBoxMin(),
                   m_context.octree.getCellSize(input.partition.unitDepth())),
          m_evaluation(input.function)
    {}

    void run(MeshPart & mesh, DistributedReport & report)
    {
        {
            RankPhase const phase(m_ranks, m_context.progress, 0.0, 0.8);
            gatherFarSamples();
            findMesh();
        }
        if (m_input.releaseFunction)
            m_input.releaseFunction();
        QzBackend::returnFreedMemory(static_cast<double>(m_input.cloud.size()));
        {
            RankPhase const phase(m_ranks, m_context.progress, 0.8, 0.1);
            trim();
        }
        dropPieces();
        {
            RankPhase const phase(m_ranks, m_context.progress, 0.9, 0.1);
            addColours();
        }
        m_samples.reset();
        handOver(mesh);
        report.spacing = m_spacing * m_context.octree.getUnit();
        if (m_spacing > spacingThatWarns)
            report.warnings.push_back("the samples are " + std::to_string(static_cast<int>(m_spacing)) +
                                      " or more leaf cells apart, so gaps may stay open between them: take "
                                      "larger cells");
        report.surfaceRounds = m_rounds;
        report.componentsFound = m_pieces.found;
        report.componentsKept = m_pieces.kept;
        report.isClosed = m_isClosed;
    }

private:
    double findTrimDistance();
    template <class Work>
    void inTeam(Work const & work) const
    {
        LoopTeam::run(m_context.threads, m_context.progress, work);
    }

    std::unique_ptr<VolTr::SampleSurface> fit();
    void findMesh();
    void walk(VolTr::TriangleSink & sink);
    void beginNearSamples(RankWalk & walk) const;
    void trim();
    void dropPieces();
    void addColours();
    void handOver(MeshPart & mesh);
    void gatherFarSamples();
    Stages::SampleIndex const & samples();
    void share(std::size_t vertices) { m_shared = SharedVertices(m_ranks, m_part.border, vertices); }

    SurfaceInput const & m_input;
    Communicator const & m_ranks;
    double m_spacing = 0.0;      // of the samples, in leaf cells
    double const m_trimDistance; // in leaf cells; 0 when nothing is cut off
    VolTr::CVolTriangulationParams const m_params;
    VolTr::StageContext const m_context;
    CubeFrame const m_frame;
    CubeOwners const m_owners;
    VolTr::BrickEvaluation const m_evaluation;
    PartMesh m_part;
    SharedVertices m_shared;
    std::optional<Stages::SampleIndex> m_samples;
    std::vector<float> m_farSamples; // 3 coordinates each
    PieceFindings m_pieces;
    int m_rounds = 0;
    bool m_isClosed = false;
};

double SurfacePart::findTrimDistance()
{
    if (m_input.options.trimDistance < 0.0)
        return 0.0;
    double const leafCell = m_input.context.octree.getUnit();
    m_spacing = measureSpacing(m_ranks, m_input.cloud, m_input.context) / leafCell;
    return std::min(m_input.options.trimDistance * std::max(1.0, m_spacing), greatestTrimDistance);
}

// What the samples of all ranks say of the surface here; null when none is wanted or there is nothing to see.
std::unique_ptr<VolTr::SampleSurface> SurfacePart::fit()
{
    std::unique_ptr<VolTr::SampleSurface> surface;
    if (!m_input.options.refine)
        return surface;
    Steps steps(m_ranks);
    RankPeers peers(steps, m_input.cloud, m_owners, m_context.octree.getUnit());
    steps.run([&] {
        surface = VolTr::fitToSamples(m_context, m_evaluation, m_input.isoValue, m_frame.edge, &peers);
    });
    return surface;
}

void SurfacePart::findMesh()
{
    std::unique_ptr<VolTr::SampleSurface> surface;
    {
        RankPhase const phase(m_ranks, m_context.progress, 0.0, 0.3);
        surface = fit();
    }
    QzBackend::returnFreedMemory(static_cast<double>(m_input.cloud.size()));
    MeshTarget target(m_part.mesh, m_input.options.vertexNormals);
    if (surface != nullptr) {
        VolTr::RefiningSink sink(*surface, m_evaluation, m_frame.edge, m_context, target, INT_MAX);
        {
            RankPhase const phase(m_ranks, m_context.progress, 0.3, 0.5);
            walk(sink);
        }
        QzBackend::returnFreedMemory(static_cast<double>(m_input.cloud.size()));
        share(static_cast<std::size_t>(sink.vertexCount()));
        Steps steps(m_ranks);
        sink.setMarkExchange([&](std::vector<char> & marks) {
            steps.meet();
            m_shared.unite(marks);
            std::int64_t const marked = std::count(marks.begin(), marks.end(), 1);
            return m_ranks.sum(marked) > 0;
        });
        RankPhase const phase(m_ranks, m_context.progress, 0.8, 0.2);
        steps.run([&] { sink.complete(); });
    } else {
        VolTr::MeshSink sink(target, m_evaluation, 4.0 * m_frame.edge, m_context, INT_MAX);
        RankPhase const phase(m_ranks, m_context.progress, 0.3, 0.7);
        walk(sink);
        m_ranks.together([&] { sink.finish(); });
        share(m_part.mesh.vertexCount());
    }
    m_shared.spread(m_part.mesh.positions, 3);
    if (m_input.options.vertexNormals)
        m_shared.spread(m_part.mesh.normals, 3);
}

// Mostly the walks before have been near a sample. Which these are is found out for many at a time, so that
// few are left to be asked one after the other.
void SurfacePart::beginNearSamples(RankWalk & walk) const
{
    auto const cubeOf = [&](int sample) -> CubeIndex {
        float const * const point = m_context.samples.getSampleCoords3(sample);
        return {m_frame.indexOf(point[0], 0), m_frame.indexOf(point[1], 1), m_frame.indexOf(point[2], 2)};
    };
    int const samplesNumber = m_context.samples.pointsNumber();
    int const samplesPerTask = 1024;
    std::vector<std::uint8_t> isLeft;
    int length = 4 * samplesPerTask;
    for (int first = 0; first < samplesNumber; first += length) {
        length = std::min(samplesNumber - first, std::min(2 * length, 1 << 20));
        isLeft.assign(static_cast<std::size_t>(length), 0);
        inTeam([&](LoopTeam & team) {
            team.forEach((length + samplesPerTask - 1) / samplesPerTask, [&](int task) {
                for (int n = task * samplesPerTask; n < std::min(length, (task + 1) * samplesPerTask); ++n)
                    isLeft[at(n)] = !walk.isSettled(cubeOf(first + n));
            });
        });
        for (int n = 0; n < length; ++n) {
            if (isLeft[at(n)] != 0)
                walk.beginNear(cubeOf(first + n));
        }
        if (m_context.progress != nullptr)
            m_context.progress->SetPosFloat(0.3 + 0.6 * (first + length) / samplesNumber);
    }
}

void SurfacePart::walk(VolTr::TriangleSink & sink)
{
    std::optional<VolTr::BrickSurface> surface;
    std::optional<VolTr::SupportedCubes> support;
    std::optional<RankWalk> walk;
    m_ranks.together([&] {
        // Cubes of no walk may lie farther out than the octree's nodes and some leaf cells.
        double const extent = 2.0 * m_context.octree.getCellSize(0) / m_frame.edge + 256.0;
        int const bound = static_cast<int>(std::min(extent, static_cast<double>(1 << 30)));
        int const bounds[3] = {bound, bound, bound};
        surface.emplace(m_input.function, m_input.isoValue, m_frame.start.data(), m_frame.edge, bounds,
                        nullptr);
        surface->makeCrossingsContinuous();
        {
            CPrgCntSubPhase phase(m_context.progress, 0.0, 0.3, 0, true);
            int const around = 3; // edges, from which a vertex may ask for a value
            LoopTeam::run(m_context.threads, m_context.progress, [&](LoopTeam & team) {
                surface->prepare(team, [&](CubeIndex const & first) {
                    CubeIndex low = first;
                    CubeIndex high = first;
                    for (std::size_t axis = 0; axis < 3; ++axis) {
                        low[axis] -= around;
                        high[axis] += VolTr::BrickSurface::brickCorners - 1 + around;
                    }
                    return m_owners.mayHave(m_ranks.rank(), low, high);
                });
            });
        }
        sink.expectVertices(surface->solvedEdges());
        support = VolTr::findSupportedCubes(m_frame, m_context);
        for (std::size_t n = 0; n < m_farSamples.size() && support; n += 3)
            support->add(&m_farSamples[n]);
        VolTr::LevelSet const levelSet = {
            m_input.isoValue,
            {m_frame.edge,
             {bound, bound, bound},
             REmath::Point3D_d(m_frame.start[0], m_frame.start[1], m_frame.start[2])},
            nullptr};
        walk.emplace(RankWalk::Input{*surface, m_owners, m_ranks.rank(), m_ranks.size(),
                                     VolTr::findLimits(m_frame, levelSet, m_context),
                                     support ? &*support : nullptr, sink});
        beginNearSamples(*walk);
    });
    for (;;) {
        std::vector<std::vector<CubeIndex>> const crossings = walk->takeCrossings();
        std::int64_t number = 0;
        for (std::vector<CubeIndex> const & cubes : crossings)
            number += static_cast<std::int64_t>(cubes.size());
        ++m_rounds;
        if (m_ranks.sum(number) == 0)
            break;
        std::vector<CubeIndex> const entered = m_ranks.exchange(crossings);
        m_ranks.together([&] {
            for (CubeIndex const & cube : entered)
                walk->enter(cube);
        });
    }
    m_ranks.together([&] {
        surface->passOn(sink);
        m_part.border = walk->takeBorder();
    });
}

Stages::SampleIndex const & SurfacePart::samples()
{
    if (!m_samples)
        inTeam([&](LoopTeam & team) {
            m_samples.emplace(m_input.cloud.positions.data(), m_input.cloud.size(), team);
        });
    return *m_samples;
}

// What a large trim distance asks for beyond the margin: the places of all samples that may support something
// here. With them come those of the margin once more.
void SurfacePart::gatherFarSamples()
{
    // Marks of supported cubes err by up to the distance, and cubes beside the territory count as well.
    double const cells = 2.0 * m_trimDistance + 8.0;
    if (!(cells > m_input.cloud.margins.samples) || m_ranks.size() == 1)
        return;
    std::vector<std::vector<float>> toRanks(static_cast<std::size_t>(m_ranks.size()));
    m_ranks.together([&] {
        double const distance = cells * m_context.octree.getUnit();
        RanksNear near(m_input.partition);
        RankCloud const & cloud = m_input.cloud;
        for (std::size_t sample = 0; sample < cloud.size(); ++sample) {
            if (cloud.isOwn[sample] == 0)
                continue;
            float const * const place = &cloud.positions[3 * sample];
            double low[3];
            double high[3];
            for (std::size_t axis = 0; axis < 3; ++axis) {
                low[axis] = place[axis] - distance;
                high[axis] = place[axis] + distance;
            }
            for (int const rank : near.of(m_owners.unitAt(low), m_owners.unitAt(high))) {
                if (rank != m_ranks.rank())
                    toRanks[at(rank)].insert(toRanks[at(rank)].end(), place, place + 3);
            }
        }
    });
    m_farSamples = m_ranks.exchange(toRanks);
}

void SurfacePart::trim()
{
    if (m_trimDistance == 0.0) {
        m_part.border = m_shared.border();
        return;
    }
    std::int64_t first = 0;
    std::vector<std::int64_t> const numbers =
        numberVertices(m_ranks, m_shared, m_part.mesh.vertexCount(), first);
    m_ranks.together([&] {
        double const distance = m_trimDistance * m_context.octree.getUnit();
        if (m_farSamples.empty()) {
            Stages::SampleIndex const & index = samples();
            inTeam([&](LoopTeam & team) { trimPart(m_part, m_shared, numbers, index, distance, team); });
        } else {
            std::vector<float> & all = m_farSamples;
            all.insert(all.end(), m_input.cloud.positions.begin(), m_input.cloud.positions.end());
            inTeam([&](LoopTeam & team) {
                Stages::SampleIndex const index(all.data(), all.size() / 3, team);
                trimPart(m_part, m_shared, numbers, index, distance, team);
            });
        }
        dropUnused(m_part);
    });
    share(m_part.mesh.vertexCount());
}

void SurfacePart::dropPieces()
{
    m_pieces = dropSmallPieces(m_ranks, m_part, m_shared, m_input.options.smallestComponent);
    if (m_pieces.kept == m_pieces.found)
        return;
    m_ranks.together([&] {
        m_part.border = m_shared.border();
        dropUnused(m_part);
    });
    share(m_part.mesh.vertexCount());
}

void SurfacePart::addColours()
{
    RankCloud const & cloud = m_input.cloud;
    std::int64_t const hasColours = cloud.colors.empty() ? 0 : 1;
    if (!m_input.options.vertexColors || m_ranks.greatest(hasColours) == 0)
        return;
    m_ranks.together([&] {
        double const leafCell = m_context.octree.getUnit();
        double const refined = m_context.report.refinement.width;
        double const width = refined > 0.0 ? std::min(refined, leafCell) : leafCell;
        Stages::SampleIndex const & index = samples();
        inTeam([&](LoopTeam & team) {
            Stages::colourVertices(m_part.mesh, index, cloud.colors.data(), cloud.normals.data(), width,
                                   team);
        });
    });
}

void SurfacePart::handOver(MeshPart & mesh)
{
    TriangleMesh & part = m_part.mesh;
    mesh = MeshPart();
    std::int64_t first = 0;
    std::vector<std::int64_t> const numbers = numberVertices(m_ranks, m_shared, part.vertexCount(), first);
    m_isClosed = countBorderEdges(m_ranks, part, m_shared, numbers, first) == 0;
    m_ranks.together([&] {
        auto const take = [&](auto & from, auto & to) {
            std::size_t own = 0;
            for (std::size_t vertex = 0; vertex < numbers.size() && !from.empty(); ++vertex) {
                if (!m_shared.isOwn(vertex))
                    continue;
                for (std::size_t axis = 0; axis < 3; ++axis)
                    from[own + axis] = from[3 * vertex + axis];
                own += 3;
            }
            from.resize(own);
            to = std::move(from);
        };
        mesh.triangles.reserve(part.triangles.size());
        for (std::int32_t const corner : part.triangles)
            mesh.triangles.push_back(numbers[at(corner)]);
        take(part.positions, mesh.positions);
        take(part.normals, mesh.normals);
        take(part.colors, mesh.colors);
    });
    mesh.firstVertex = first;
    mesh.firstTriangle = m_ranks.sumBefore(static_cast<std::int64_t>(mesh.ownTriangles()));
    mesh.vertices = m_ranks.sum(static_cast<std::int64_t>(mesh.ownVertices()));
    mesh.triangleCount = m_ranks.sum(static_cast<std::int64_t>(mesh.ownTriangles()));
    m_ranks.together([&] {
        if (mesh.triangleCount == 0)
            throw ReconstructionError(ReconstructionError::Kind::failed,
                                      "nothing is left of the surface: no piece of it is near samples");
    });
}

} // namespace

void extractSurface(SurfaceInput const & input, MeshPart & mesh, DistributedReport & report)
{
    SurfacePart(input).run(mesh, report);
}

} // namespace QZmath::Distributed

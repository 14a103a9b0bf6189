// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/DistributedReconstruction.h>

#include <QZmath/Distributed/Cloud/CloudTravel.h>
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/Field/Checkpoint.h>
#include <QZmath/Distributed/Field/ImplicitField.h>
#include <QZmath/Distributed/Ranks/Petsc.h>
#include <QZmath/Distributed/Surface/SurfacePart.h>

#include <QZmath/Backend/FreeMemory.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include <sys/resource.h>

namespace QZmath::Distributed
{

namespace
{

using Kind = ReconstructionError::Kind;

void refuse(std::string const & what) { throw ReconstructionError(Kind::options, what); }

// The cores of the machine, dealt out among the ranks on it.
int threadsOf(Communicator const & ranks, DistributedOptions const & options)
{
    MPI_Comm machine = MPI_COMM_NULL;
    MPI_Comm_split_type(ranks.get(), MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &machine);
    int neighbours = 1;
    MPI_Comm_size(machine, &neighbours);
    MPI_Comm_free(&machine);
    int const cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    return options.threads > 0 ? options.threads : std::max(1, cores / neighbours);
}

std::int64_t peakMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return std::int64_t{usage.ru_maxrss} * 1024;
}

// One call: the phases in their order. All members are collective.
class Run
{
public:
    Run(Communicator const & ranks, DistributedOptions const & options, DistributedReport & report,
        CProgressCounter * progress)
        : m_ranks(ranks), m_options(options), m_report(report), m_progress(progress),
          m_threads(threadsOf(ranks, options))
    {}

    /// \param release called when the local points are not needed any more
    void run(PointCloudView const & localPoints, std::function<void()> const & release, MeshPart & mesh);

private:
    // The progress goes from the end of the phase before to `end`.
    template <class Work>
    void inPhase(char const * name, double end, Work const & work)
    {
        using Clock = std::chrono::steady_clock;
        Clock::time_point const begin = Clock::now();
        {
            std::optional<CPrgCntSubPhase> part;
            m_ranks.together([&] { part.emplace(m_progress, m_position, end - m_position, 0, true); });
            work();
        }
        m_position = end;
        double const seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        m_report.phases.push_back({name, m_ranks.greatest(seconds), m_ranks.greatest(peakMemory())});
    }
    void gather(PointCloudView const & localPoints);
    void gatherAgain();

    Communicator const & m_ranks;
    DistributedOptions m_options;
    DistributedReport & m_report;
    CProgressCounter * const m_progress;
    int const m_threads;
    double m_position = 0.0;
    CloudFrame m_frame;
    std::optional<Partition> m_partition;
    std::optional<Checkpoint> m_before;
    RankCloud m_cloud;
};

void Run::gather(PointCloudView const & localPoints)
{
    std::int64_t const own = static_cast<std::int64_t>(localPoints.size);
    m_cloud =
        gatherCloud(m_ranks, localPoints, m_ranks.sumBefore(own), m_options, m_frame, m_partition, m_report);
}

// The samples of an earlier run.
void Run::gatherAgain()
{
    m_before.emplace(m_ranks, m_options.resume);
    m_before->open();
    if (m_options.depth == 0 && m_options.cellSize == 0.0)
        m_options.depth = m_before->depth();
    PointCloud const points = m_before->readSamples();
    gather(points.view());
    m_ranks.together([&] {
        if (m_before->hasSolution() && m_frame.depth != m_before->depth())
            refuse("the solution to resume from is of depth " + std::to_string(m_before->depth()) +
                   ", and another depth is asked for");
    });
}

void Run::run(PointCloudView const & localPoints, std::function<void()> const & release, MeshPart & mesh)
{
    CThreadNumberScope const threads(m_threads);
    inPhase("distribution", 0.15, [&] { m_options.resume.empty() ? gather(localPoints) : gatherAgain(); });
    release();
    QzBackend::returnFreedMemory(static_cast<double>(m_cloud.size()));
    std::optional<Checkpoint> written;
    if (!m_options.checkpoint.empty()) {
        written.emplace(m_ranks, m_options.checkpoint);
        inPhase("checkpoint", 0.17, [&] { written->writeSamples(m_cloud, m_frame); });
    }
    VolTr::TreeCube const cube = treeCubeOf(m_frame);
    ImplicitField field(m_ranks, *m_partition, m_cloud, cube, m_options, m_frame.depth, m_threads, m_report,
                        m_progress);
    inPhase("tree", 0.22, [&] { field.buildTree(); });
    inPhase("density", 0.3, [&] { field.estimateDensity(); });
    inPhase("splat", 0.35, [&] { field.splat(); });
    bool const isSolved = m_before && m_before->hasSolution();
    inPhase("solve", 0.55, [&] {
        std::vector<float> amplitudes = isSolved ? m_before->readSolution(field.lattice()) : field.solve();
        if (written)
            written->writeSolution(field.lattice(), amplitudes, m_frame);
        field.take(std::move(amplitudes));
    });
    inPhase("iso-value", 0.6, [&] { field.findIsoValue(); });
    QzBackend::returnFreedMemory(static_cast<double>(m_cloud.size()));
    inPhase("surface", 1.0, [&] {
        VolTr::StageContext const stage = field.context();
        extractSurface({m_ranks, *m_partition, m_cloud, stage, field.function(), field.isoValue(), m_options,
                        [&field] { field.release(); }},
                       mesh, m_report);
    });
    m_report.spacing /= m_frame.scale;
    mesh.origin = m_frame.origin;
    if (m_frame.scale != 1.0) {
        for (float & coord : mesh.positions)
            coord = static_cast<float>(static_cast<double>(coord) / m_frame.scale);
    }
}

void reconstructAll(MPI_Comm comm, PointCloudView const & localPoints, std::function<void()> const & release,
                    DistributedOptions const & options, MeshPart & mesh, DistributedReport * report,
                    CProgressCounter * progress)
{
    DistributedReport unread;
    DistributedReport & filled = report != nullptr ? *report : unread;
    filled = DistributedReport();
    mesh = MeshPart();
    Communicator const ranks(comm);
    ranks.together([&] {
        options.check();
        if (!options.resume.empty() && localPoints.size > 0)
            refuse("a run that is resumed takes no points");
    });
    ensurePetsc();
    Run(ranks, options, filled, progress).run(localPoints, release, mesh);
}

} // namespace

void DistributedOptions::check() const
{
    auto const isIn = [](double value, double least, double most) { return value >= least && value <= most; };
    if (depth == 0 && !(cellSize > 0.0) && resume.empty())
        refuse("the size of the cells is needed: depth or cellSize");
    if (depth != 0 && !isIn(depth, 2, 21))
        refuse("depth " + std::to_string(depth) + " is out of range: 2 to 21");
    if (!isIn(cellSize, 0.0, 1e300))
        refuse("cellSize is out of range: 0 or more");
    if (!(trimDistance < 0.0) && !isIn(trimDistance, 0.5, greatestTrimDistance))
        refuse("trimDistance is out of range: 0.5 to 100, or below 0");
    if (!isIn(smallestComponent, 0.0, 1.0))
        refuse("smallestComponent is out of range: 0 to 1");
    if (normalNeighbours < 3 || normalNeighbours > 1000)
        refuse("normalNeighbours is out of range: 3 to 1000");
    if (!std::isfinite(viewpoint[0] + viewpoint[1] + viewpoint[2]))
        refuse("viewpoint is not finite");
    if (threads < 0)
        refuse("threads is out of range: 0 or more");
    if (!isIn(tolerance, 0.0, 0.5))
        refuse("tolerance is out of range: 0 to 0.5");
    if (maxIterations < 1)
        refuse("maxIterations is out of range: 1 or more");
    if (!checkpoint.empty() && checkpoint == resume)
        refuse("checkpoint and resume are the same folder");
}

void reconstructDistributed(MPI_Comm comm, PointCloudView const & localPoints,
                            DistributedOptions const & options, MeshPart & mesh, DistributedReport * report,
                            CProgressCounter * progress)
{
    reconstructAll(
        comm, localPoints, [] {}, options, mesh, report, progress);
}

void reconstructDistributed(MPI_Comm comm, PointCloud && localPoints, DistributedOptions const & options,
                            MeshPart & mesh, DistributedReport * report, CProgressCounter * progress)
{
    PointCloud points = std::move(localPoints);
    reconstructAll(
        comm, points.view(), [&points] { points = PointCloud(); }, options, mesh, report, progress);
}

} // namespace QZmath::Distributed

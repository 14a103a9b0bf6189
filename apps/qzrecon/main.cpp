// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/CloudSamples.h>
#include <apps/qzrecon/ConsoleProgress.h>
#include <apps/qzrecon/Interruption.h>
#include <apps/qzrecon/MeshCollector.h>
#include <apps/qzrecon/NormalsOfCloud.h>
#include <apps/qzrecon/Options.h>
#include <apps/qzrecon/ProgramMemory.h>
#include <apps/qzrecon/UnreachedParts.h>

#include <QZmath/Files/Files.h>
#include <QZmath/VolTriang/ReconstructionEstimate.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>
#include <QZsys/DebugLog.h>
#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <signal.h>
#include <unistd.h>

namespace
{

using namespace qz_recon;

// The log of a run, from any thread, in a file; an empty path means none.
class RunLog : public VsUt::IDebugLog
{
public:
    explicit RunLog(std::string const & path) : m_path(path)
    {
        if (path.empty())
            return;
        m_file.reset(std::fopen(path.c_str(), "w"));
        if (!m_file)
            throw QZmath::OutputError("cannot write the log " + path + ": " + std::strerror(errno));
    }

    void getMessage(char const * line) override
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        std::fprintf(m_file.get(), "%s\n", line);
    }

    bool isWanted() const { return m_file != nullptr; }

    void close()
    {
        if (m_file && (std::ferror(m_file.get()) != 0 || std::fclose(m_file.release()) != 0))
            throw QZmath::OutputError("cannot write the log " + m_path);
    }

private:
    struct FileCloser
    {
        void operator()(std::FILE * file) const { std::fclose(file); }
    };

    std::string m_path;
    std::unique_ptr<std::FILE, FileCloser> m_file;
    std::mutex m_mutex;
};

std::string formatted(char const * format, double value)
{
    char text[64];
    std::snprintf(text, sizeof(text), format, value);
    return text;
}

// Refuses before the work begins what would fail after it.
void checkOutputPlace(Options const & options)
{
    namespace fs = std::filesystem;
    std::error_code ignored;
    fs::path const output(options.output);
    fs::path const folder = output.has_parent_path() ? output.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, ignored))
        throw QZmath::OutputError("cannot write " + options.output + ": there is no folder " +
                                  folder.string());
    if (fs::is_directory(output, ignored))
        throw QZmath::OutputError("cannot write " + options.output + ": it is a folder");
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        throw QZmath::OutputError("cannot write into " + folder.string() + ": " + std::strerror(errno));
    if (fs::equivalent(output, options.input, ignored))
        throw UsageError("the output would replace the input " + options.input);
}

void checkMemory(QZmath::PointCloud const & cloud, Options const & options)
{
    double const limit = options.memoryLimit > 0.0 ? options.memoryLimit : availableMemory();
    double const neededForNormals =
        cloud.normals.empty() ? st_normalEstimationBytes * static_cast<double>(cloud.size()) : 0.0;
    if (neededForNormals > limit)
        throw QZmath::InputError("not enough memory: the normals of " + std::to_string(cloud.size()) +
                                 " points need about " + formatted("%.3f", neededForNormals / 1e9) +
                                 " GB, and " + formatted("%.3f", limit / 1e9) +
                                 " GB may be taken; choose another --max-memory");
    VolTr::CReconstructionEstimate const estimate =
        VolTr::estimateReconstruction(CloudSamples(cloud), options.params);
    double const needed = programMemory(estimate, cloud.size(), options.params.getEstimateResultNormals());
    if (needed > limit)
        throw QZmath::InputError(
            "not enough memory: depth " + std::to_string(options.params.getOctreeDepth()) + " makes " +
            std::to_string(estimate.nodes) + " nodes, which need about " + formatted("%.3f", needed / 1e9) +
            " GB, and " + formatted("%.3f", limit / 1e9) +
            " GB may be taken; choose a smaller --depth or another --max-memory");
}

// Edge of the lattice's cells at the depth of the leaf cells, nearly: without
// the small margin around it.
double leafCellSize(QZmath::PointCloud const & cloud, VolTr::CVolTriangulationParams const & params)
{
    double extent = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        float min = cloud.positions[axis];
        float max = min;
        for (std::size_t i = axis; i < cloud.positions.size(); i += 3) {
            min = std::min(min, cloud.positions[i]);
            max = std::max(max, cloud.positions[i]);
        }
        extent = std::max(extent, static_cast<double>(max) - min);
    }
    return std::ldexp(extent, -params.getOctreeDepth());
}

// What a run was like: what the library tells of it, and how long the program itself took before and after.
struct RunSummary
{
    using Phases = std::vector<std::pair<std::string, double>>;

    Phases before; // names and seconds
    VolTr::CReconstructionReport report;
    Phases after;

    Phases phases() const
    {
        Phases all = before;
        for (VolTr::CReconstructionReport::Phase const & phase : report.phases)
            all.emplace_back(phase.name, phase.seconds);
        all.insert(all.end(), after.begin(), after.end());
        return all;
    }
};

// A phase of the program's own, whose seconds go to a summary when it ends.
class OwnPhase
{
public:
    OwnPhase(ConsoleProgress & progress, RunSummary::Phases & phases, char const * name)
        : m_phases(phases), m_name(name)
    {
        progress.enterPhase(name);
    }
    ~OwnPhase()
    {
        m_phases.emplace_back(
            m_name, std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count());
    }
    OwnPhase(OwnPhase const &) = delete;
    OwnPhase & operator=(OwnPhase const &) = delete;

private:
    RunSummary::Phases & m_phases;
    char const * m_name;
    std::chrono::steady_clock::time_point const m_start = std::chrono::steady_clock::now();
};

std::string describe(QZmath::PointCloud const & cloud, QZmath::TriangleMesh const & mesh,
                     Options const & options, RunSummary const & summary)
{
    std::string line = options.output + ": " + std::to_string(summary.report.vertices) + " vertices, " +
                       std::to_string(summary.report.triangles) + " triangles, " +
                       (isClosed(mesh) ? "closed" : "open");

    // Vertices are up to two leaf cells apart, divided by the subdivision.
    double const apart = std::max(4.0, 4.0 / static_cast<double>(options.params.getReconstructFactor()));
    std::vector<UnreachedPart> const parts =
        findUnreachedParts(cloud, mesh, apart * leafCellSize(cloud, options.params));
    if (!parts.empty()) {
        std::size_t samples = 0;
        for (UnreachedPart const & part : parts)
            samples += part.samples;
        float const * const at = parts.front().firstSample;
        line += "; not reached, perhaps: " + std::to_string(parts.size()) +
                (parts.size() == 1 ? " component" : " components") + " of " + std::to_string(samples) +
                " samples, the largest near (" + formatted("%g", at[0]) + ", " + formatted("%g", at[1]) +
                ", " + formatted("%g", at[2]) + ")";
    }

    double total = 0.0;
    line += "; seconds:";
    for (auto const & [name, seconds] : summary.phases()) {
        line += " " + name + " " + formatted("%.2f", seconds) + ",";
        total += seconds;
    }
    return line + " in all " + formatted("%.2f", total) + "; peak memory " +
           formatted("%.0f", peakMemory() / 1e6) + " MB";
}

void reconstruct(Options & options, ConsoleProgress & progress)
{
    QZmath::MeshFormat const format = QZmath::meshFormatOf(options.output);
    checkOutputPlace(options);
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(options.threads);

    RunSummary summary;
    QZmath::PointCloud cloud;
    {
        OwnPhase const phase(progress, summary.before, "read");
        CPrgCntSubPhase const reading(&progress, 0, 4, 0, true);
        cloud = QZmath::readPoints(options.input, {}, &progress);
        if (cloud.positions.empty())
            toSinglePrecision(cloud);
        if (cloud.normals.empty() && options.normalNeighbours == 0)
            throw QZmath::InputError(QZmath::quotable(options.input) +
                                     ": the input has no normals: --estimate-normals 20 estimates them");
        checkCloud(cloud);
        checkMemory(cloud, options);
    }

    RunLog log(options.logFile);
    options.params.setDebugLog(log.isWanted() ? &log : nullptr);

    std::size_t withoutNormal = 0;
    if (cloud.normals.empty()) {
        OwnPhase const phase(progress, summary.before, "normals");
        CPrgCntSubPhase const estimating(&progress, 4, 6, 0, true);
        withoutNormal = estimateNormals(cloud, options.normalNeighbours, options.viewpoint, &progress);
    }

    QZmath::TriangleMesh mesh;
    {
        if (!options.params.getPhaseNameShown())
            progress.enterPhase("reconstruct");
        CPrgCntSubPhase const reconstructing(&progress, 10, 86, 0, true);
        CloudSamples const samples(cloud);
        MeshCollector collector(mesh, options.params.getEstimateResultNormals());
        VolTr::CVolumetricTriangulator triangulator(&collector, &samples, &options.params, &progress);
        triangulator.setReport(&summary.report);
        triangulator.run();
    }

    QZmath::PendingFiles files;
    {
        OwnPhase const phase(progress, summary.after, "write");
        CPrgCntSubPhase const writing(&progress, 96, 4, 0, true);
        QZmath::writeMesh(mesh, options.output, format, files, &progress);
        log.close();
    }
    Interruption::ignoreFromNowOn();
    files.commit();
    progress.finish();
    if (!summary.report.converged) {
        std::fprintf(
            stderr,
            "qzrecon: warning: the iterative solver did not converge (relative residual %g), so the surface "
            "may be wrong; --solver direct avoids that\n",
            summary.report.relativeResidual);
    }
    for (std::string const & note : cloud.notes)
        std::fprintf(stderr, "qzrecon: note: %s: %s\n", QZmath::quotable(options.input).c_str(),
                     note.c_str());
    if (withoutNormal > 0)
        std::fprintf(stderr, "qzrecon: warning: %zu points have no normal and do not count\n", withoutNormal);
    if (!options.quiet)
        std::puts(describe(cloud, mesh, options, summary).c_str());
}

int complain(int exitCode, std::string const & sentence)
{
    std::fprintf(stderr, "qzrecon: %s\n", sentence.c_str());
    return exitCode;
}

int runProgram(int argc, char const * const * argv)
{
    std::optional<Options> options = parseOptions(argc, argv);
    if (!options)
        return st_exitSuccess;
    ConsoleProgress progress(options->quiet ? ConsoleProgress::Display::none
                                            : ConsoleProgress::fittingDisplay());
    Interruption const interruption(progress);
    reconstruct(*options, progress);
    return st_exitSuccess;
}

} // namespace

int main(int argc, char ** argv)
{
    // A closed pipe and a file size limit are errors of the write, to be reported
    // as such.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    try {
        return runProgram(argc, argv);
    } catch (UsageError const & error) {
        return complain(st_exitBadInput, error.what());
    } catch (QZmath::InputError const & error) {
        return complain(st_exitBadInput, error.what());
    } catch (QZmath::OutputError const & error) {
        return complain(st_exitNotWritten, error.what());
    } catch (CUserIntrException const &) {
        Interruption::endNow();
    } catch (std::bad_alloc const &) {
        return complain(st_exitFailed, "the memory did not suffice");
    } catch (std::exception const & error) {
        return complain(st_exitFailed, error.what());
    }
}

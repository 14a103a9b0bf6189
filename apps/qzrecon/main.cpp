// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/ConsoleProgress.h>
#include <apps/qzrecon/FileArguments.h>
#include <apps/qzrecon/Interruption.h>
#include <apps/qzrecon/Options.h>
#include <apps/qzrecon/Outputs.h>
#include <apps/qzrecon/PhaseNames.h>
#include <apps/qzrecon/ProgramMemory.h>
#include <apps/qzrecon/RunLog.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/JoinedClouds.h>
#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Files/PointReader.h>
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace qz_recon;
using Phases = std::vector<std::pair<std::string, double>>; // names and seconds

std::string formatted(char const * format, double value)
{
    char text[64];
    std::snprintf(text, sizeof(text), format, value);
    return text;
}

// A phase of the program's own, whose seconds are added to a list when it ends.
class OwnPhase
{
public:
    OwnPhase(ConsoleProgress & progress, Phases & phases, char const * name) : m_phases(phases), m_name(name)
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
    Phases & m_phases;
    char const * m_name;
    std::chrono::steady_clock::time_point const m_start = std::chrono::steady_clock::now();
};

// On the error stream, also when the program is to be quiet: what was lost or is doubtful.
void warn(std::string const & sentence) { std::fprintf(stderr, "qzrecon: warning: %s\n", sentence.c_str()); }

std::string describe(QZmath::TriangleMesh const & mesh, Options const & options,
                     QZmath::ReconstructionReport const & report, Phases const & phases)
{
    std::string line;
    for (std::string const & output : options.outputs)
        line += (line.empty() ? "" : ", ") + QZmath::quotable(output);
    line += ": " + std::to_string(mesh.vertexCount()) + " vertices, " + std::to_string(mesh.triangleCount()) +
            " triangles, " + (report.isClosed ? "closed" : "open") + "; " + report.summary() + "; depth " +
            std::to_string(report.octreeDepth) + ", cells of " + formatted("%.3g", report.leafCell) +
            "; seconds:";
    double total = 0.0;
    for (auto const & [name, seconds] : phases) {
        line += " " + name + " " + formatted("%.2f", seconds) + ",";
        total += seconds;
    }
    return line + " in all " + formatted("%.2f", total) + "; peak memory " +
           formatted("%.0f", peakMemory() / 1e6) + " MB";
}

QZmath::PointCloud readClouds(Options & options, ConsoleProgress & progress)
{
    QZmath::JoinedClouds joined;
    int const files = static_cast<int>(options.inputs.size());
    for (int file = 0; file < files; ++file) {
        CPrgCntSubPhase const part(&progress, file, 1, files, true);
        std::string const & name = options.inputs[static_cast<std::size_t>(file)];
        joined.add(QZmath::readPoints(name, options.reading, &progress), QZmath::quotable(name));
    }
    if (options.reconstruction.viewpoints.size() == 1)
        options.reconstruction.viewpointEnds = {joined.ends().back()};
    else if (!options.reconstruction.viewpoints.empty())
        options.reconstruction.viewpointEnds = joined.ends();
    QZmath::PointCloud cloud = joined.take();
    for (std::string const & note : cloud.notes)
        warn(note);
    if (cloud.normals.empty() && !options.mayEstimateNormals)
        throw QZmath::InputError("the input has no normals; --estimate-normals 20 makes them");
    if (!options.withColors)
        cloud.colors = decltype(cloud.colors)();
    return cloud;
}

// Gives the closing line to the user; a line that is lost is an error like a mesh that is.
void tell(std::string const & line, std::FILE * stream)
{
    if (std::fprintf(stream, "%s\n", line.c_str()) < 0 || std::fflush(stream) != 0)
        throw QZmath::OutputError(std::string("cannot write to standard output: ") + std::strerror(errno));
}

bool writesToOutput(Options const & options)
{
    return std::find(options.outputs.begin(), options.outputs.end(), "-") != options.outputs.end();
}

// Hands the first page to the desktop, which opens it in a process of its own. The page is there, so a
// desktop that is missing is worth a warning only.
void openPage(Options const & options)
{
    auto const page =
        std::find_if(options.outputs.begin(), options.outputs.end(),
                     [](std::string const & output) { return outputKindOf(output) == OutputKind::page; });
    std::string program = "xdg-open";
    std::string path = page->front() == '-' ? "./" + *page : *page; // no option of the other program
    char * arguments[] = {program.data(), path.data(), nullptr};
    pid_t child = -1;
    int error = posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ);
    int status = 0;
    while (error == 0 && waitpid(child, &status, 0) < 0)
        error = errno == EINTR ? 0 : errno;
    if (error != 0)
        warn("the page could not be opened with xdg-open: " + std::string(std::strerror(error)));
    else if (status != 0)
        warn("the page could not be opened: xdg-open failed");
}

void reconstruct(Options & options, ConsoleProgress & progress)
{
    checkFileArguments(options);
    if (showsMesh(options))
        options.reconstruction.vertexNormals = options.reconstruction.vertexDensity = true;
    QZmath::PendingFiles files;
    RunLog log(options.logFile, files);
    options.reconstruction.core.setDebugLog(log.isWanted() ? &log : nullptr);

    Phases phases;
    QZmath::PointCloud cloud;
    {
        OwnPhase const phase(progress, phases, "read");
        CPrgCntSubPhase const reading(&progress, 0, 10, 0, true);
        cloud = readClouds(options, progress);
        checkPictures(options, cloud);
    }
    double const limit =
        options.memoryLimit > 0.0 ? options.memoryLimit - occupiedMemory() : availableMemory();
    options.reconstruction.memoryLimit = static_cast<std::int64_t>(std::clamp(limit, 1.0, 9e18));

    QZmath::ReconstructionReport report;
    QZmath::TriangleMesh mesh;
    {
        if (!options.reconstruction.core.getPhaseNameShown())
            progress.enterPhase("reconstruct");
        CPrgCntSubPhase const reconstructing(&progress, 10, 80, 0, true);
        mesh = QZmath::reconstruct(cloud.view(), options.reconstruction, &report, &progress);
    }
    for (VolTr::CReconstructionReport::Phase const & phase : report.phases)
        phases.emplace_back(plainPhaseName(phase.name), phase.seconds);
    if (!showsMesh(options))
        cloud = QZmath::PointCloud();
    {
        OwnPhase const phase(progress, phases, "write");
        CPrgCntSubPhase const writing(&progress, 90, 10, 0, true);
        writeOutputs(options, mesh, cloud, report, files, &progress);
        log.close();
    }
    Interruption::ignoreFromNowOn();
    files.commit();
    progress.finish();
    for (std::string const & warning : report.warnings)
        warn(warning);
    if (!options.quiet)
        tell(describe(mesh, options, report, phases), writesToOutput(options) ? stderr : stdout);
    if (options.opensViewer)
        openPage(options);
}

int complain(int exitCode, std::string const & sentence)
{
    std::fprintf(stderr, "qzrecon: %s\n", sentence.c_str());
    return exitCode;
}

int exitCodeOf(QZmath::ReconstructionError const & error)
{
    return error.kind() == QZmath::ReconstructionError::Kind::failed ? st_exitFailed : st_exitBadInput;
}

int runProgram(int argc, char const * const * argv)
{
    std::optional<Options> options = parseOptions(argc, argv);
    if (!options) {
        if (std::fflush(stdout) != 0)
            throw QZmath::OutputError(std::string("cannot write to standard output: ") +
                                      std::strerror(errno));
        return st_exitSuccess;
    }
    ConsoleProgress progress(options->quiet ? ConsoleProgress::Display::none
                                            : ConsoleProgress::fittingDisplay());
    Interruption const interruption(progress);
    reconstruct(*options, progress);
    return st_exitSuccess;
}

} // namespace

int main(int argc, char ** argv)
{
    openStandardStreams();
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
    } catch (QZmath::ReconstructionError const & error) {
        return complain(exitCodeOf(error), error.what());
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

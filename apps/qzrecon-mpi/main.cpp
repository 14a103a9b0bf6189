// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon-mpi/Options.h>
#include <apps/qzrecon-mpi/Plan.h>
#include <apps/qzrecon/ConsoleProgress.h>
#include <apps/qzrecon/FileArguments.h>
#include <apps/qzrecon/Interruption.h>
#include <apps/qzrecon/Options.h>

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Distributed/FileShares.h>
#include <QZmath/Distributed/MeshFiles.h>
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PendingFiles.h>
#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <mpi.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <signal.h>

namespace
{

using namespace QZmath::Distributed;
using qz_recon::ConsoleProgress;
using qz_recon::Interruption;
using qz_recon_mpi::Options;
using Phases = std::vector<std::pair<std::string, double>>; // names and seconds

std::string formatted(char const * format, double value)
{
    char text[64];
    std::snprintf(text, sizeof(text), format, value);
    return text;
}

void warn(std::string const & sentence)
{
    std::fprintf(stderr, "qzrecon-mpi: warning: %s\n", sentence.c_str());
}

// One run of the program on all ranks. Only rank 0 prints.
class Run
{
public:
    Run(Communicator const & ranks, Options const & options)
        : m_ranks(ranks), m_options(options),
          m_progress(options.quiet || ranks.rank() != 0 ? ConsoleProgress::Display::none
                                                        : ConsoleProgress::fittingDisplay()),
          m_interruption(m_progress, ranks.rank() == 0 ? "qzrecon-mpi" : nullptr)
    {}

    void run();

private:
    bool isFirst() const { return m_ranks.rank() == 0; }

    template <class Work>
    void inPhase(char const * name, int begin, int length, Work const & work)
    {
        auto const start = std::chrono::steady_clock::now();
        m_progress.enterPhase(name);
        {
            std::optional<CPrgCntSubPhase> part;
            m_ranks.together([&] { part.emplace(&m_progress, begin, length, 0, true); });
            work();
        }
        m_phases.emplace_back(
            name, m_ranks.greatest(
                      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count()));
    }
    std::string description(MeshPart const & mesh, DistributedReport const & report) const;

    Communicator const & m_ranks;
    Options const & m_options;
    ConsoleProgress m_progress;
    Interruption m_interruption;
    Phases m_phases;
};

std::string Run::description(MeshPart const & mesh, DistributedReport const & report) const
{
    std::string line =
        QZmath::quotable(m_options.output) + ": " + std::to_string(mesh.vertices) + " vertices, " +
        std::to_string(mesh.triangleCount) + " triangles, " + (report.isClosed ? "closed" : "open") + "; " +
        std::to_string(report.samples) + " points on " + std::to_string(m_ranks.size()) +
        (m_ranks.size() == 1 ? " rank" : " ranks") + ", " + std::to_string(report.iterations) +
        " iterations to " + formatted("%.2g", report.relativeResidual) + "; depth " +
        std::to_string(report.depth) + ", cells of " + formatted("%.3g", report.leafCell) + "; seconds:";
    double total = 0.0;
    for (auto const & [name, seconds] : m_phases) {
        line += " " + name + " " + formatted("%.2f", seconds) + ",";
        total += seconds;
    }
    std::int64_t peak = 0;
    for (DistributedReport::Phase const & phase : report.phases)
        peak = std::max(peak, phase.peakMemory);
    return line + " in all " + formatted("%.2f", total) + "; peak memory of a rank " +
           formatted("%.0f", static_cast<double>(peak) / 1e6) + " MB";
}

std::string details(DistributedReport const & report)
{
    auto const count = [](std::int64_t number) { return std::to_string(number); };
    std::string text = count(report.leafCells) + " leaf cells, " + count(report.unknowns) + " unknowns, " +
                       count(report.replicatedUnknowns) + " of them on every rank, in the coarsest " +
                       count(report.replicatedDepths) + " depths; units of depth " + count(report.unitDepth) +
                       "\n";
    text += "a rank has at most " + formatted("%.3f", report.sampleBalance) + " times the mean of samples, " +
            formatted("%.3f", report.cellBalance) + " times that of leaf cells\n";
    text += "an iteration sends at most " + count(report.bytesPerIteration) + " bytes in " +
            count(report.messagesPerIteration) + " messages from a rank; " + count(report.surfaceRounds) +
            " rounds of the surface\n";
    for (DistributedReport::Phase const & phase : report.phases)
        text += phase.name + ": " + formatted("%.3f", phase.seconds) + " s, up to " +
                formatted("%.1f", static_cast<double>(phase.peakMemory) / 1e6) + " MB a rank\n";
    return text;
}

void Run::run()
{
    m_ranks.together([&] {
        if (!isFirst())
            return;
        qz_recon::Options files; // what it looks at
        files.inputs = m_options.inputs;
        if (m_options.output.back() != '/')
            files.outputs = {m_options.output};
        try {
            checkFileArguments(files);
        } catch (qz_recon::UsageError const & error) {
            throw QZmath::InputError(error.what());
        }
    });
    MeshFiles output(m_ranks, m_options.output);

    FileShares shares;
    if (!m_options.inputs.empty()) {
        inPhase("read", 0, 10, [&] {
            shares = readFileShares(m_ranks, m_options.inputs, m_options.reading, &m_progress,
                                    !m_options.reconstruction.hasViewpoint);
        });
    }
    MeshPart mesh;
    DistributedReport report;
    m_progress.enterPhase("reconstruct");
    {
        std::optional<CPrgCntSubPhase> part;
        m_ranks.together([&] { part.emplace(&m_progress, 10, 80, 0, true); });
        reconstructDistributed(m_ranks.get(), std::move(shares.cloud), m_options.reconstruction, mesh,
                               &report, &m_progress);
    }
    for (DistributedReport::Phase const & phase : report.phases)
        m_phases.emplace_back(phase.name, phase.seconds);
    inPhase("write", 90, 10, [&] { output.write(mesh, &m_progress); });
    m_ranks.together([] {}); // nobody has been stopped
    Interruption::ignoreFromNowOn();
    output.commit();
    m_progress.finish();
    m_ranks.together([&] {
        if (!isFirst())
            return;
        for (std::string const & note : shares.notes)
            warn(note);
        for (std::string const & warning : report.warnings)
            warn(warning);
        std::string text = m_options.quiet ? "" : description(mesh, report) + "\n";
        if (m_options.showsDetails)
            text += details(report);
        if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
            throw QZmath::OutputError(std::string("cannot write to standard output: ") +
                                      std::strerror(errno));
    });
}

int exitCodeOf(RankError::Kind kind)
{
    switch (kind) {
    case RankError::Kind::input:
    case RankError::Kind::options:
        return qz_recon::st_exitBadInput;
    case RankError::Kind::output:
        return qz_recon::st_exitNotWritten;
    case RankError::Kind::memory:
    case RankError::Kind::failed:
        break;
    }
    return qz_recon::st_exitFailed;
}

void complain(std::string const & sentence) { std::fprintf(stderr, "qzrecon-mpi: %s\n", sentence.c_str()); }

// The others do not know and wait for this rank: nothing but the end of all is left.
[[noreturn]] void abortAll(int rank, std::string const & cause)
{
    complain("rank " + std::to_string(rank) + ": " + cause);
    QZmath::PendingFiles::removeAllFromSignalHandler();
    MPI_Abort(MPI_COMM_WORLD, qz_recon::st_exitFailed);
    std::_Exit(qz_recon::st_exitFailed);
}

int runProgram(int argc, char const * const * argv)
{
    Communicator const ranks(MPI_COMM_WORLD);
    bool const isFirst = ranks.rank() == 0;
    try {
        std::optional<Options> const options = qz_recon_mpi::parseOptions(argc, argv, isFirst);
        if (options && options->plan[0] == 0.0)
            Run(ranks, *options).run();
        else
            ranks.together([&] {
                if (options && isFirst)
                    std::fputs(qz_recon_mpi::planRun(options->plan[0], options->plan[1]).text.c_str(),
                               stdout);
                if (std::fflush(stdout) != 0)
                    throw QZmath::OutputError(std::string("cannot write to standard output: ") +
                                              std::strerror(errno));
            });
        return qz_recon::st_exitSuccess;
    } catch (qz_recon::UsageError const & error) { // the same on all ranks, as the next two are
        if (isFirst)
            complain(error.what());
        return qz_recon::st_exitBadInput;
    } catch (RankError const & error) {
        if (isFirst)
            complain(error.what());
        return exitCodeOf(error.kind());
    } catch (CUserIntrException const &) {
        if (isFirst)
            complain("interrupted");
        return qz_recon::st_exitInterrupted;
    } catch (std::bad_alloc const &) {
        abortAll(ranks.rank(), "not enough memory");
    } catch (std::exception const & error) {
        abortAll(ranks.rank(), error.what());
    }
}

} // namespace

int main(int argc, char ** argv)
{
    qz_recon::openStandardStreams();
    // A closed pipe and a file size limit are errors of the write, to be reported as such.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    int provided = MPI_THREAD_SINGLE;
    MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
    int const code = runProgram(argc, argv);
    MPI_Finalize();
    return code;
}

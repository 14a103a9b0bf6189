// SPDX-License-Identifier: Apache-2.0
//
// The whole reconstruction and its stages over shapes, depths and thread numbers, as a table and as JSON.
// Each case runs in a process of its own, so that peak memory is the case's own.
#include <QZmath/QZmath.h>

#include <apps/sampling/SampleShapes.h>

#include <CLI/CLI.hpp>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

class CloudSamples : public VolTr::IInputSamples
{
public:
    explicit CloudSamples(qz_sampling::Cloud const & cloud) : m_cloud(cloud) {}

private:
    int onPointsNumber() const override { return static_cast<int>(m_cloud.size()); }
    float const * onGetSampleCoords3(int sample) const override
    {
        return &m_cloud.positions[3 * static_cast<std::size_t>(sample)];
    }
    float const * onGetSampleNormal3(int sample) const override
    {
        return &m_cloud.normals[3 * static_cast<std::size_t>(sample)];
    }
    bool onIsBoundaryVertex(int sample) const override
    {
        return !m_cloud.boundaryMarks.empty() && m_cloud.boundaryMarks[static_cast<std::size_t>(sample)] != 0;
    }

    qz_sampling::Cloud const & m_cloud;
};

class VertexTarget : public VolTr::ITriangulationTarget
{
public:
    std::vector<std::array<double, 3>> vertices;
    long triangles = 0;

private:
    void onAddNewVertex(int, double const * coords, double const *) override
    {
        vertices.push_back({coords[0], coords[1], coords[2]});
    }
    void onAddNewVertex(int, float const * coords, float const *) override
    {
        vertices.push_back({coords[0], coords[1], coords[2]});
    }
    void onAddNewTriangle(int, int, int) override { ++triangles; }
};

double wallSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto const seconds = [](timeval const & time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// Wall and processor seconds between the starts of the phases.
class StageClock : public CProgressCounter
{
public:
    struct Stage
    {
        std::string name;
        double wall;
        double cpu;
    };

    void finish() { onPhaseName(""); }
    std::vector<Stage> stages;

protected:
    void onPhaseName(std::string const & name) override
    {
        double const wall = wallSeconds();
        double const cpu = cpuSeconds();
        if (!m_current.empty())
            stages.push_back({m_current, wall - m_wall, cpu - m_cpu});
        m_current = name;
        m_wall = wall;
        m_cpu = cpu;
    }

private:
    std::string m_current;
    double m_wall = 0.0;
    double m_cpu = 0.0;
};

struct Case
{
    std::string shape;
    int depth;
    int threads;
    int solver;
    std::size_t points;
    bool accelerated;
};

// Microseconds of processor time per evaluation of a combination around the vertices of a mesh: eleven points
// on a lattice edge each, as the bisection of the polygoniser takes them.
double evaluationMicroseconds(CloudSamples const & samples, int depth,
                              std::vector<std::array<double, 3>> const & vertices)
{
    VolTr::COctree const octree(&samples, depth, nullptr, true, -1);
    auto kernel = VolTr::makeApproxGaussian<VolTr::CProductPiecewisePolynom>();
    double const scales[3] = {1.0 / 0.95, 1.0 / 0.95, 1.0 / 0.95};
    kernel.scaleArgument(scales);
    VolTr::COctreeFuncBasisTmpl<VolTr::CProductPiecewisePolynom> const basis(kernel, &octree, 0);
    VolTr::COctreeFuncLinCombTmpl<VolTr::CProductPiecewisePolynom> function(&basis);
    for (int node = 0; node < octree.getNodesNumber(); ++node)
        function.setBasisCoefficient(node, 1.0 + node % 7);
    double const edge = octree.getCellSize(depth - 1);
    VolTr::COctreeFuncEvalHelper helper(8, 4.0 * edge);
    double const start = cpuSeconds();
    double sum = 0.0;
    for (std::array<double, 3> const & vertex : vertices) {
        for (int step = -5; step <= 5; ++step) {
            double const point[3] = {vertex[0] + 0.1 * step * edge, vertex[1], vertex[2]};
            sum += function.eval(point, &helper);
        }
    }
    double const seconds = cpuSeconds() - start;
    return sum != 0.0 ? 1e6 * seconds / (11.0 * static_cast<double>(vertices.size())) : 0.0;
}

// One case as a JSON object.
std::string runCase(Case const & c)
{
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(c.threads);
    auto const shape = qz_sampling::makeShape(c.shape);
    qz_sampling::SamplingOptions options;
    options.pointNumber = c.points;
    qz_sampling::Cloud const cloud = sampleCloud(*shape, options);
    CloudSamples const samples(cloud);

    VolTr::CVolTriangulationParams params;
    params.setOctreeDepth(c.depth);
    params.setPhaseNameShown(true);
    params.setClosed(shape->isClosed());
    params.setPrefferedSolver(c.solver);
    params.setAccelerated(c.accelerated);
    StageClock clock;
    VertexTarget target;
    double const memoryBefore = peakMegabytes();
    double const wall = wallSeconds();
    double const cpu = cpuSeconds();
    std::string failure;
    VolTr::CReconstructionReport report;
    try {
        VolTr::CVolumetricTriangulator triangulator(&target, &samples, &params, &clock);
        triangulator.setReport(&report);
        triangulator.run();
    } catch (std::exception const & error) {
        failure = error.what();
    }
    clock.finish();

    std::ostringstream json;
    json << "{\"shape\": \"" << c.shape << "\", \"depth\": " << c.depth << ", \"threads\": " << c.threads
         << ", \"solver\": " << c.solver << ", \"points\": " << c.points
         << ", \"wall\": " << wallSeconds() - wall << ", \"cpu\": " << cpuSeconds() - cpu
         << ", \"peakMB\": " << peakMegabytes() << ", \"inputMB\": " << memoryBefore << ", \"failure\": \""
         << failure << "\"";
    json << ", \"nodes\": " << report.unknowns << ", \"nonZeros\": " << report.matrixElements
         << ", \"iterations\": " << report.iterations;
    json << ", \"triangles\": " << target.triangles << ", \"vertices\": " << target.vertices.size()
         << ", \"evaluationMicroseconds\": " << evaluationMicroseconds(samples, c.depth, target.vertices)
         << ", \"stages\": {";
    for (std::size_t stage = 0; stage < clock.stages.size(); ++stage) {
        json << (stage > 0 ? ", " : "") << '"' << clock.stages[stage].name << "\": ["
             << clock.stages[stage].wall << ", " << clock.stages[stage].cpu << ']';
    }
    json << "}}";

    double const nonZeros = static_cast<double>(report.matrixElements);
    std::fprintf(stderr,
                 "%-13s depth %d, %d thread(s), solver %d: n %lld, non-zeros %.3g, %.2f s wall, %.2f s cpu, "
                 "%.0f MB peak%s%s\n",
                 c.shape.c_str(), c.depth, c.threads, c.solver, static_cast<long long>(report.unknowns),
                 nonZeros, wallSeconds() - wall, cpuSeconds() - cpu, peakMegabytes(),
                 failure.empty() ? "" : ", ", failure.c_str());
    for (StageClock::Stage const & stage : clock.stages) {
        std::fprintf(stderr, "    %-18s %9.3f s wall %9.3f s cpu", stage.name.c_str(), stage.wall, stage.cpu);
        if (stage.name == "tree")
            std::fprintf(stderr, "   %.3f us cpu per sample",
                         1e6 * stage.cpu / static_cast<double>(c.points));
        if (stage.name.rfind("matrix", 0) == 0)
            std::fprintf(stderr, "   %.1f ns cpu per non-zero", 1e9 * stage.cpu / nonZeros);
        std::fprintf(stderr, "\n");
    }
    std::fprintf(stderr, "    evaluation         %9.3f us cpu per point\n",
                 evaluationMicroseconds(samples, c.depth, target.vertices));
    return json.str();
}

// Runs a case in a child process; an empty text when the child died.
std::string runCaseApart(Case const & c)
{
    int channel[2];
    if (pipe(channel) != 0)
        return "";
    pid_t const child = fork();
    if (child == 0) {
        close(channel[0]);
        std::string const json = runCase(c);
        ssize_t const written = write(channel[1], json.data(), json.size());
        _exit(written == static_cast<ssize_t>(json.size()) ? 0 : 1);
    }
    close(channel[1]);
    std::string json;
    char buffer[4096];
    for (ssize_t count = read(channel[0], buffer, sizeof(buffer)); count > 0;
         count = read(channel[0], buffer, sizeof(buffer)))
        json.append(buffer, static_cast<std::size_t>(count));
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? json : "";
}

} // namespace

int main(int argc, char ** argv)
{
    CLI::App app("Times the reconstruction and its stages; the table goes to standard error, JSON to "
                 "standard output.");
    std::vector<std::string> shapes = {"sphere", "genus3", "bumpy-sphere", "sheet"};
    std::vector<int> depths = {6, 7, 8, 9};
    std::vector<int> threads = {1, 2};
    int solver = 0;
    std::size_t points = 100000;
    bool accelerated = false;
    std::string jsonFile;
    app.add_option("--shapes", shapes, "shapes to sample")->delimiter(',')->capture_default_str();
    app.add_option("--depths", depths, "octree depths")->delimiter(',')->capture_default_str();
    app.add_option("--threads", threads, "thread numbers")->delimiter(',')->capture_default_str();
    app.add_option("--solver", solver, "as in CVolTriangulationParams::prefferedSolver")
        ->capture_default_str();
    app.add_flag("--accelerated", accelerated, "the accelerated path, with solver 0");
    app.add_option("--points", points, "samples per cloud")->capture_default_str();
    app.add_option("--json", jsonFile, "file for the JSON instead of standard output");
    CLI11_PARSE(app, argc, argv);

    std::string results = "[\n";
    for (std::string const & shape : shapes) {
        if (qz_sampling::makeShape(shape) == nullptr) {
            std::cerr << "Unknown shape: " << shape << '\n';
            return 2;
        }
        for (int depth : depths) {
            for (int threadNumber : threads) {
                std::string const json =
                    runCaseApart({shape, depth, threadNumber, solver, points, accelerated});
                if (json.empty()) {
                    std::cerr << shape << " depth " << depth << ": the process died\n";
                    continue;
                }
                results += (results.size() > 2 ? ",\n" : "") + json;
            }
        }
    }
    results += "\n]\n";
    if (jsonFile.empty())
        std::cout << results;
    else
        std::ofstream(jsonFile) << results;
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
//
// The whole reconstruction and its stages over shapes, depths and thread numbers, as a table and as JSON.
// Each case runs in a process of its own, so that peak memory is the case's own.
#include "Clouds.h"
#include "StageClock.h"

#include <QZmath/QZmath.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <deque>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
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
    std::deque<std::array<double, 3>> vertices; // grows without a long copy
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

using Json = nlohmann::ordered_json;

struct Case
{
    std::string shape; // or file
    int depth;
    int threads;
    int solver;
    std::size_t points;
    bool accelerated;
    bool refine;
    bool whole;
};

// Microseconds of processor time per evaluation of a combination around the vertices of a mesh: eleven points
// on a lattice edge each, as the bisection of the polygoniser takes them.
double evaluationMicroseconds(CloudSamples const & samples, int depth,
                              std::deque<std::array<double, 3>> const & vertices)
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

void runCore(Case const & c, BenchmarkCloud const & input, StageClock & clock, VertexTarget & target,
             VolTr::CReconstructionReport & report)
{
    if (input.cloud.normals.size() != input.cloud.positions.size())
        throw std::runtime_error("the cloud has no normals, which only --whole does without");
    CloudSamples const samples(input.cloud);
    VolTr::CVolTriangulationParams params;
    params.setOctreeDepth(c.depth);
    params.setPhaseNameShown(true);
    params.setClosed(input.isClosed);
    params.setPrefferedSolver(c.solver);
    params.setAccelerated(c.accelerated);
    params.setRefine(c.refine);
    VolTr::CVolumetricTriangulator triangulator(&target, &samples, &params, &clock);
    triangulator.setReport(&report);
    triangulator.run();
}

void runWhole(Case const & c, BenchmarkCloud const & input, StageClock & clock, VertexTarget & target,
              VolTr::CReconstructionReport & report)
{
    QZmath::PointCloudView view;
    view.size = input.cloud.size();
    view.positions = input.cloud.positions.data();
    view.normals = input.cloud.normals.empty() ? nullptr : input.cloud.normals.data();
    QZmath::ReconstructionOptions options;
    options.depth = c.depth;
    options.threads = c.threads;
    options.refine = c.refine;
    options.core.setPhaseNameShown(true);
    QZmath::ReconstructionReport whole;
    QZmath::TriangleMesh const mesh = QZmath::reconstruct(view, options, &whole, &clock);
    report = whole;
    target.triangles = static_cast<long>(mesh.triangleCount());
}

// One case; its table goes to standard error.
Json runCase(Case const & c)
{
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(c.threads);
    StageClock clock;
    VertexTarget target;
    VolTr::CReconstructionReport report;
    std::string failure;
    BenchmarkCloud input;
    double inputPeak = 0;
    double const loadWall = wallSeconds();
    double wall = 0, cpu = 0;
    try {
        input = benchmarkCloud(c.shape, c.points);
        clock.begin("");
        inputPeak = clock.peakMegabytes();
        clock.begin("preparation"); // up to the first phase
        wall = wallSeconds();
        cpu = cpuSeconds();
        (c.whole ? runWhole : runCore)(c, input, clock, target, report);
    } catch (std::exception const & error) {
        failure = error.what();
    }
    clock.begin("");
    double const loading = (wall > 0 ? wall : wallSeconds()) - loadWall;
    wall = wall > 0 ? wallSeconds() - wall : 0;
    cpu = wall > 0 ? cpuSeconds() - cpu : 0;

    // Of the stored basis, which has no part in the other ways.
    bool const isEvaluated = !c.whole && !c.accelerated && !target.vertices.empty();
    double const evaluation =
        isEvaluated ? evaluationMicroseconds(CloudSamples(input.cloud), c.depth, target.vertices) : 0;
    std::size_t const points = input.cloud.size();
    char const * const way = c.whole ? "whole" : c.accelerated ? "accelerated" : "exact";
    Json json = {{"shape", c.shape},
                 {"depth", c.depth},
                 {"threads", c.threads},
                 {"solver", c.solver},
                 {"points", points},
                 {"way", way},
                 {"refine", c.refine},
                 {"loading", loading},
                 {"wall", wall},
                 {"cpu", cpu},
                 {"peakMB", clock.peakMegabytes()},
                 {"inputMB", inputPeak},
                 {"failure", failure},
                 {"nodes", report.unknowns},
                 {"nonZeros", report.matrixElements},
                 {"iterations", report.iterations},
                 {"triangles", target.triangles},
                 {"vertices", c.whole ? report.vertices : static_cast<int>(target.vertices.size())},
                 {"evaluationMicroseconds", evaluation},
                 {"stages", Json::object()}};
    double const nonZeros = static_cast<double>(report.matrixElements);
    std::fprintf(stderr,
                 "%-13s depth %d, %zu points, %s%s, %d thread(s), solver %d: n %lld, non-zeros %.3g, "
                 "%.2f s wall, %.2f s cpu, %.0f MB peak%s%s\n",
                 c.shape.c_str(), c.depth, points, way, c.refine ? " refined" : "", c.threads, c.solver,
                 static_cast<long long>(report.unknowns), nonZeros, wall, cpu, clock.peakMegabytes(),
                 failure.empty() ? "" : ", ", failure.c_str());
    for (StageClock::Stage const & stage : clock.stages()) {
        json["stages"][stage.name] = {stage.wall, stage.cpu, stage.peakMegabytes, stage.longestGap};
        std::fprintf(stderr,
                     "    %-24s %9.3f s wall %9.3f s cpu %7.0f MB %5.0f ms gap   %.3f us cpu per sample",
                     stage.name.c_str(), stage.wall, stage.cpu, stage.peakMegabytes, 1e3 * stage.longestGap,
                     1e6 * stage.cpu / static_cast<double>(points));
        if (stage.name.rfind("matrix", 0) == 0)
            std::fprintf(stderr, "   %.1f ns cpu per non-zero", 1e9 * stage.cpu / nonZeros);
        std::fprintf(stderr, "\n");
    }
    if (isEvaluated)
        std::fprintf(stderr, "    evaluation               %9.3f us cpu per point\n", evaluation);
    return json;
}

// Runs a case in a child process; null when the child died.
Json runCaseApart(Case const & c)
{
    int channel[2];
    if (pipe(channel) != 0)
        return nullptr;
    pid_t const child = fork();
    if (child == 0) {
        close(channel[0]);
        std::string const json = runCase(c).dump(-1, ' ', false, Json::error_handler_t::replace);
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
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? Json::parse(json) : Json(nullptr);
}

// The quickest of some runs, with the quickest run of each stage.
Json bestOf(int runs, Case const & c)
{
    Json best = runCaseApart(c);
    for (int run = 1; run < runs && !best.is_null(); ++run) {
        Json const next = runCaseApart(c);
        if (next.is_null())
            return next;
        for (char const * key : {"loading", "wall", "cpu", "peakMB"})
            best[key] = std::min(best[key].get<double>(), next[key].get<double>());
        for (auto & [stage, values] : best["stages"].items())
            for (std::size_t i = 0; i < values.size() && next["stages"].contains(stage); ++i)
                values[i] = std::min(values[i].get<double>(), next["stages"][stage][i].get<double>());
    }
    return best;
}

// What of a case did not halve from one thread to two, stage by stage: by Amdahl's law a stage that takes a
// and b seconds has 2 b - a serial ones.
void addSerialShare(Json const & onOne, Json & onTwo)
{
    double serial = 0, sum = 0;
    std::fprintf(stderr, "    %-24s %9s %9s %9s\n", "wall seconds", "1 thread", "2 threads", "serial");
    onTwo["serialSeconds"] = Json::object();
    for (auto const & [stage, values] : onOne["stages"].items()) {
        if (!onTwo["stages"].contains(stage))
            continue;
        double const one = values[0].get<double>();
        double const two = onTwo["stages"][stage][0].get<double>();
        double const left = std::clamp(2 * two - one, 0.0, one);
        onTwo["serialSeconds"][stage] = left;
        serial += left;
        sum += one;
        std::fprintf(stderr, "    %-24s %9.3f %9.3f %9.3f\n", stage.c_str(), one, two, left);
    }
    double const share = sum > 0 ? serial / sum : 0;
    onTwo["serialShare"] = share;
    std::fprintf(stderr,
                 "    serial share %.1f %%: two threads are %.2f times as fast, 16 would be %.1f times\n",
                 100 * share, onOne["wall"].get<double>() / std::max(onTwo["wall"].get<double>(), 1e-9),
                 1 / (share + (1 - share) / 16));
}

// How processor time grows with the number of samples: as n to the power of 1 when it is proportional to it.
void printGrowth(std::vector<Json> const & byPoints)
{
    for (std::size_t i = 1; i < byPoints.size(); ++i) {
        Json const & few = byPoints[i - 1];
        Json const & many = byPoints[i];
        double const ratio = many["points"].get<double>() / few["points"].get<double>();
        auto const power = [&](double before, double after) {
            return before > 0 && after > 0 && ratio > 1 ? std::log(after / before) / std::log(ratio) : 0;
        };
        std::fprintf(stderr, "    %s, %zu to %zu points: %.2f to %.2f s cpu, as n^%.2f;",
                     few["shape"].get<std::string>().c_str(), few["points"].get<std::size_t>(),
                     many["points"].get<std::size_t>(), few["cpu"].get<double>(), many["cpu"].get<double>(),
                     power(few["cpu"].get<double>(), many["cpu"].get<double>()));
        double worst = 0;
        std::string worstStage = "none";
        for (auto const & [stage, values] : few["stages"].items()) {
            double const before = std::max(values[1].get<double>(), 0.005); // below is chance
            if (!many["stages"].contains(stage) ||
                power(before, many["stages"][stage][1].get<double>()) <= worst)
                continue;
            worst = power(before, many["stages"][stage][1].get<double>());
            worstStage = stage;
        }
        std::fprintf(stderr, " steepest stage: %s, n^%.2f\n", worstStage.c_str(), worst);
    }
}

} // namespace

int main(int argc, char ** argv)
{
    CLI::App app("Times the reconstruction and its stages; the table goes to standard error, JSON to "
                 "standard output.");
    std::vector<std::string> shapes = {"sphere", "genus3", "bumpy-sphere", "sheet"};
    std::vector<int> depths = {6, 7, 8, 9};
    std::vector<int> threads = {1, 2};
    std::vector<std::size_t> points = {100000};
    int solver = 0;
    int runs = 1;
    bool accelerated = false, refine = false, whole = false, hostile = false;
    std::string jsonFile;
    app.add_option("--shapes", shapes,
                   "shapes to sample; one-cell, diagonal, noise, duplicates; or files of clouds")
        ->delimiter(',')
        ->capture_default_str();
    app.add_flag("--hostile", hostile, "the shapes that no scanner makes, in place of others");
    app.add_option("--depths", depths, "octree depths; 0 chooses one with --whole")
        ->delimiter(',')
        ->capture_default_str();
    app.add_option("--threads", threads,
                   "thread numbers; with 1 and 2 among them the serial share of each stage is told")
        ->delimiter(',')
        ->capture_default_str();
    app.add_option("--solver", solver, "as in CVolTriangulationParams::prefferedSolver")
        ->capture_default_str();
    app.add_flag("--accelerated", accelerated, "the accelerated path, with solver 0");
    app.add_flag("--refine", refine, "with refinement");
    app.add_flag("--whole", whole, "QZmath::reconstruct instead of the core");
    app.add_option("--points", points, "samples per cloud; with several, the growth with them is told")
        ->delimiter(',')
        ->capture_default_str();
    app.add_option("--runs", runs, "runs of each case, of which the quickest counts")->capture_default_str();
    app.add_option("--json", jsonFile, "file for the JSON instead of standard output");
    CLI11_PARSE(app, argc, argv);
    if (hostile)
        shapes = hostileNames();

    Json results = Json::array();
    bool hasDied = false;
    for (std::string const & shape : shapes) {
        for (int depth : depths) {
            std::map<int, std::vector<Json>> byThreads;
            for (std::size_t number : points) {
                Json onOne;
                for (int threadNumber : threads) {
                    Json result = bestOf(
                        runs, {shape, depth, threadNumber, solver, number, accelerated, refine, whole});
                    if (result.is_null()) {
                        std::cerr << shape << " depth " << depth << ": the process died\n";
                        hasDied = true;
                        continue;
                    }
                    if (threadNumber == 1)
                        onOne = result;
                    if (threadNumber == 2 && !onOne.is_null())
                        addSerialShare(onOne, result);
                    byThreads[threadNumber].push_back(result);
                    results.push_back(result);
                }
            }
            for (auto const & [threadNumber, byPoints] : byThreads)
                printGrowth(byPoints);
        }
    }
    std::string text = "[\n";
    for (Json const & result : results)
        text += (text.size() > 2 ? ",\n" : "") + result.dump(-1, ' ', false, Json::error_handler_t::replace);
    text += "\n]\n";
    if (jsonFile.empty())
        std::cout << text;
    else if (!(std::ofstream(jsonFile) << text).flush()) {
        std::cerr << "cannot write " << jsonFile << '\n';
        return 1;
    }
    return hasDied ? 1 : 0;
}

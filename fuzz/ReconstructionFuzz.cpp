// SPDX-License-Identifier: Apache-2.0

// A command line of qzrecon and a small cloud: words, one a line, up to an empty line, then a point of six
// floats after the other. Whatever they are, the options are refused by a sentence or lie in their ranges,
// and a run ends in a mesh without a flaw or in an exception, as estimated, also on a cloud that the program
// would refuse. Depths and factors that only take time are left out.

#include <apps/qzrecon/CloudSamples.h>
#include <apps/qzrecon/Options.h>

#include <QZmath/VolTriang/ReconstructionEstimate.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>
#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace
{

constexpr std::size_t mostPoints = 64;
constexpr int greatestDepth = 4;
constexpr float greatestSubdivision = 2.0f;
constexpr float greatestKernelScale = 1.5f;

[[noreturn]] void failed(char const * what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// Checks the mesh while it comes.
class CheckedMesh : public VolTr::ITriangulationTarget
{
private:
    void onAddNewVertex(int index, double const * coords, double const * normal) override
    {
        if (index != m_vertices++)
            failed("vertices out of order");
        if (!isFinite(coords) || !isFinite(normal))
            failed("a vertex that is not finite");
    }
    void onAddNewVertex(int, float const *, float const *) override
    {
        failed("a vertex in single precision");
    }
    void onAddNewTriangle(int a, int b, int c) override
    {
        int const greatest = std::max({a, b, c});
        if (std::min({a, b, c}) < 0 || greatest >= m_vertices)
            failed("a triangle with a vertex that there is not");
        if (a == b || b == c || c == a)
            failed("a triangle with a vertex twice");
    }

    static bool isFinite(double const * triple)
    {
        return std::isfinite(triple[0]) && std::isfinite(triple[1]) && std::isfinite(triple[2]);
    }

    int m_vertices = 0;
};

std::vector<std::string> readWords(std::uint8_t const *& next, std::uint8_t const * end)
{
    std::vector<std::string> words{"qzrecon"};
    while (next < end) {
        std::uint8_t const * const lineEnd = std::find(next, end, '\n');
        std::string const word(next, lineEnd);
        next = lineEnd == end ? end : lineEnd + 1;
        if (word.empty())
            break;
        words.push_back(word.substr(0, word.find('\0')));
    }
    return words;
}

QZmath::PointCloud readCloud(std::uint8_t const * next, std::uint8_t const * end)
{
    QZmath::PointCloud cloud;
    std::array<float, 6> point{};
    while (static_cast<std::size_t>(end - next) >= sizeof(point) && cloud.size() < mostPoints) {
        std::memcpy(point.data(), next, sizeof(point));
        next += sizeof(point);
        cloud.positions.insert(cloud.positions.end(), point.begin(), point.begin() + 3);
        cloud.normals.insert(cloud.normals.end(), point.begin() + 3, point.end());
        cloud.boundary.push_back(cloud.size() % 7 == 0);
    }
    return cloud;
}

std::optional<qz_recon::Options> parse(std::vector<std::string> const & words)
{
    std::vector<char const *> arguments;
    for (std::string const & word : words)
        arguments.push_back(word.c_str());
    try {
        return qz_recon::parseOptions(static_cast<int>(arguments.size()), arguments.data());
    } catch (qz_recon::UsageError const & error) {
        if (*error.what() == '\0')
            failed("refused without a word");
        return std::nullopt;
    }
}

void checkRanges(qz_recon::Options const & options)
{
    VolTr::CVolTriangulationParams const & params = options.params;
    bool const inRange = params.getOctreeDepth() >= (params.getUseCenter() ? 2 : 1) &&
                         params.getOctreeDepth() <= 29 && params.getReconstructFactor() > 0.0f &&
                         std::isfinite(params.getReconstructFactor()) &&
                         std::isfinite(params.getKernelScaleFactor()) && params.getSolverTolerance() > 0.0 &&
                         options.threads >= 0 && options.memoryLimit >= 0.0;
    if (!inRange)
        failed("options out of their ranges");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size)
{
    std::uint8_t const * next = bytes;
    std::optional<qz_recon::Options> const options = parse(readWords(next, bytes + size));
    if (!options)
        return 0;
    checkRanges(*options);
    VolTr::CVolTriangulationParams const & params = options->params;
    if (params.getOctreeDepth() > greatestDepth || params.getReconstructFactor() > greatestSubdivision ||
        params.getKernelScaleFactor() > greatestKernelScale)
        return 0;

    QZmath::PointCloud const cloud = readCloud(next, bytes + size);
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(1 + options->threads % 2);
    qz_recon::CloudSamples const samples(cloud);
    std::optional<VolTr::CReconstructionEstimate> estimate;
    try {
        estimate = VolTr::estimateReconstruction(samples, params);
        if (!(estimate->exactBytes >= 0) || !(estimate->acceleratedBytes >= 0))
            failed("estimated no number");
    } catch (std::exception const &) {
    }
    CheckedMesh mesh;
    VolTr::CReconstructionReport report;
    bool isDone = false;
    try {
        VolTr::CVolumetricTriangulator triangulator(&mesh, &samples, &params, nullptr);
        triangulator.setReport(&report);
        triangulator.run();
        isDone = true;
    } catch (std::exception const & error) {
        if (*error.what() == '\0')
            failed("ended without a word");
    }
    if (isDone && !estimate)
        failed("a run did what the estimate refused");
    if (estimate && (estimate->nodes != report.nodes || estimate->leafCells != report.leafCells))
        failed("a run had not the nodes that were estimated");
    return 0;
}

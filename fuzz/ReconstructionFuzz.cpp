// SPDX-License-Identifier: Apache-2.0

// A command line of qzrecon and a small cloud: words, one a line, up to an empty line, then a point of six
// floats after the other. Whatever they are, the options are refused by a sentence or lie in their ranges.
// Then the whole call makes a mesh without a flaw or ends with a sentence, and so does the core alone, as
// estimated, also on a cloud that the call refuses. Depths and factors that only take time are left out.

#include <apps/qzrecon/Options.h>

#include <QZmath/Files/PointCloud.h>
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZmath/VolTriang/InputSamples.h>
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
#include <map>
#include <optional>
#include <string>
#include <utility>
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
        for (int n = 0; n < 3; ++n)
            cloud.colors.push_back(static_cast<std::uint8_t>(37 * cloud.size()));
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
    QZmath::ReconstructionOptions const & wanted = options.reconstruction;
    VolTr::CVolTriangulationParams const & params = wanted.core;
    int const leastDepth = params.getUseCenter() ? 2 : 1;
    bool const inRange =
        (wanted.depth == 0 || wanted.depth >= leastDepth) && wanted.depth <= 29 && wanted.cellSize >= 0.0 &&
        wanted.trimDistance > 0.0 && wanted.largestHole >= 0.0 && wanted.smallestComponent >= 0.0 &&
        wanted.outlierRemoval >= 0.0 && wanted.simplifyError >= 0.0 && wanted.normalNeighbours >= 3 &&
        params.getReconstructFactor() > 0.0f && std::isfinite(params.getReconstructFactor()) &&
        std::isfinite(params.getKernelScaleFactor()) && params.getSolverTolerance() > 0.0 &&
        wanted.threads >= 0 && options.memoryLimit >= 0.0;
    if (!inRange)
        failed("options out of their ranges");
}

class Samples final : public VolTr::IInputSamples
{
public:
    explicit Samples(QZmath::PointCloud const & cloud) : m_cloud(cloud) {}

private:
    int onPointsNumber() const override { return static_cast<int>(m_cloud.size()); }
    float const * onGetSampleCoords3(int n) const override
    {
        return m_cloud.positions.data() + 3 * std::size_t(n);
    }
    float const * onGetSampleNormal3(int n) const override
    {
        return m_cloud.normals.data() + 3 * std::size_t(n);
    }
    bool onIsBoundaryVertex(int n) const override { return m_cloud.boundary[std::size_t(n)] != 0; }

    QZmath::PointCloud const & m_cloud;
};

void runCore(VolTr::CVolTriangulationParams const & params, QZmath::PointCloud const & cloud)
{
    Samples const samples(cloud);
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
}

// Indices in range, numbers finite, arrays of one length, and each edge with two triangles at most, which run
// through it in opposite directions.
void check(QZmath::TriangleMesh const & mesh, QZmath::ReconstructionReport const & report)
{
    std::size_t const vertices = mesh.vertexCount();
    auto const isFinite = [](std::vector<float> const & values) {
        return std::all_of(values.begin(), values.end(), [](float value) { return std::isfinite(value); });
    };
    if (!isFinite(mesh.positions) || !isFinite(mesh.normals) || !isFinite(mesh.density))
        failed("a mesh with numbers that are not finite");
    if ((!mesh.normals.empty() && mesh.normals.size() != 3 * vertices) ||
        (!mesh.colors.empty() && mesh.colors.size() != 3 * vertices) ||
        (!mesh.density.empty() && mesh.density.size() != vertices))
        failed("a mesh with arrays of different lengths");
    std::map<std::pair<std::int32_t, std::int32_t>, int> edges;
    for (std::size_t corner = 0; corner < mesh.triangles.size(); ++corner) {
        std::int32_t const from = mesh.triangles[corner];
        std::int32_t const to = mesh.triangles[corner % 3 == 2 ? corner - 2 : corner + 1];
        if (from < 0 || static_cast<std::size_t>(from) >= vertices || from == to)
            failed("a triangle with a vertex twice, or one that there is not");
        if (++edges[{from, to}] > 1)
            failed("two triangles on the same side of an edge");
    }
    bool const isClosed = std::all_of(edges.begin(), edges.end(), [&edges](auto const & edge) {
        return edges.count({edge.first.second, edge.first.first}) > 0;
    });
    if (isClosed != report.isClosed || mesh.triangles.empty())
        failed("a mesh that is not as reported");
}

void runWhole(QZmath::ReconstructionOptions options, QZmath::PointCloud const & cloud)
{
    QZmath::PointCloudView view = cloud.view();
    if (cloud.size() % 2 == 1)
        view.normals = nullptr;
    options.viewpointEnds.assign(options.viewpoints.size(), cloud.size());
    QZmath::ReconstructionReport report;
    try {
        check(QZmath::reconstruct(view, options, &report), report);
    } catch (QZmath::ReconstructionError const & error) {
        if (*error.what() == '\0' || error.kind() == QZmath::ReconstructionError::Kind::options)
            failed("refused without a word, or for options that were checked");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size)
{
    std::uint8_t const * next = bytes;
    std::optional<qz_recon::Options> options = parse(readWords(next, bytes + size));
    if (!options)
        return 0;
    checkRanges(*options);
    QZmath::ReconstructionOptions & wanted = options->reconstruction;
    if (wanted.depth == 0)
        wanted.depth = greatestDepth;
    if (wanted.depth > greatestDepth || wanted.core.getReconstructFactor() > greatestSubdivision ||
        wanted.core.getKernelScaleFactor() > greatestKernelScale)
        return 0;
    QZmath::PointCloud const cloud = readCloud(next, bytes + size);
    wanted.threads = 1 + wanted.threads % 2;
    wanted.core.setOctreeDepth(wanted.depth);
    CThreadNumberScope const threads(wanted.threads);
    runCore(wanted.core, cloud);
    runWhole(wanted, cloud);
    return 0;
}

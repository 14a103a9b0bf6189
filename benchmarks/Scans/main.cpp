// SPDX-License-Identifier: Apache-2.0
//
// What becomes of scans as they are: open, in parts, hollow, with holes, stray points and colours. The core
// alone, closed, with the component near the middle, against the whole call; as a table in Markdown, and as
// files.
#include <QZmath/Files/Files.h>
#include <QZmath/QZmath.h>

#include <apps/sampling/SampleShapes.h>
#include <support/Mesh.h>
#include <support/SurfaceScores.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

using Place = std::array<double, 3>;

struct Scan
{
    std::string name;
    QZmath::PointCloud cloud;
    // Of a place, to the true surface.
    std::function<double(REmath::Point3D_d const &)> distance;
    QZmath::ReconstructionOptions options;
};

// Where a shape stands in the scan: turned about x by a quarter or not, scaled, shifted.
struct Pose
{
    bool isTurned = false;
    double scale = 1;
    Place shift{};
    double side = 1; // -1 turns the normals

    Place toScan(float const * p) const
    {
        Place const place = isTurned ? Place{p[0], -double(p[2]), p[1]} : Place{p[0], p[1], p[2]};
        return {scale * place[0] + shift[0], scale * place[1] + shift[1], scale * place[2] + shift[2]};
    }
    REmath::Point3D_d toShape(REmath::Point3D_d const & p) const
    {
        Place const q = {(p.x() - shift[0]) / scale, (p.y() - shift[1]) / scale, (p.z() - shift[2]) / scale};
        return isTurned ? REmath::Point3D_d(q[0], q[2], -q[1]) : REmath::Point3D_d(q[0], q[1], q[2]);
    }
};

struct Part
{
    std::string shape;
    std::size_t points;
    Pose pose;
};

Scan scanOf(
    std::string const & name, std::vector<Part> const & parts, double noise = 0,
    std::function<bool(Place const &)> const & isSeen = [](Place const &) { return true; })
{
    Scan scan;
    scan.name = name;
    std::vector<std::function<double(REmath::Point3D_d const &)>> distances;
    for (Part const & part : parts) {
        qz_sampling::SamplingOptions options;
        options.pointNumber = part.points;
        options.noise = noise;
        std::shared_ptr<qz_sampling::Shape const> const shape = qz_sampling::makeShape(part.shape);
        qz_sampling::Cloud const cloud = sampleCloud(*shape, options);
        Pose normals = part.pose;
        normals.shift = {};
        normals.scale = part.pose.side;
        for (std::size_t n = 0; n < cloud.size(); ++n) {
            Place const place = part.pose.toScan(&cloud.positions[3 * n]);
            Place const normal = normals.toScan(&cloud.normals[3 * n]);
            if (!isSeen(place))
                continue;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                scan.cloud.positions.push_back(static_cast<float>(place[axis]));
                scan.cloud.normals.push_back(static_cast<float>(normal[axis]));
            }
        }
        distances.push_back([shape, pose = part.pose](REmath::Point3D_d const & place) {
            return pose.scale * std::abs(shape->signedDistance(pose.toShape(place)));
        });
    }
    scan.distance = [distances](REmath::Point3D_d const & place) {
        double least = 1e300;
        for (auto const & distance : distances)
            least = std::min(least, distance(place));
        return least;
    };
    return scan;
}

void addStrayPoints(Scan & scan, std::size_t count, Place const & half)
{
    qz_sampling::Random random(7);
    for (std::size_t n = 0; n < count; ++n) {
        for (double const side : half) {
            scan.cloud.positions.push_back(
                static_cast<float>((2.0 * static_cast<double>(random.next() >> 11) * 0x1p-53 - 1.0) * side));
            scan.cloud.normals.push_back(static_cast<float>(random.normal()));
        }
    }
}

// Stripes along z.
void colour(Scan & scan)
{
    for (std::size_t n = 0; n < scan.cloud.size(); ++n) {
        bool const isDark =
            std::fmod(10.0 + 4.0 * static_cast<double>(scan.cloud.positions[3 * n + 2]), 2.0) < 1.0;
        std::array<std::uint8_t, 3> const tint =
            isDark ? std::array<std::uint8_t, 3>{40, 90, 170} : std::array<std::uint8_t, 3>{245, 190, 60};
        scan.cloud.colors.insert(scan.cloud.colors.end(), tint.begin(), tint.end());
    }
}

std::vector<Scan> makeScans()
{
    std::vector<Scan> scans;
    scans.push_back(scanOf("height-field", {{"sheet", 100000, {}}}));
    scans.push_back(
        scanOf("half-sphere", {{"sphere", 100000, {}}}, 0, [](Place const & p) { return p[2] > 0; }));
    Pose second;
    second.isTurned = true;
    second.shift = {1, 0, 0};
    scans.push_back(scanOf("linked-tori", {{"torus", 50000, {}}, {"torus", 50000, second}}));
    Pose inner;
    inner.scale = 0.7;
    inner.side = -1;
    scans.push_back(scanOf("hollow-sphere", {{"sphere", 70000, {}}, {"sphere", 35000, inner}}));
    scans.push_back(scanOf("missing-base", {{"bumpy-sphere", 100000, {}}}, 0,
                           [](Place const & p) { return p[2] > -0.8; }));
    scans.push_back(scanOf("coloured-sphere", {{"sphere", 100000, {}}}));
    colour(scans.back());
    scans.push_back(scanOf("dirty", {{"genus3", 100000, {}}}, 0.001));
    REmath::Point3D_d const half = qz_sampling::makeShape("genus3")->halfExtent();
    addStrayPoints(scans.back(), 5000, {half.x(), half.y(), half.z()});
    scans.back().options.outlierRemoval = 3;
    return scans;
}

struct Outcome
{
    QZmath::TriangleMesh mesh;
    double seconds = 0, aboveCore = 0;
};

double secondsOf(std::function<void()> const & work)
{
    auto const start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Samples final : VolTr::IInputSamples
{
    QZmath::PointCloud const & cloud;
    explicit Samples(QZmath::PointCloud const & points) : cloud(points) {}
    int onPointsNumber() const override { return static_cast<int>(cloud.size()); }
    float const * onGetSampleCoords3(int n) const override { return &cloud.positions[3 * std::size_t(n)]; }
    float const * onGetSampleNormal3(int n) const override { return &cloud.normals[3 * std::size_t(n)]; }
    bool onIsBoundaryVertex(int) const override { return false; }
};

Outcome runCore(Scan const & scan, int depth)
{
    Outcome outcome;
    VolTr::CVolTriangulationParams params = QZmath::ReconstructionOptions::acceleratedCore();
    params.setRefine(true);
    params.setOctreeDepth(depth);
    Samples const samples(scan.cloud);
    qz_test::MeshTarget target;
    outcome.seconds =
        secondsOf([&] { VolTr::CVolumetricTriangulator(&target, &samples, &params, nullptr).run(); });
    for (REmath::Point3D_d const & vertex : target.mesh().vertices)
        for (double const coord : {vertex.x(), vertex.y(), vertex.z()})
            outcome.mesh.positions.push_back(static_cast<float>(coord));
    for (std::array<int, 3> const & triangle : target.mesh().triangles)
        outcome.mesh.triangles.insert(outcome.mesh.triangles.end(), triangle.begin(), triangle.end());
    return outcome;
}

Outcome runAll(Scan const & scan, QZmath::ReconstructionReport & report)
{
    Outcome outcome;
    outcome.seconds =
        secondsOf([&] { outcome.mesh = QZmath::reconstruct(scan.cloud.view(), scan.options, &report); });
    for (VolTr::CReconstructionReport::Phase const & phase : report.phases)
        for (char const * own :
             {"points", "normals", "index", "boundary", "fairing", "triangles", "attributes", "check"})
            outcome.aboveCore += phase.name == own ? phase.seconds : 0.0;
    return outcome;
}

// Triangles, pieces, Euler number, closed or not, and the rms and the greatest distance of the vertices to
// the truth, in leaf cells.
void printOutcome(Outcome const & outcome, Scan const & scan, double leafCell)
{
    qz_test::Mesh mesh;
    for (std::size_t v = 0; v < outcome.mesh.vertexCount(); ++v)
        mesh.vertices.emplace_back(&outcome.mesh.positions[3 * v]);
    for (std::size_t t = 0; t < outcome.mesh.triangles.size(); t += 3)
        mesh.triangles.push_back(
            {outcome.mesh.triangles[t], outcome.mesh.triangles[t + 1], outcome.mesh.triangles[t + 2]});
    qz_test::Topology const topology = examine(mesh);
    qz_test::DistanceScore const score = qz_test::scoreOf(
        mesh.vertices.size(), [&](std::size_t v) { return scan.distance(mesh.vertices[v]) / leafCell; });
    std::printf(" %d | %d, %d, %s | %.2f, %.1f | %.2f |", topology.triangles, topology.components,
                topology.eulerNumber(), topology.boundaryEdges == 0 ? "closed" : "open", score.rms, score.max,
                outcome.seconds);
}

} // namespace

int main(int argc, char ** argv)
{
    std::string folder;
    int threads = 1;
    CLI::App app("Reconstructs scans of every kind, by the core alone and by the whole call.");
    app.add_option("--meshes", folder, "Folder for the meshes: <scan>-core.ply and <scan>.ply");
    app.add_option("--threads", threads, "Threads of both")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(threads);

    std::puts("| scan | core: triangles | pieces, Euler, rim | rms, greatest | s | call: triangles | pieces, "
              "Euler, rim "
              "| rms, greatest | s | of it above the core |");
    std::puts("|---|---|---|---|---|---|---|---|---|---|");
    for (Scan const & scan : makeScans()) {
        QZmath::ReconstructionReport report;
        Outcome const whole = runAll(scan, report);
        Outcome const core = runCore(scan, report.octreeDepth);
        std::printf("| %s |", scan.name.c_str());
        printOutcome(core, scan, report.leafCell);
        printOutcome(whole, scan, report.leafCell);
        std::printf(" %.0f %% |\n", 100.0 * whole.aboveCore / (whole.seconds - whole.aboveCore));
        std::fflush(stdout);
        if (folder.empty())
            continue;
        QZmath::writeMesh(core.mesh, folder + "/" + scan.name + "-core.ply");
        QZmath::writeMesh(whole.mesh, folder + "/" + scan.name + ".ply");
    }
    return 0;
}

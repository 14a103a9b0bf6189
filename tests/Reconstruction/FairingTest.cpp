// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Crossings.h>
#include <QZmath/Reconstruction/Mesh/Fairing.h>
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>

#include "StageSupport.h"

#include <support/SampledClouds.h>

#include <gtest/gtest.h>

#include <numeric>

using namespace QZmath;
using namespace QZmath::Stages;
using qz_test::CoreRun;
using qz_test::isSame;
using qz_test::onTeam;

namespace
{

struct Faired
{
    TriangleMesh mesh;
    FairingFindings findings;
    std::vector<std::uint8_t> isSupported; // vertices at most half the trim distance from a sample
};

// Fairs on several numbers of threads. The samples' neighbourhood keeps its bits, the triangles their
// corners.
Faired fair(TriangleMesh const & mesh, std::vector<float> const & samples, double trimDistance)
{
    FairingRule rule;
    rule.trimDistance = trimDistance;
    Faired result;
    for (int const threads : {1, 2, 3, 8, 16}) {
        onTeam(threads, [&](QzBackend::LoopTeam & team) {
            TriangleMesh other = mesh;
            SampleIndex const index(samples.data(), samples.size() / 3, team);
            result.findings = fairPatches(other, index, rule, team);
            EXPECT_TRUE(threads == 1 || isSame(other, result.mesh));
            result.mesh = other;
            result.isSupported.clear();
            for (std::size_t v = 0; v < mesh.vertexCount(); ++v)
                result.isSupported.push_back(index.anyWithin(vertexOf(mesh, static_cast<std::int32_t>(v)),
                                                             0.5 * trimDistance) != SampleIndex::none);
        });
    }
    EXPECT_EQ(result.mesh.triangles, mesh.triangles);
    for (std::size_t n = 0; n < mesh.positions.size(); ++n) {
        EXPECT_TRUE(!result.isSupported[n / 3] || (result.mesh.positions[n] == mesh.positions[n] &&
                                                   result.mesh.normals[n] == mesh.normals[n]));
        EXPECT_TRUE(std::isfinite(result.mesh.positions[n]));
    }
    return result;
}

// Over the vertices that may have moved. Others as far from samples lie elsewhere: they deviate by NaN.
template <class Deviation>
double rmsWhereFree(TriangleMesh const & mesh, Faired const & faired, Deviation const & deviationOf)
{
    double sum = 0;
    int count = 0;
    for (std::size_t v = 0; v < mesh.vertexCount(); ++v) {
        if (faired.isSupported[v])
            continue;
        double const deviation = deviationOf(vertexOf(mesh, static_cast<std::int32_t>(v)));
        if (std::isnan(deviation))
            continue;
        sum += deviation * deviation;
        ++count;
    }
    return std::sqrt(sum / count);
}

// Of all triangles that pass through others, and of the edges along which triangles look in opposite
// directions.
std::pair<std::size_t, int> faultsOf(TriangleMesh const & mesh)
{
    std::vector<std::int32_t> all(mesh.triangleCount());
    std::iota(all.begin(), all.end(), 0);
    std::pair<std::size_t, int> faults;
    onTeam(2, [&](QzBackend::LoopTeam & team) {
        faults.first = CrossingSearch(mesh, {}).count(all, team);
        auto const opposite = oppositeHalfEdges(mesh, VertexStars(mesh, team), team);
        for (std::size_t h = 0; h < opposite.size(); ++h)
            faults.second += opposite[h] >= 0 && dot(triangleOf(mesh, h / 3).areaNormal(),
                                                     triangleOf(mesh, at(opposite[h]) / 3).areaNormal()) < 0;
    });
    return faults;
}

// A tube of radius 1 around z with dents, and samples at its ends.
struct DentedTube
{
    TriangleMesh mesh;
    std::vector<float> samples;

    explicit DentedTube(int rings)
    {
        int const around = 40;
        for (int ring = 0; ring < rings; ++ring) {
            for (int n = 0; n < around; ++n) {
                double const angle = 2 * 3.14159265358979 * n / around;
                bool const isEnd = ring < 6 || ring >= rings - 6;
                bool const isDented = ring >= 8 && ring < rings - 8;
                double const radius = isDented ? 1 + 0.15 * std::sin(1.7 * ring) * std::cos(5 * angle) : 1;
                for (double const coord : {radius * std::cos(angle), radius * std::sin(angle), 0.15 * ring}) {
                    mesh.positions.push_back(static_cast<float>(coord));
                    if (isEnd)
                        samples.push_back(mesh.positions.back());
                }
                mesh.normals.insert(mesh.normals.end(),
                                    {float(std::cos(angle)), float(std::sin(angle)), 0.0f});
                int const a = ring * around + n;
                int const b = ring * around + (n + 1) % around;
                if (ring + 1 < rings)
                    mesh.triangles.insert(mesh.triangles.end(),
                                          {a, b, b + around, a, b + around, a + around});
            }
        }
    }
};

} // namespace

TEST(Fairing, givesASphereItsCapBack)
{
    auto const sphere = qz_test::spiralSphere(40000);
    for (auto const & [height, cells] : {std::pair{-0.9f, 0.2}, std::pair{-0.76f, 1.0}}) {
        CoreRun const run(sphere, 7, [z = height](std::array<float, 3> const & p) { return p[2] > z; });
        Faired const faired = fair(run.mesh, run.positions, 2 * run.leafCell);
        auto const deviation = [&](Vec const & p) { return (p.length() - 1) / run.leafCell; };
        double const was = rmsWhereFree(run.mesh, faired, deviation);
        EXPECT_LT(rmsWhereFree(faired.mesh, faired, deviation), std::min(cells, 0.25 * was)) << was;
        EXPECT_EQ(faired.findings.faired, 1);
        auto const before = faultsOf(run.mesh), after = faultsOf(faired.mesh);
        EXPECT_LE(after.first, before.first);
        EXPECT_LE(after.second, before.second);
        for (std::size_t v = 0; v < faired.mesh.vertexCount(); ++v) { // new ones, too
            Vec const normal = Vec::of(&faired.mesh.normals[3 * v]);
            Vec const place = vertexOf(faired.mesh, static_cast<std::int32_t>(v));
            EXPECT_GT(dot(normal, place), 0.9 * normal.length() * place.length());
        }
    }
}

TEST(Fairing, spansAHoleInAPlateFlat)
{
    auto const isSeen = [](std::array<float, 3> const & p) {
        return p[2] < 0 || std::hypot(p[0], p[1]) > 0.3f;
    };
    CoreRun const run(qz_test::sampledShape("plate", 40000), 7, isSeen);
    Faired const faired = fair(run.mesh, run.positions, 2 * run.leafCell);
    auto const deviation = [&](Vec const & p) {
        return std::hypot(p[0], p[1]) < 0.3 && p[2] > 0 ? (p[2] - 0.15) / run.leafCell : std::nan("");
    };
    EXPECT_LT(rmsWhereFree(faired.mesh, faired, deviation),
              std::min(0.02, 0.25 * rmsWhereFree(run.mesh, faired, deviation)));
}

// The walls end at the edges of the base, where the surface must turn off at once.
TEST(Fairing, doesNotBlowUpAMissingBase)
{
    CoreRun const run(qz_test::sampledShape("block", 40000), 7,
                      [](std::array<float, 3> const & p) { return p[2] > -0.499f; });
    Faired const faired = fair(run.mesh, run.positions, 2 * run.leafCell);
    EXPECT_EQ(faired.findings.faired, 1);
    qz_test::Mesh const mesh = qz_test::toTestMesh(faired.mesh);
    EXPECT_TRUE(examine(mesh).isClosed());
    EXPECT_EQ(examine(mesh).eulerNumber(), 2);
    EXPECT_NEAR(signedVolume(mesh) / 2.8, 1, 0.03);
    auto const deviation = [&](Vec const & p) {
        return p[2] < -0.4 ? (p[2] + 0.5) / run.leafCell : std::nan("");
    };
    EXPECT_LT(rmsWhereFree(faired.mesh, faired, deviation), 3);
    auto const [crossings, folds] = faultsOf(faired.mesh);
    EXPECT_LE(crossings, faultsOf(run.mesh).first);
    EXPECT_LE(folds, faultsOf(run.mesh).second + int(0.002 * double(faired.mesh.triangleCount())));
}

// A long one would be tied off.
TEST(Fairing, smoothsAShortTubeAndLeavesALongOne)
{
    DentedTube const tube(24);
    Faired const faired = fair(tube.mesh, tube.samples, 0.4);
    EXPECT_EQ(faired.findings.faired, 1);
    auto const deviation = [&](Vec const & p) { return std::hypot(p[0], p[1]) - 1; };
    EXPECT_GT(rmsWhereFree(tube.mesh, faired, deviation), 0.06);
    EXPECT_LT(rmsWhereFree(faired.mesh, faired, deviation), 0.035);

    DentedTube const longer(150);
    Faired const left = fair(longer.mesh, longer.samples, 0.4);
    EXPECT_EQ(left.findings.left, 1);
    EXPECT_TRUE(isSame(left.mesh, longer.mesh));
}

// A bulge into another sheet is taken back as far as it takes.
TEST(Fairing, doesNotPassThroughAnotherSheet)
{
    CoreRun const run(qz_test::spiralSphere(15000), 6,
                      [](std::array<float, 3> const & p) { return p[2] > -0.76f; });
    TriangleMesh mesh = run.mesh;
    std::vector<float> samples = run.positions;
    TriangleMesh const sheet = qz_test::flatGrid(20);
    std::int32_t const first = static_cast<std::int32_t>(mesh.vertexCount());
    for (std::size_t n = 0; n < sheet.positions.size(); n += 3) {
        for (float const coord :
             {0.02f * sheet.positions[n] - 0.2f, 0.02f * sheet.positions[n + 1] - 0.2f, -0.95f}) {
            mesh.positions.push_back(coord);
            samples.push_back(coord);
        }
        mesh.normals.insert(mesh.normals.end(), {0, 0, 1});
    }
    for (std::int32_t const corner : sheet.triangles)
        mesh.triangles.push_back(first + corner);
    ASSERT_EQ(faultsOf(mesh).first, 0u);
    Faired const faired = fair(mesh, samples, 2 * run.leafCell);
    EXPECT_EQ(faired.findings.faired, 1);
    EXPECT_EQ(faultsOf(faired.mesh).first, 0u);
    EXPECT_FALSE(isSame(faired.mesh, mesh));
}

TEST(Fairing, takesAnyMesh)
{
    TriangleMesh const grid = qz_test::flatGrid(40);
    std::vector<float> const corner = {0, 0, 0};
    EXPECT_EQ(fair(TriangleMesh(), corner, 1).findings.faired, 0);
    EXPECT_EQ(fair(grid, corner, 100).findings.faired, 0);
    fair(grid, corner, 2);       // up to the border of the mesh
    fair(grid, {1e3f, 0, 0}, 2); // without any support
    TriangleMesh flat = grid;    // in one place
    std::fill(flat.positions.begin(), flat.positions.end(), 1.0f);
    fair(flat, {1e3f, 0, 0}, 2);
}

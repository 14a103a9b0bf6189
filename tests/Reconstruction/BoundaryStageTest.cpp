// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/BoundaryStage.h>
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>

#include "StageSupport.h"

#include <support/SampledClouds.h>

#include <gtest/gtest.h>

#include <random>

using namespace QZmath;
using namespace QZmath::Stages;
using qz_test::CoreRun;
using qz_test::isSame;
using qz_test::onTeam;

namespace
{

BoundaryRule ruleOf(double leafCell, Boundary boundary = Boundary::automatic)
{
    BoundaryRule rule;
    rule.boundary = boundary;
    rule.trimDistance = 2 * leafCell;
    rule.leafCell = leafCell;
    rule.largestHole = 0.2;
    return rule;
}

struct Settled
{
    TriangleMesh mesh;
    BoundaryFindings findings;
    BorderLoops loops;
    qz_test::Topology topology;
};

Settled settle(TriangleMesh const & mesh, std::vector<float> const & samples, BoundaryRule const & rule,
               int threads = 2)
{
    Settled result;
    result.mesh = mesh;
    onTeam(threads, [&](QzBackend::LoopTeam & team) {
        SampleIndex const index(samples.data(), samples.size() / 3, team);
        result.findings = settleBoundary(result.mesh, index, rule, team);
        result.loops = measureBorders(result.mesh, team);
    });
    result.topology = examine(qz_test::toTestMesh(result.mesh));
    EXPECT_TRUE(result.topology.isManifold());
    EXPECT_EQ(result.topology.unusedVertices, 0);
    for (std::size_t v = 0; v < result.mesh.vertexCount(); ++v)
        EXPECT_NEAR(Vec::of(&result.mesh.normals[3 * v]).length(), 1, 1e-3);
    return result;
}

// Distance of the rim's vertices to a line, root of the mean square.
template <class Deviation>
double rimDeviation(TriangleMesh const & mesh, Deviation const & deviationOf)
{
    double sum = 0;
    int count = 0;
    onTeam(1, [&](QzBackend::LoopTeam & team) {
        auto const opposite = oppositeHalfEdges(mesh, VertexStars(mesh, team), team);
        for (std::size_t h = 0; h < opposite.size(); ++h) {
            if (opposite[h] >= 0)
                continue;
            double const deviation = deviationOf(vertexOf(mesh, mesh.triangles[h]));
            sum += deviation * deviation;
            ++count;
        }
    });
    return std::sqrt(sum / count);
}

// Samples on the lattice of half cells, of which those count that are wanted.
template <class IsSeen>
std::vector<float> flatSamples(int cells, IsSeen const & isSeen)
{
    std::vector<float> samples;
    for (int y = 0; y <= 2 * cells; ++y) {
        for (int x = 0; x <= 2 * cells; ++x) {
            if (isSeen(0.5 * x, 0.5 * y))
                samples.insert(samples.end(), {0.5f * float(x), 0.5f * float(y), 0.0f});
        }
    }
    return samples;
}

} // namespace

TEST(BoundaryStage, cutsTheSheetOffAHeightField)
{
    for (std::size_t const points : {15000u, 150000u}) {
        CoreRun const run(qz_test::sampledShape("sheet", points), 7);
        ASSERT_GT(area(qz_test::toTestMesh(run.mesh)), 40);
        Settled const cut = settle(run.mesh, run.positions, ruleOf(run.leafCell));
        EXPECT_EQ(cut.topology.components, 1);
        EXPECT_EQ(cut.topology.eulerNumber(), 1);
        EXPECT_EQ(cut.loops.count, 1);
        EXPECT_NEAR(cut.loops.length, 8.2, 0.4);
        EXPECT_LT(rimDeviation(cut.mesh,
                               [&](Vec const & p) {
                                   return (std::max(std::abs(p[0]), std::abs(p[1])) - 1) / run.leafCell;
                               }),
                  1.2);
        for (int const threads : {1, 3})
            EXPECT_TRUE(
                isSame(settle(run.mesh, run.positions, ruleOf(run.leafCell), threads).mesh, cut.mesh));
    }
}

TEST(BoundaryStage, closesAMissingBaseAndLeavesHalfASphereOpen)
{
    auto const sphere = qz_test::spiralSphere(40000);
    CoreRun const base(sphere, 7, [](std::array<float, 3> const & p) { return p[2] > -0.9f; });
    Settled const closed = settle(base.mesh, base.positions, ruleOf(base.leafCell));
    EXPECT_TRUE(isSame(closed.mesh, base.mesh));
    EXPECT_EQ(closed.findings.holesClosed, 1);
    EXPECT_NEAR(closed.findings.closedArea / closed.findings.supportedArea, 0.05, 0.01);
    EXPECT_NEAR(closed.findings.supportedArea, 0.95 * 4 * 3.14159, 0.1);

    // The same gap cut open: by rule, by its size, or since its rim is marked as the object's own.
    BoundaryRule smaller = ruleOf(base.leafCell);
    smaller.largestHole = 0.02;
    std::vector<std::uint8_t> marks;
    for (std::size_t n = 2; n < base.positions.size(); n += 3)
        marks.push_back(base.positions[n] < -0.87f);
    BoundaryRule marked = ruleOf(base.leafCell);
    marked.boundaryMarks = marks.data();
    for (BoundaryRule const & rule : {ruleOf(base.leafCell, Boundary::open), smaller, marked}) {
        Settled const open = settle(base.mesh, base.positions, rule);
        EXPECT_EQ(open.topology.eulerNumber(), 1);
        EXPECT_EQ(open.loops.count, 1);
        EXPECT_EQ(open.findings.patchesCut, 1);
        EXPECT_LT(rimDeviation(open.mesh, [&](Vec const & p) { return (p[2] + 0.9) / base.leafCell; }), 1);
    }

    CoreRun const half(sphere, 7, [](std::array<float, 3> const & p) { return p[2] > 0; });
    EXPECT_EQ(settle(half.mesh, half.positions, ruleOf(half.leafCell)).loops.count, 1);
    EXPECT_TRUE(
        isSame(settle(half.mesh, half.positions, ruleOf(half.leafCell, Boundary::closed)).mesh, half.mesh));
}

// Patches that end at a border of the mesh are parts of something larger that was not followed.
TEST(BoundaryStage, cutsWhatReachesABorderHoweverSmall)
{
    int const cells = 60;
    TriangleMesh const mesh = qz_test::flatGrid(cells);
    auto const isInner = [](double x, double y) { return x > 5.2 && x < 54.8 && y > 5.2 && y < 54.8; };
    auto const isHole = [](double x, double y) { return std::hypot(x - 30.2, y - 29.7) < 7; };
    std::vector<float> const samples =
        flatSamples(cells, [&](double x, double y) { return isInner(x, y) && !isHole(x, y); });
    BoundaryRule rule = ruleOf(1);
    rule.largestHole = 1;
    Settled const cut = settle(mesh, samples, rule);
    EXPECT_EQ(cut.findings.holesClosed, 1);
    EXPECT_EQ(cut.findings.patchesCut, 1);
    EXPECT_EQ(cut.loops.count, 1);
    EXPECT_NEAR(cut.findings.closedArea, 3.14159 * 5 * 5, 5); // less the trim distance all around
    // The samples end at 5.5 and 54.5; the cut runs one cell outside of them.
    EXPECT_LT(
        rimDeviation(cut.mesh,
                     [](Vec const & p) { return std::max(std::abs(p[0] - 30), std::abs(p[1] - 30)) - 25.5; }),
        0.2);
    double leastSine = 1;
    for (std::size_t t = 0; t < cut.mesh.triangleCount(); ++t)
        leastSine = std::min(leastSine, triangleOf(cut.mesh, t).leastSine());
    EXPECT_GT(leastSine, std::sin(8 * 3.14159 / 180));

    rule.boundary = Boundary::open;
    Settled const open = settle(mesh, samples, rule);
    EXPECT_EQ(open.loops.count, 2);
    EXPECT_EQ(open.topology.eulerNumber(), 0);

    // The order of triangles has no influence on where vertices are.
    std::vector<std::size_t> order(mesh.triangleCount());
    for (std::size_t t = 0; t < order.size(); ++t)
        order[t] = t;
    std::shuffle(order.begin(), order.end(), std::mt19937(3));
    TriangleMesh shuffled = mesh;
    for (std::size_t t = 0; t < order.size(); ++t)
        std::copy_n(mesh.triangles.begin() + std::ptrdiff_t(3 * order[t]), 3,
                    shuffled.triangles.begin() + std::ptrdiff_t(3 * t));
    EXPECT_EQ(settle(shuffled, samples, rule).mesh.positions, open.mesh.positions);
}

TEST(BoundaryStage, staysManifoldWithRandomSamples)
{
    std::mt19937 random(9);
    TriangleMesh const mesh = qz_test::flatGrid(80);
    for (int round = 0; round < 30; ++round) {
        std::vector<float> samples;
        for (int n = 0; n < 50 + 40 * round; ++n)
            samples.insert(samples.end(), {float(random() % 8000) / 100, float(random() % 8000) / 100, 0.0f});
        BoundaryRule rule = ruleOf(1, round % 2 ? Boundary::open : Boundary::automatic);
        rule.trimDistance = 1 + 0.1 * round;
        rule.largestHole = 0.01;
        Settled const cut = settle(mesh, samples, rule);
        double far = 0;
        for (std::size_t v = 0; v < cut.mesh.vertexCount(); ++v) {
            double nearest = 1e9;
            for (std::size_t n = 0; n < samples.size(); n += 3)
                nearest =
                    std::min(nearest, (Vec::of(&samples[n]) - Vec::of(&cut.mesh.positions[3 * v])).length());
            far = std::max(far, nearest);
        }
        if (rule.boundary == Boundary::open) {
            EXPECT_LT(far, rule.trimDistance + 0.01);
        }
    }
}

TEST(BoundaryStage, dropsEverythingWithoutSamplesAndTakesEmptyMeshes)
{
    EXPECT_EQ(settle(qz_test::flatGrid(5), {}, ruleOf(1)).mesh.vertexCount(), 0u);
    EXPECT_EQ(settle(qz_test::flatGrid(5), {}, ruleOf(1, Boundary::closed)).mesh.triangleCount(), 50u);
    EXPECT_EQ(settle(TriangleMesh(), {0, 0, 0}, ruleOf(1)).loops.count, 0);
}

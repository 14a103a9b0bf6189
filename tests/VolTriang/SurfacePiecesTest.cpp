// SPDX-License-Identifier: Apache-2.0
//
// Which parts of the level set come out: all pieces near samples, and unsupported surface only so far.
#include <VolTriang/Runs.h>
#include <support/SurfaceScores.h>

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <ostream>
#include <random>

using namespace VolTr;
using namespace qz_test;
using REmath::Point3D_d;

namespace
{

// Adds what lies where `keeps` says so, after turning y to z, scaling by `scale` (normals look inwards where
// it is negative) and shifting.
void addPart(PointCloudSamples & samples, PointCloudSamples const & part, float scale,
             std::array<float, 3> const & shift, bool isTurned = false,
             std::function<bool(std::array<float, 3> const &)> const & keeps = nullptr)
{
    for (std::size_t n = 0; n < part.points.size(); ++n) {
        std::array<float, 3> point = part.points[n];
        std::array<float, 3> normal = part.normals[n];
        if (keeps && !keeps(point))
            continue;
        if (isTurned) {
            point = {point[0], -point[2], point[1]};
            normal = {normal[0], -normal[2], normal[1]};
        }
        for (std::size_t axis = 0; axis < 3; ++axis) {
            point[axis] = std::fabs(scale) * point[axis] + shift[axis];
            normal[axis] = scale < 0 ? -normal[axis] : normal[axis];
        }
        samples.add(point, normal, part.boundaryMarks[n] != 0);
    }
}

PointCloudSamples cloudNamed(std::string const & name)
{
    PointCloudSamples samples;
    auto const sphere = [](std::size_t points) { return sampledShape("sphere", points); };
    if (name == "two spheres") {
        addPart(samples, sphere(6000), 1.0f, {0, 0, 0});
        addPart(samples, sphere(3000), 0.6f, {1.9f, 0.3f, 0});
    } else if (name == "ring of ten") {
        for (int n = 0; n < 10; ++n) {
            float const angle = 0.6283185f * static_cast<float>(n);
            addPart(samples, sphere(1500), 0.35f, {1.5f * std::cos(angle), 1.5f * std::sin(angle), 0});
        }
    } else if (name == "hollow sphere") {
        addPart(samples, sphere(10000), 1.0f, {0, 0, 0});
        addPart(samples, sphere(4000), -0.65f, {0, 0, 0});
    } else if (name == "linked tori") {
        addPart(samples, sampledShape("torus", 10000), 1.0f, {0, 0, 0});
        addPart(samples, sampledShape("torus", 10000), 1.0f, {1, 0, 0}, true);
    } else if (name == "two sheets") {
        for (float const shift : {0.0f, 4.0f})
            addPart(samples, sampledShape("sheet", 10000), 1.0f, {shift, 0, 0});
    } else {
        samples = sampledShape(name, 12000);
    }
    return samples;
}

PointCloudSamples capped(double share)
{
    PointCloudSamples samples;
    addPart(samples, sampledShape("sphere", 20000), 1.0f, {0, 0, 0}, false,
            [&](std::array<float, 3> const & point) { return point[2] < 1 - 2 * share; });
    return samples;
}

// Distance of the mesh's border to the nearest sample.
double borderDistance(Mesh const & mesh, PointCloudSamples const & samples)
{
    std::map<std::pair<int, int>, int> edges;
    for (std::array<int, 3> const & t : mesh.triangles)
        for (std::size_t n = 0; n < 3; ++n)
            ++edges[std::minmax(t[n], t[(n + 1) % 3])];
    double least = std::numeric_limits<double>::infinity();
    for (auto const & [edge, triangles] : edges) {
        if (triangles != 1)
            continue;
        Point3D_d const & vertex = mesh.vertices[static_cast<std::size_t>(edge.first)];
        for (std::array<float, 3> const & p : samples.points)
            least = std::min(least, (vertex - Point3D_d(p[0], p[1], p[2])).length());
    }
    return least;
}

struct Case
{
    char const * cloud;
    int depth;
    int pieces;
    int eulerNumber;
    bool isClosed = true;
};

void PrintTo(Case const & c, std::ostream * out) { *out << c.cloud; }

class Pieces : public testing::TestWithParam<Case>
{};

} // namespace

TEST_P(Pieces, AllComeOutWithTheFirstAsItIsAlone)
{
    Case const & c = GetParam();
    PointCloudSamples const samples = cloudNamed(c.cloud);
    struct Kind
    {
        bool isAccelerated;
        bool isRefined;
    };
    for (Kind const kind : {Kind{true, true}, Kind{true, false}, Kind{false, false}}) {
        SCOPED_TRACE(testing::Message() << kind.isAccelerated << kind.isRefined);
        if (!kind.isAccelerated && c.depth > 6)
            continue; // slow
        CVolTriangulationParams params = paramsOf(c.depth, kind.isAccelerated);
        params.setRefine(kind.isRefined);
        params.setClosed(c.isClosed);
        Mesh const first = reconstruct(samples, params).mesh;
        params.setAllComponents(true);
        Result const all = reconstruct(samples, params);
        EXPECT_EQ(all.report.pieces, c.pieces);
        Topology const topology = examine(all.mesh);
        EXPECT_TRUE(c.isClosed ? topology.isClosed() : topology.isManifold());
        EXPECT_EQ(topology.components, c.pieces);
        EXPECT_EQ(topology.eulerNumber(), c.eulerNumber);
        ASSERT_LE(first.vertices.size(), all.mesh.vertices.size());
        EXPECT_TRUE(std::equal(first.vertices.begin(), first.vertices.end(), all.mesh.vertices.begin()));
        EXPECT_TRUE(std::equal(first.triangles.begin(), first.triangles.end(), all.mesh.triangles.begin()));
        EXPECT_EQ(c.pieces == 1, all.mesh.triangles.size() == first.triangles.size());
        // Samples support all of a closed surface, so the reach cuts nothing off.
        params.setReach(2);
        for (int threads = kind.isAccelerated ? 1 : 3; threads <= 3; ++threads) {
            Result const within = reconstruct(samples, params, threads);
            EXPECT_TRUE(!c.isClosed || within.mesh == all.mesh) << threads;
            EXPECT_EQ(within.report.pieces, c.pieces);
            EXPECT_EQ(within.report.closedPatches + within.report.abandonedPatches > 0, !c.isClosed);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Clouds, Pieces,
                         testing::Values(Case{"genus3", 6, 1, -4}, Case{"two spheres", 5, 2, 4},
                                         Case{"ring of ten", 6, 10, 20}, Case{"hollow sphere", 5, 2, 4},
                                         Case{"linked tori", 7, 2, 0}, Case{"two sheets", 6, 2, 2, false}));

TEST(Reach, KeepsTheSheetOfAnOpenSurfaceShort)
{
    PointCloudSamples const samples = sampledShape("sheet", 20000);
    int const depth = 6;
    double const cell = leafCell(samples, depth);
    for (bool const accelerated : {true, false}) {
        for (double const reach : {1.0, 3.5}) {
            for (double const gap : {0.0, 0.2}) {
                SCOPED_TRACE(testing::Message() << accelerated << ", reach " << reach << ", gap " << gap);
                CVolTriangulationParams params = paramsOf(depth, accelerated);
                params.setReach(reach);
                params.setLargestGap(gap);
                Result const run = reconstruct(samples, params);
                EXPECT_GT(borderDistance(run.mesh, samples), (reach + 1) * cell);
                // Marks reach an edge of a cube, two cells, too far at most.
                double const side = 1 + (reach + 1 + 2) * cell;
                EXPECT_LT(area(run.mesh),
                          (1 + gap) * 1.15 * side * side * qz_sampling::makeShape("sheet")->area());
                EXPECT_GT(run.report.abandonedPatches, 0);
                EXPECT_EQ(run.report.pieces, 1);
                EXPECT_FALSE(run.report.endsAtLimit);
            }
        }
    }
    // Without, the surface is followed until the cubes end.
    Result const closed = reconstruct(samples, paramsOf(depth, true));
    EXPECT_GT(area(closed.mesh), 10 * qz_sampling::makeShape("sheet")->area());
    EXPECT_TRUE(closed.report.endsAtLimit);
}

TEST(Reach, ClosesGapsUpToTheLargest)
{
    struct Gap
    {
        double share;
        double largest;
        bool isClosed;
    };
    for (Gap const & gap :
         {Gap{0.05, 0.2, true}, Gap{0.1, 0.0, false}, Gap{0.25, 0.12, false}, Gap{0.25, 0.5, true}}) {
        PointCloudSamples const samples = capped(gap.share);
        for (bool const accelerated : {true, false}) {
            SCOPED_TRACE(testing::Message() << gap.share << " of " << gap.largest << ", " << accelerated);
            int const depth = accelerated ? 6 : 5;
            CVolTriangulationParams params = paramsOf(depth, accelerated);
            params.setReach(2);
            params.setLargestGap(gap.largest);
            Result const run = reconstruct(samples, params);
            EXPECT_EQ(run.report.closedPatches, gap.isClosed ? 1 : 0);
            EXPECT_EQ(run.report.abandonedPatches > 0, !gap.isClosed);
            Topology const topology = examine(run.mesh);
            EXPECT_EQ(topology.isClosed(), gap.isClosed);
            EXPECT_EQ(topology.components, 1);
            EXPECT_EQ(topology.eulerNumber(), gap.isClosed ? 2 : 1);
            EXPECT_GT(borderDistance(run.mesh, samples), 3 * leafCell(samples, depth));
        }
    }
}

// All patches are followed at the same time, so the small ones are complete when the sheet around them has
// used up what is allowed.
TEST(Reach, ClosesTheSmallGapsBesideTheLarge)
{
    PointCloudSamples samples;
    for (int part = 0; part < 6; ++part)
        addPart(samples, sampledShape("sheet", 6000), 1.0f,
                {2.6f * static_cast<float>(part % 3), 2.6f * static_cast<float>(part / 3), 0}, false,
                [](std::array<float, 3> const & p) { return std::hypot(p[0], p[1]) > 0.3f; });
    CVolTriangulationParams params = paramsOf(7, true);
    params.setAllComponents(true);
    params.setReach(2);
    params.setLargestGap(1);
    Result const run = reconstruct(samples, params);
    EXPECT_EQ(run.report.pieces, 6);
    EXPECT_EQ(run.report.closedPatches, 6);
    EXPECT_GT(run.report.abandonedPatches, 0);
    EXPECT_LT(area(run.mesh), 3 * 6 * qz_sampling::makeShape("sheet")->area());
}

TEST(Reach, BoundsTheWorkOnHostileClouds)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::map<std::string, PointCloudSamples> clouds;
    for (int n = 0; n < 1000; ++n)
        clouds["noise"].add({uniform(random), uniform(random), uniform(random)},
                            {uniform(random), uniform(random), uniform(random)});
    for (int n = 0; n < 100; ++n) {
        clouds["equal"].add({1, 2, 3}, {0, 1, 0});
        clouds["line"].add({0.01f * static_cast<float>(n), 0, 0}, {0, 0, 1});
    }
    clouds["one"].add({1, 2, 3}, {0, 0, 1});
    clouds["outlier"] = sampledShape("sphere", 2000);
    clouds["outlier"].add({20, 0, 0}, {0, 0, 1});
    for (auto const & [name, samples] : clouds) {
        for (bool const accelerated : {true, false}) {
            for (double const reach : {0.01, 2.0, 40.0}) {
                SCOPED_TRACE(testing::Message() << name << ", " << accelerated << ", reach " << reach);
                CVolTriangulationParams params = paramsOf(accelerated ? 7 : 4, accelerated);
                params.setAllComponents(true);
                params.setReach(reach);
                Result const run = reconstruct(samples, params);
                // So many leaf cells in reach of a sample, six triangles each, and as many unsupported ones.
                double const width = std::max(2 * reach + 6, 3 * reach) + 2;
                double const most = 12 * width * width * width * static_cast<double>(samples.points.size());
                EXPECT_LT(static_cast<double>(run.mesh.triangles.size()), most);
                EXPECT_EQ(run.failure.empty(), run.report.failure.empty());
            }
        }
    }
}

TEST(ReconstructionReport, SaysWhyThereIsNoSurface)
{
    PointCloudSamples const sphere = spiralSphere(300);
    for (bool const accelerated : {true, false}) {
        CVolTriangulationParams params = paramsOf(4, accelerated);
        auto const causeOf = [&](PointCloudSamples const & samples) {
            return reconstruct(samples, params).report.failure;
        };
        EXPECT_EQ(causeOf(sphere), "");
        EXPECT_THAT(causeOf(PointCloudSamples()), testing::HasSubstr("no samples"));
        EXPECT_THAT(causeOf(spiralSphere(300, 0.0f)), testing::HasSubstr("same everywhere"));
        params.setReconstructFactor(-1.0f);
        EXPECT_THAT(causeOf(sphere), testing::HasSubstr("no size"));
        params.setReconstructFactor(1e-6f);
        EXPECT_THAT(causeOf(sphere), testing::HasSubstr("no crossing with cubes of edge"));
    }
}

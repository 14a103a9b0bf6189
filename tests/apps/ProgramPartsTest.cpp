// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/MemoryEstimate.h>
#include <apps/qzrecon/Options.h>
#include <apps/qzrecon/UnreachedParts.h>

#include <QZmath/VolTriang/Octree.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

using namespace qz_recon;

namespace
{

/// Even points on a sphere.
void addSphere(qz_io::PointCloud & cloud, std::size_t count, float const (&centre)[3], float radius,
               unsigned seed)
{
    std::mt19937 engine(seed);
    std::normal_distribution<float> normal;
    for (std::size_t i = 0; i < count; ++i) {
        float const direction[3] = {normal(engine), normal(engine), normal(engine)};
        float const length = std::hypot(direction[0], direction[1], direction[2]);
        for (int axis = 0; axis < 3; ++axis) {
            cloud.coords.push_back(centre[axis] + radius * direction[axis] / length);
            cloud.normals.push_back(direction[axis] / length);
        }
    }
}

std::optional<Options> parse(std::vector<char const *> arguments)
{
    arguments.insert(arguments.begin(), "qzrecon");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

} // namespace

TEST(MemoryEstimate, nodesAreCountedAsTheOctreeMakesThem)
{
    qz_io::PointCloud cloud;
    addSphere(cloud, 4000, {3.0f, -7.0f, 0.5f}, 2.0f, 1);
    addSphere(cloud, 300, {8.0f, -7.0f, 0.5f}, 0.1f, 2);
    qz_io::CloudSamples const samples(cloud);
    for (int depth : {2, 3, 5, 7, 9})
        for (bool useCenter : {true, false})
            for (int levels : {-1, 0, 2, 40}) {
                VolTr::CVolTriangulationParams params;
                params.setOctreeDepth(depth);
                params.setUseCenter(useCenter);
                params.setDetalizationLevel(levels);
                VolTr::COctree const octree(&samples, depth, nullptr, useCenter, levels);
                EXPECT_EQ(countOctreeNodes(cloud, params),
                          static_cast<std::uint64_t>(octree.getNodesNumber()))
                    << depth << ' ' << useCenter << ' ' << levels;
            }
    EXPECT_GT(availableMemory(), 1e6);
    EXPECT_LT(availableMemory(), 1e15);
    EXPECT_GT(peakMemory(), 1e6);
}

TEST(UnreachedParts, farGroupsAreFoundAndStrayPointsAreNot)
{
    qz_io::PointCloud cloud;
    addSphere(cloud, 3000, {0.0f, 0.0f, 0.0f}, 1.0f, 3);
    qz_io::TriangleMesh mesh;
    mesh.coords = cloud.coords;
    EXPECT_TRUE(findUnreachedParts(cloud, mesh, 0.1).empty());
    addSphere(cloud, 200, {5.0f, 0.0f, 0.0f}, 0.2f, 4);
    addSphere(cloud, 500, {0.0f, -4.0f, 0.0f}, 0.2f, 5);
    addSphere(cloud, 9, {0.0f, 0.0f, 9.0f}, 0.01f, 6);
    std::vector<UnreachedPart> const parts = findUnreachedParts(cloud, mesh, 0.1);
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0].samples, 500u);
    EXPECT_EQ(parts[1].samples, 200u);
    EXPECT_NEAR(parts[0].firstSample[1], -4.0f, 0.21f);
    EXPECT_EQ(findUnreachedParts(cloud, qz_io::TriangleMesh(), 0.1).size(), 3u)
        << "an empty mesh reaches nothing";
    EXPECT_TRUE(findUnreachedParts(cloud, mesh, 100.0).empty());
    EXPECT_LE(findUnreachedParts(cloud, mesh, 1e-300).size(), cloud.size() / 10)
        << "the lattice stays countable";
}

TEST(Options, defaultsAreThoseOfTheLibraryAndEveryFieldCanBeSet)
{
    VolTr::CVolTriangulationParams const library;
    Options const plain = parse({"in.ply", "-o", "out.ply"}).value();
    EXPECT_EQ(plain.params.getOctreeDepth(), 8);
    EXPECT_EQ(plain.params.getReconstructFactor(), library.getReconstructFactor());
    EXPECT_EQ(plain.params.getClosed(), library.getClosed());
    EXPECT_EQ(plain.params.getEstimateResultNormals(), library.getEstimateResultNormals());
    EXPECT_EQ(plain.params.getUseCenter(), library.getUseCenter());
    EXPECT_EQ(plain.params.getKernelScaleFactor(), library.getKernelScaleFactor());
    EXPECT_EQ(plain.params.getVariableDensity(), library.getVariableDensity());
    EXPECT_EQ(plain.params.getDensityEstimationDepthDelta(), library.getDensityEstimationDepthDelta());
    EXPECT_EQ(plain.params.getDetalizationLevel(), library.getDetalizationLevel());
    EXPECT_EQ(plain.params.getPrefferedSolver(), library.getPrefferedSolver());
    EXPECT_EQ(plain.params.getSolverTolerance(), library.getSolverTolerance());
    EXPECT_TRUE(plain.params.getAccelerated());

    Options const set = parse({"-o",
                               "out.ply",
                               "in.ply",
                               "--depth",
                               "5",
                               "--subdivision",
                               "2",
                               "--open",
                               "--normals",
                               "--corner",
                               "--kernel-scale",
                               "-1",
                               "--uniform-density",
                               "--density-delta",
                               "3",
                               "--levels",
                               "4",
                               "--exact",
                               "--tolerance",
                               "0.01",
                               "--solver",
                               "iterative",
                               "--threads",
                               "2",
                               "--log",
                               "l.txt",
                               "-q",
                               "--max-memory",
                               "1.5",
                               "--no-phase-names"})
                            .value();
    EXPECT_EQ(set.params.getOctreeDepth(), 5);
    EXPECT_EQ(set.params.getReconstructFactor(), 2.0f);
    EXPECT_FALSE(set.params.getClosed());
    EXPECT_TRUE(set.params.getEstimateResultNormals());
    EXPECT_FALSE(set.params.getUseCenter());
    EXPECT_EQ(set.params.getKernelScaleFactor(), -1.0f);
    EXPECT_FALSE(set.params.getVariableDensity());
    EXPECT_EQ(set.params.getDensityEstimationDepthDelta(), 3);
    EXPECT_EQ(set.params.getDetalizationLevel(), 4);
    EXPECT_EQ(set.params.getPrefferedSolver(), 3);
    EXPECT_FALSE(set.params.getAccelerated());
    EXPECT_EQ(set.params.getSolverTolerance(), 0.01);
    EXPECT_FALSE(set.params.getPhaseNameShown());
    EXPECT_EQ(set.threads, 2);
    EXPECT_EQ(set.logFile, "l.txt");
    EXPECT_TRUE(set.quiet);
    EXPECT_EQ(set.memoryLimit, 1.5e9);
}

TEST(Options, senselessOnesAreRefused)
{
    std::vector<std::vector<char const *>> const senseless = {
        {},
        {"in.ply"},
        {"-o", "out.ply"},
        {"in.ply", "second.ply", "-o", "out.ply"},
        {"in.ply", "-o", "out.ply", "--depth", "1"},
        {"in.ply", "-o", "out.ply", "--depth", "0", "--corner"},
        {"in.ply", "-o", "out.ply", "--depth", "30"},
        {"in.ply", "-o", "out.ply", "--depth", "-1"},
        {"in.ply", "-o", "out.ply", "--depth", "eight"},
        {"in.ply", "-o", "out.ply", "--depth", "99999999999"},
        {"in.ply", "-o", "out.ply", "--solver", "7"},
        {"in.ply", "-o", "out.ply", "--subdivision", "0"},
        {"in.ply", "-o", "out.ply", "--subdivision", "nan"},
        {"in.ply", "-o", "out.ply", "--kernel-scale", "inf"},
        {"in.ply", "-o", "out.ply", "--tolerance", "0"},
        {"in.ply", "-o", "out.ply", "--threads", "-1"},
        {"in.ply", "-o", "out.ply", "--max-memory", "nan"},
        {"in.ply", "-o", "out.ply", "--unknown"},
    };
    for (auto const & arguments : senseless) {
        std::string all;
        for (char const * argument : arguments)
            all += std::string(" ") + argument;
        EXPECT_THROW(parse(arguments), UsageError) << all;
    }
    EXPECT_EQ(parse({"in.ply", "-o", "out.ply", "--depth", "1", "--corner"})->params.getOctreeDepth(), 1);
}

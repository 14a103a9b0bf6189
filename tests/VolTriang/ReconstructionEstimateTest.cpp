// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/ReconstructionEstimate.h>

#include <VolTriang/Runs.h>
#include <support/MeasureMemory.h>

#include <gmock/gmock.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

using namespace VolTr;
using qz_test::paramsOf;

namespace
{

class NoTarget : public ITriangulationTarget
{
    void onAddNewVertex(int, double const *, double const *) override {}
    void onAddNewVertex(int, float const *, float const *) override {}
    void onAddNewTriangle(int, int, int) override {}
};

struct EstimatedRun
{
    char const * shape;
    std::size_t points;
    double noise;
    double densityRatio;
    int depth;
    bool isAccelerated;
    void (*change)(CVolTriangulationParams &);
};

// Bytes estimated for each that a run allocated at its peak.
double compareWithRun(EstimatedRun const & run)
{
    SCOPED_TRACE(std::string(run.shape) + " at depth " + std::to_string(run.depth));
    PointCloudSamples const samples =
        qz_test::sampledShape(run.shape, run.points, run.noise, run.densityRatio);
    CVolTriangulationParams params = paramsOf(run.depth, run.isAccelerated);
    if (run.change != nullptr)
        run.change(params);
    CReconstructionEstimate estimate;
    long const taken = qz_test::peakBytesOf([&] { estimate = estimateReconstruction(samples, params); });
    CReconstructionReport report;
    NoTarget target;
    long const measured = qz_test::peakBytesOf([&] {
        CVolumetricTriangulator triangulator(&target, &samples, &params, nullptr);
        triangulator.setReport(&report);
        triangulator.run();
    });
    EXPECT_EQ(estimate.path, report.path);
    EXPECT_EQ(estimate.nodes, report.nodes);
    if (run.isAccelerated)
        EXPECT_LT(std::fabs(std::log2(estimate.triangles / report.triangles)), 1.3);
    else
        EXPECT_EQ(estimate.solver, report.solver);
    if (!qz_test::isMemoryMeasured)
        return 1.0;
    double const ratio = estimate.peakBytes() / static_cast<double>(measured);
    EXPECT_LT(std::fabs(ratio - 1), 0.25)
        << "estimated " << estimate.peakBytes() << ", measured " << measured << ", solver "
        << static_cast<int>(estimate.solver) << " " << params.getKernelScaleFactor();
    EXPECT_LT(taken, measured / 2);
    return ratio;
}

} // namespace

#ifdef QZ_SLOW_TESTS

TEST(ReconstructionEstimate, BytesAreThoseOfRunsOnEveryDepth)
{
    void (*const open)(CVolTriangulationParams &) = [](CVolTriangulationParams & params) {
        params.setClosed(false);
    };
    void (*const refined)(CVolTriangulationParams &) = [](CVolTriangulationParams & params) {
        params.setRefine(true);
    };
    for (bool isAccelerated : {true, false}) {
        std::printf("%-12s   %-8s %-8s %-8s %-8s %-8s\n", isAccelerated ? "accelerated" : "exact", "clean",
                    "noisy", "uneven", "open", "refined");
        for (int depth = 6; depth <= (isAccelerated ? 10 : 7); ++depth) {
            std::size_t const points = depth < 9 ? 100000 : 1000000;
            std::printf("depth %-6d", depth);
            for (EstimatedRun const & run :
                 {EstimatedRun{"genus3", points, 0, 1, depth, isAccelerated, nullptr},
                  EstimatedRun{"genus3", points, 0.002, 1, depth, isAccelerated, nullptr},
                  EstimatedRun{"torus", points, 0, 50, depth, isAccelerated, nullptr},
                  EstimatedRun{"sheet", points, 0, 1, depth, isAccelerated, open},
                  EstimatedRun{"genus3", points, 0, 1, depth, isAccelerated, refined}})
                std::printf("   %.3f", compareWithRun(run));
            std::printf("\n");
        }
    }
}

#else

TEST(ReconstructionEstimate, CountsWhatTheOctreeMakes)
{
    PointCloudSamples one;
    one.add({1.0f, 2.0f, 3.0f}, {0.0f, 0.0f, 1.0f});
    PointCloudSamples const clouds[] = {qz_test::sampledShape("torus", 4000, 0.001, 20),
                                        qz_test::sampledShape("sheet", 300), qz_test::cloudOf("box", 500),
                                        one};
    for (PointCloudSamples const & cloud : clouds)
        for (int depth : {2, 3, 6, 9, 29})
            for (bool useCenter : {true, false})
                for (int levels : {-1, 0, 2, 40}) {
                    CVolTriangulationParams params = paramsOf(depth, true);
                    params.setUseCenter(useCenter);
                    params.setDetalizationLevel(levels);
                    params.setPrefferedSolver(3); // spares the factor
                    COctree const octree(&cloud, depth, nullptr, useCenter, levels);
                    CReconstructionEstimate const estimate = estimateReconstruction(cloud, params);
                    EXPECT_EQ(estimate.nodes, octree.getNodesNumber()) << depth << useCenter << levels;
                    EXPECT_EQ(estimate.unknowns, octree.getNodesNumber());
                    EXPECT_EQ(estimate.leafCells, octree.getCellsNumberOnDeepestLevel());
                }
}

TEST(ReconstructionEstimate, BytesAreThoseOfRuns)
{
    auto const open = [](CVolTriangulationParams & params) { params.setClosed(false); };
    auto const fine = [](CVolTriangulationParams & params) { params.setReconstructFactor(2.0f); };
    auto const corners = [](CVolTriangulationParams & params) { params.setUseCenter(false); };
    auto const iterative = [](CVolTriangulationParams & params) { params.setPrefferedSolver(3); };
    auto const decomposing = [](CVolTriangulationParams & params) { params.setPrefferedSolver(4); };
    auto const wide = [](CVolTriangulationParams & params) { params.setKernelScaleFactor(1.4f); };
    auto const inPieces = [](CVolTriangulationParams & params) {
        params.setAllComponents(true);
        params.setReach(2);
    };
    auto const refined = [](CVolTriangulationParams & params) { params.setRefine(true); };
    EstimatedRun const runs[] = {
        {"sphere", 30000, 0, 1, 6, true, nullptr},      {"genus3", 40000, 0, 1, 8, true, nullptr},
        {"torus", 30000, 0, 50, 7, true, nullptr},      {"genus3", 40000, 0.003, 1, 7, true, nullptr},
        {"sheet", 30000, 0, 1, 7, true, open},          {"genus3", 20000, 0, 1, 7, true, fine},
        {"plate", 30000, 0, 1, 6, true, corners},       {"sphere", 20000, 0, 1, 5, false, nullptr},
        {"sheet", 20000, 0, 1, 6, false, open},         {"torus", 20000, 0, 50, 6, false, nullptr},
        {"genus3", 20000, 0.003, 1, 5, false, corners}, {"plate", 20000, 0, 1, 5, false, iterative},
        {"plate", 20000, 0, 1, 5, false, decomposing},  {"plate", 20000, 0, 1, 5, false, wide},
        {"genus3", 40000, 0, 1, 8, true, refined},      {"sphere", 100000, 0, 1, 6, true, refined},
        {"torus", 40000, 0.003, 20, 7, true, refined},  {"genus3", 40000, 0, 1, 8, true, inPieces},
        {"sheet", 30000, 0, 1, 7, true, inPieces},      {"sheet", 20000, 0, 1, 6, false, inPieces},
        {"genus3", 40000, 0.003, 1, 7, true, inPieces},
    };
    for (EstimatedRun const & run : runs) {
        for (int threads = 1; threads <= (run.isAccelerated ? 2 : 1); ++threads) {
            CThreadNumberScope const scope(threads);
            compareWithRun(run);
        }
    }
}

TEST(ReconstructionEstimate, RefusesWhatARunRefuses)
{
    PointCloudSamples const samples = qz_test::sampledShape("sphere", 500);
    PointCloudSamples spoiled = samples;
    spoiled.points[42][1] = std::numeric_limits<float>::quiet_NaN();
    PointCloudSamples infinite = samples;
    infinite.points[0][2] = std::numeric_limits<float>::infinity();
    auto const expectTheSame = [&](IInputSamples const & cloud, CVolTriangulationParams const & params) {
        std::string const message = qz_test::reconstruct(cloud, params).failure;
        try {
            estimateReconstruction(cloud, params);
        } catch (std::exception const & error) {
            EXPECT_THAT(message, testing::EndsWith(error.what()));
            return;
        }
        ADD_FAILURE() << message;
    };
    for (int depth : {-1, 0, 1, 30})
        expectTheSame(samples, paramsOf(depth, true));
    expectTheSame(spoiled, paramsOf(4, true));
    expectTheSame(infinite, paramsOf(4, false));
    CVolTriangulationParams params = paramsOf(4, true);
    params.setPrefferedSolver(7);
    expectTheSame(samples, params);

    CReconstructionEstimate const none = estimateReconstruction(PointCloudSamples(), paramsOf(4, true));
    EXPECT_EQ(none.nodes, 0);
    EXPECT_EQ(none.path, CReconstructionReport::Path::exact);
}

#endif

// SPDX-License-Identifier: Apache-2.0
#include <VolTriang/Runs.h>
#include <support/Recorders.h>

#include <QZsys/Exceptions.h>

#include <gmock/gmock.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace VolTr;
using namespace qz_test;
using testing::ElementsAre;

TEST(VolTriangulationParams, DerivedValues)
{
    CVolTriangulationParams params = paramsOf(3);
    params.reconstructFactor() = 2.0f;
    EXPECT_EQ(params.getCellFactor(), 16.0f);
    EXPECT_EQ(params.estimateTriangleSize(4.0f), 0.25f);
    EXPECT_EQ(params.estimateTrianglesNumber(), 1536);
    params.setOctreeDepth(25);
    EXPECT_EQ(params.estimateTrianglesNumber(), std::numeric_limits<int>::max());
}

TEST(VolumetricTriangulator, LogsInTheAgreedWordsAndOrder)
{
    LogRecorder log;
    CVolTriangulationParams params = paramsOf(4);
    params.setDebugLog(&log);
    reconstruct(spiralSphere(400), params, 1);
    std::vector<std::string> const lines = log.lines();
    auto next = lines.begin();
    for (char const * begin : {"Volumetric triangulation core started",
                               "Octree depth: 4",
                               "Kernel scale: 0.95",
                               "Closed: 1",
                               "Samples #: 400",
                               "Density estimation level delta: 2",
                               "Node depth bounds: 0, 3",
                               "Kernel support size in cells: 1.425",
                               "Density estimation level: 1",
                               "Average density: ",
                               "Use CSparseStoreSparseLinSysSolver",
                               "System size: ",
                               "Right part normalized by factor: ",
                               "Reserving memory for system matrix, elements expected: ",
                               "System positive definite: 1",
                               "Linear system solved",
                               "Surface iso-value: ",
                               "<Marching cubes>",
                               "Bounds: 17, 17, 17",
                               "Expected faces number: 1734",
                               "</Marching cubes>",
                               "Volumetric triangulation core completed"}) {
        next = std::find_if(next, lines.end(),
                            [&](std::string const & line) { return line.rfind(begin, 0) == 0; });
        EXPECT_NE(next, lines.end()) << begin;
    }
}

TEST(VolumetricTriangulator, ReportsWhatItDidAndFound)
{
    using Report = CReconstructionReport;
    PointCloudSamples const samples = spiralSphere(2000);
    COctree const octree(&samples, 4, nullptr, true, -1);
    struct Case
    {
        bool accelerated;
        int solver;
        double tolerance;
        Report::Path path;
        Report::Reason reason;
        Report::Solver used;
    };
    for (Case const & c :
         {Case{false, 0, 1e-3, Report::Path::exact, Report::Reason::asParameters, Report::Solver::direct},
          Case{true, 3, 1e-3, Report::Path::exact, Report::Reason::solverChosen, Report::Solver::iterative},
          Case{true, 4, 1e-3, Report::Path::exact, Report::Reason::solverChosen, Report::Solver::decomposing},
          Case{true, 0, 1e-3, Report::Path::accelerated, Report::Reason::asParameters,
               Report::Solver::accelerated},
          Case{true, 0, 0.0, Report::Path::exact, Report::Reason::didNotConverge, Report::Solver::direct}}) {
        SCOPED_TRACE(testing::Message() << "solver " << c.solver << " tolerance " << c.tolerance);
        CVolTriangulationParams params = paramsOf(4, c.accelerated);
        params.setPrefferedSolver(c.solver);
        params.setSolverTolerance(c.tolerance);
        params.setPhaseNameShown(true);
        ProgressRecorder progress;
        Result const run = reconstruct(samples, params, 2, &progress);
        Report const & report = run.report;
        EXPECT_EQ(report.path, c.path);
        EXPECT_EQ(report.reason, c.reason);
        EXPECT_EQ(report.solver, c.used);
        EXPECT_STRNE(report.reasonText(), "none");
        EXPECT_EQ(report.threads, 2);
        EXPECT_EQ(report.octreeDepth, 4);
        EXPECT_EQ(report.leafCells, octree.getCellsNumberOnDeepestLevel());
        EXPECT_EQ(report.nodes, octree.getNodesNumber());
        EXPECT_EQ(report.unknowns, octree.getNodesNumber());
        EXPECT_EQ(report.matrixElements > 0, c.path == Report::Path::exact);
        EXPECT_TRUE(report.converged);
        EXPECT_EQ(report.iterations > 1, c.used != Report::Solver::direct);
        EXPECT_LE(report.relativeResidual, c.tolerance);
        EXPECT_NE(report.isoValue, 0.0);
        EXPECT_EQ(report.vertices, static_cast<int>(run.mesh.vertices.size()));
        EXPECT_EQ(report.triangles, static_cast<int>(run.mesh.triangles.size()));
        EXPECT_GE(report.peakMemory, 0);
        std::vector<std::string> names;
        double seconds = 0.0;
        double shares = 0.0;
        for (Report::Phase const & phase : report.phases) {
            names.push_back(phase.name);
            seconds += phase.seconds;
            shares += phase.share;
        }
        EXPECT_EQ(names, progress.names);
        EXPECT_LE(seconds, report.seconds);
        EXPECT_NEAR(shares, seconds / report.seconds, 1e-9);
    }
}

TEST(VolumetricTriangulator, ReportsHowFarAFailedRunCame)
{
    PointCloudSamples const samples = spiralSphere(300, 0.0f);
    CVolTriangulationParams params = paramsOf(4);
    CReconstructionReport report;
    report.isoValue = 1e9; // of another run
    for (char const * last : {"grad_div", "iso-surface"}) {
        params.setPrefferedSolver(last[0] == 'g' ? 7 : 1);
        MeshTarget target;
        CVolumetricTriangulator triangulator(&target, &samples, &params, nullptr);
        triangulator.setReport(&report);
        EXPECT_THROW(triangulator.run(), CVolTriangulationError);
        ASSERT_FALSE(report.phases.empty());
        EXPECT_EQ(report.phases.back().name, last);
        EXPECT_EQ(report.converged, last[0] == 'i');
        EXPECT_LT(report.isoValue, 1e9);
        EXPECT_GT(report.nodes, 0);
        EXPECT_GT(report.seconds, 0.0);
        EXPECT_EQ(report.triangles, 0);
    }
}

TEST(VolumetricTriangulator, PhasesFollowThreadsAndDensity)
{
    PointCloudSamples const samples = spiralSphere(300);
    CVolTriangulationParams params = paramsOf(4);
    params.setPhaseNameShown(true);
    auto const phasesOf = [&](int threads, bool variableDensity) {
        ProgressRecorder progress;
        params.setVariableDensity(variableDensity);
        EXPECT_EQ(reconstruct(samples, params, threads, &progress).failure, "");
        EXPECT_TRUE(progress.isMonotone());
        EXPECT_NEAR(progress.getPosFloat(), 1.0, 1e-9);
        return progress.names;
    };
    EXPECT_THAT(phasesOf(1, true),
                ElementsAre("tree", "grad_basis", "density weights", "grad_div", "right_part", "matrix",
                            "update right part", "solve", "iso-value", "iso-surface"));
    EXPECT_THAT(phasesOf(2, false), ElementsAre("tree", "grad_basis", "grad_div", "matrix+right_part",
                                                "update right part", "solve", "iso-value", "iso-surface"));
}

TEST(VolumetricTriangulator, RefusesWhatItCannotReconstruct)
{
    PointCloudSamples const samples = spiralSphere(300);
    std::string const depthText = "Incorrect tree depth detected in VolTr::COctree constructor";
    EXPECT_EQ(reconstruct(samples, CVolTriangulationParams()).failure, depthText);
    MeshTarget target;
    EXPECT_THROW(CVolumetricTriangulator(&target, &samples, nullptr, nullptr).run(), std::exception);
    CVolTriangulationParams shallow = paramsOf(1);
    EXPECT_EQ(reconstruct(samples, shallow).failure, depthText);
    shallow.setUseCenter(false);
    EXPECT_NE(reconstruct(samples, shallow).failure, depthText);

    CVolTriangulationParams params = paramsOf(4);
    PointCloudSamples broken = samples;
    broken.points[7][1] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(reconstruct(broken, params).failure, "Sample 7 has a coordinate that is not finite");

    LogRecorder log;
    params.setDebugLog(&log);
    EXPECT_THAT(reconstruct(PointCloudSamples(), params).failure,
                testing::StartsWith("triangulation: Failed to"));
    reconstruct(spiralSphere(300, 0.0f), params);
    EXPECT_EQ(log.lines().back(), "Failed to reconstruct iso-value surface");
    for (int solver : {-1, 5}) {
        params.setPrefferedSolver(solver);
        EXPECT_EQ(reconstruct(samples, params).failure, "triangulation: Unexpected solver type");
        EXPECT_EQ(log.lines().back(), "Error unexpected solver type: " + std::to_string(solver));
    }
}

TEST(VolumetricTriangulator, SameBitsForAnyThreadNumberAndInCompany)
{
    PointCloudSamples const samples = spiralSphere(2500);
    for (bool accelerated : {false, true}) {
        CVolTriangulationParams params = paramsOf(5, accelerated);
        params.setEstimateResultNormals(true);
        Mesh const expected = reconstruct(samples, params, 1).mesh;
        ASSERT_FALSE(expected.triangles.empty());
        for (int threads : {1, 2, 3, 8, 16})
            EXPECT_TRUE(reconstruct(samples, params, threads).mesh == expected) << threads;

        std::vector<MeshTarget> targets(10);
        std::vector<std::thread> threads;
        for (MeshTarget & target : targets) {
            threads.emplace_back([&samples, &params, &target] {
                CVolumetricTriangulator(&target, &samples, &params, nullptr).run();
            });
        }
        for (std::thread & thread : threads)
            thread.join();
        for (MeshTarget const & target : targets)
            EXPECT_TRUE(target.mesh() == expected);

        // Normals come on demand only, and change nothing else.
        params.setEstimateResultNormals(false);
        Mesh const plain = reconstruct(samples, params).mesh;
        EXPECT_EQ(plain.triangles, expected.triangles);
        EXPECT_EQ(plain.normals, std::vector<REmath::Point3D_d>(plain.vertices.size(), REmath::Point3D_d(0)));
    }
}

TEST(VolumetricTriangulator, InterruptionAtAnyMomentLeavesTheTargetConsistent)
{
    PointCloudSamples const samples = spiralSphere(200);
    for (bool accelerated : {false, true}) {
        CVolTriangulationParams params = paramsOf(4, accelerated);
        params.setRefine(accelerated);
        params.setAllComponents(accelerated);
        params.setReach(accelerated ? 2 : 0);
        for (int threads : {1, 2}) {
            std::size_t moment = 1;
            for (bool hasFinished = false; !hasFinished; moment = moment * 21 / 20 + 1) {
                ProgressRecorder progress;
                progress.inPosition = [&progress, moment] {
                    if (progress.positions.size() == moment)
                        progress.interrupt();
                };
                std::string const failure = reconstruct(samples, params, threads, &progress).failure;
                EXPECT_TRUE(progress.isMonotone());
                hasFinished = failure.empty();
                EXPECT_TRUE(hasFinished || failure == "user interruption") << failure;
            }
            EXPECT_GT(moment, 50U);
        }
    }
}

TEST(VolumetricTriangulator, ExceptionsOfTheCallerLeaveUnchanged)
{
    struct Thrown
    {};
    class ThrowingTarget : public MeshTarget
    {
    public:
        CProgressCounter * progress = nullptr;
        int triangles = 0;

    private:
        void onAddNewTriangle(int, int, int) override
        {
            ++triangles;
            if (progress == nullptr)
                throw Thrown();
            progress->interrupt();
        }
    };
    PointCloudSamples const samples = spiralSphere(600);
    CVolTriangulationParams params = paramsOf(4);
    ThrowingTarget throwing;
    EXPECT_THROW(CVolumetricTriangulator(&throwing, &samples, &params, nullptr).run(), Thrown);

    CProgressCounter progress;
    ThrowingTarget interrupting;
    interrupting.progress = &progress;
    EXPECT_THROW(CVolumetricTriangulator(&interrupting, &samples, &params, &progress).run(),
                 CUserIntrException);
    EXPECT_EQ(interrupting.triangles, 1);

    class ThrowingLog : public VsUt::IDebugLog
    {
    public:
        std::string at;
        void getMessage(char const * line) override
        {
            if (std::string(line).rfind(at, 0) == 0)
                throw std::runtime_error(at);
        }
    };
    for (int threads : {1, 2}) {
        for (char const * line : {"Leaf cells", "Average density", "System size",
                                  "Matrix scalar product cash size", "Linear system solved", "Bounds"}) {
            ThrowingLog log;
            log.at = line;
            params.setDebugLog(&log);
            EXPECT_EQ(reconstruct(samples, params, threads).failure, line);
        }
    }
}

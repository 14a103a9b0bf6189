// SPDX-License-Identifier: Apache-2.0
//
// Runs whose surface is moved onto the samples, against the same runs without.
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>

#include <apps/sampling/SampleShapes.h>
#include <support/Mesh.h>
#include <support/PointCloudSamples.h>
#include <support/SampledClouds.h>
#include <support/SurfaceScores.h>

#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <string>

using namespace VolTr;
using qz_test::Mesh;
using REmath::Point3D_d;

namespace
{

struct Case
{
    char const * shape;
    std::size_t points;
    int depth;
    double noise;
    double densityRatio;
    bool isAccelerated;
    bool useCenter;
    double greatestRatio;       // of the distance to the true surface, to that without refinement
    double greatestNormalRatio; // likewise of the angles of the normals
};

void PrintTo(Case const & c, std::ostream * out)
{
    *out << c.shape << " depth " << c.depth << " noise " << c.noise << " density ratio " << c.densityRatio
         << (c.isAccelerated ? "" : " exact") << (c.useCenter ? "" : " corners");
}

PointCloudSamples cloudOf(Case const & c)
{
    qz_test::CloudOptions options;
    options.noise = c.noise;
    options.densityRatio = c.densityRatio;
    return qz_test::cloudOf(c.shape, c.points, options);
}

CVolTriangulationParams paramsOf(Case const & c, bool isRefined)
{
    CVolTriangulationParams params;
    params.setOctreeDepth(c.depth);
    params.setAccelerated(c.isAccelerated);
    params.setUseCenter(c.useCenter);
    params.setEstimateResultNormals(true);
    params.setRefine(isRefined);
    return params;
}

Mesh run(PointCloudSamples const & samples, CVolTriangulationParams const & params,
         CProgressCounter * progress = nullptr)
{
    qz_test::MeshTarget target;
    CVolumetricTriangulator(&target, &samples, &params, progress).run();
    EXPECT_EQ(target.violation(), "");
    return target.mesh();
}

Point3D_d faceNormal(Mesh const & mesh, std::array<int, 3> const & triangle)
{
    auto const corner = [&](std::size_t n) { return mesh.vertices[static_cast<std::size_t>(triangle[n])]; };
    Point3D_d const u = corner(1) - corner(0);
    Point3D_d const v = corner(2) - corner(0);
    return {u.y() * v.z() - u.z() * v.y(), u.z() * v.x() - u.x() * v.z(), u.x() * v.y() - u.y() * v.x()};
}

// Faces that look the way of their vertices' normals.
bool isUpright(Mesh const & mesh, std::array<int, 3> const & triangle, Mesh const & withNormals)
{
    Point3D_d sum;
    for (int const vertex : triangle)
        sum += withNormals.normals[static_cast<std::size_t>(vertex)];
    Point3D_d const face = faceNormal(mesh, triangle);
    return face.x() * sum.x() + face.y() * sum.y() + face.z() * sum.z() > 0.0;
}

class RefinedSurface : public testing::TestWithParam<Case>
{};

} // namespace

TEST_P(RefinedSurface, isNearerToTheTruthWithTheSameTriangles)
{
    Case const & c = GetParam();
    auto const shape = qz_sampling::makeShape(c.shape);
    PointCloudSamples const samples = cloudOf(c);
    Mesh const plain = run(samples, paramsOf(c, false));
    Mesh const refined = run(samples, paramsOf(c, true));
    ASSERT_EQ(refined.triangles, plain.triangles);
    EXPECT_LT(vertexDistances(refined, *shape).rms, c.greatestRatio * vertexDistances(plain, *shape).rms);
    EXPECT_LT(centroidDistances(refined, *shape).rms, c.greatestRatio * centroidDistances(plain, *shape).rms);
    EXPECT_LT(normalAngles(refined, *shape).rms, c.greatestNormalRatio * normalAngles(plain, *shape).rms);
    int folded = 0;
    for (std::array<int, 3> const & triangle : plain.triangles)
        folded += isUpright(plain, triangle, refined) && !isUpright(refined, triangle, refined) ? 1 : 0;
    EXPECT_EQ(folded, 0);
}

INSTANTIATE_TEST_SUITE_P(Clouds, RefinedSurface,
                         testing::Values(Case{"sphere", 20000, 7, 0, 1, true, true, 0.15, 0.2},
                                         Case{"genus3", 20000, 7, 0, 1, true, false, 0.4, 0.5},
                                         Case{"genus3", 20000, 7, 0.003, 1, true, true, 0.8, 0.8},
                                         Case{"bumpy-sphere", 20000, 7, 0, 20, true, true, 0.3, 0.5},
                                         Case{"thin-plate", 20000, 7, 0, 1, true, true, 0.4, 0.8},
                                         Case{"block", 50000, 8, 0, 1, true, true, 0.6, 1.1},
                                         Case{"torus", 8000, 6, 0, 1, false, true, 0.3, 0.7}));

TEST(RefinedReconstruction, hasTheSameBitsForAnyNumberOfThreads)
{
    Case const c = {"block", 30000, 7, 0.001, 5, true, true, 0, 0};
    PointCloudSamples const samples = cloudOf(c);
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(1);
    Mesh const single = run(samples, paramsOf(c, true));
    for (int const threads : {2, 3, 8}) {
        CVescaThreadingTasksHelper::setNumOfPhisicalThread(threads);
        EXPECT_TRUE(run(samples, paramsOf(c, true)) == single) << threads;
    }
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
}

// Every phase, that of the refinement and the handing over among them, can be left, with nothing lost.
TEST(RefinedReconstruction, canBeInterruptedAnywhere)
{
    struct Interrupting : CProgressCounter
    {
        double at = 0;
        double last = 0;
        void onPosition(double overall) override
        {
            EXPECT_GE(overall, last - 1e-9);
            last = overall;
            if (overall >= at)
                interrupt();
        }
    };
    Case const c = {"sphere", 10000, 6, 0, 1, true, true, 0, 0};
    PointCloudSamples const samples = cloudOf(c);
    for (int step = 1; step < 20; ++step) {
        Interrupting progress;
        progress.at = 0.05 * step;
        EXPECT_THROW(run(samples, paramsOf(c, true), &progress), CUserIntrException) << progress.at;
    }
}

// A tree without extent, normals without length and wild ones end as they do without refinement.
TEST(RefinedReconstruction, answersHostileCloudsAsTheRunWithout)
{
    Case const c = {"sphere", 2000, 5, 0, 1, true, true, 0, 0};
    PointCloudSamples const good = cloudOf(c);
    for (int kind = 0; kind < 4; ++kind) {
        PointCloudSamples samples = good;
        for (std::size_t n = 0; n < samples.points.size(); ++n) {
            if (kind == 0)
                samples.points[n] = {1.0f, 2.0f, 3.0f};
            if (kind == 1)
                samples.points[n][2] = 0.0f;
            if (kind == 2 && n % 3 == 0)
                samples.normals[n] = {0.0f, 0.0f, 0.0f};
            if (kind == 3 && n % 3 == 0)
                samples.normals[n] = {1e30f, -1e30f, 0.0f};
        }
        auto const answer = [&](bool isRefined) {
            try {
                Mesh const mesh = run(samples, paramsOf(c, isRefined));
                for (Point3D_d const & vertex : mesh.vertices)
                    EXPECT_TRUE(std::isfinite(vertex.x() + vertex.y() + vertex.z()));
                return std::to_string(mesh.triangles.size());
            } catch (std::exception const & error) {
                return std::string(error.what());
            }
        };
        EXPECT_EQ(answer(true), answer(false)) << kind;
    }
}

// The correction brings clean surfaces nearer to the truth on both paths; of noise it takes what is common to
// many samples, and nothing on the deep depths.
TEST(FieldCorrection, followsTheSamplesButNotTheirNoise)
{
    for (bool const isAccelerated : {true, false}) {
        for (bool const useCenter : {true, false}) {
            Case const c = {"torus", 6000, 5, 0, 1, isAccelerated, useCenter, 0, 0};
            PointCloudSamples const samples = cloudOf(c);
            auto const shape = qz_sampling::makeShape(c.shape);
            CVolTriangulationParams params = paramsOf(c, false);
            double const before = vertexDistances(run(samples, params), *shape).rms;
            params.setCorrectField(true);
            Mesh const corrected = run(samples, params);
            EXPECT_LT(vertexDistances(corrected, *shape).rms, 0.75 * before) << isAccelerated << useCenter;
            EXPECT_EQ(examine(corrected).eulerNumber(), shape->eulerNumber());
        }
    }
    Case const noisy = {"genus3", 30000, 7, 0.005, 1, true, true, 0, 0};
    PointCloudSamples const samples = cloudOf(noisy);
    CVolTriangulationParams params = paramsOf(noisy, true);
    params.setCorrectField(true);
    qz_test::MeshTarget target;
    CReconstructionReport report;
    CVolumetricTriangulator triangulator(&target, &samples, &params, nullptr);
    triangulator.setReport(&report);
    triangulator.run();
    std::vector<double> const & shares = report.refinement.correctionShares;
    ASSERT_EQ(shares.size(), 5U);
    EXPECT_GT(shares.front(), 0.3);
    for (std::size_t n = 2; n < shares.size(); ++n)
        EXPECT_LT(shares[n], 0.1) << n;
    // The noise across the surface is that of one axis: 0.005 of the longest side.
    double const side = 2.0 * qz_sampling::makeShape("genus3")->halfExtent().x();
    EXPECT_NEAR(report.refinement.noise, 0.005 * side, 0.0015 * side);
    EXPECT_GT(report.refinement.width, 0.0);
    EXPECT_GT(report.refinement.movedShare, 0.95);
    EXPECT_GT(report.refinement.greatestMove, report.refinement.rmsMove);
}

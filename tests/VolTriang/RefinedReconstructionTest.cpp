// SPDX-License-Identifier: Apache-2.0
//
// Runs whose surface is moved onto the samples, against the same runs without.
#include <VolTriang/Runs.h>
#include <support/SurfaceScores.h>

#include <cmath>
#include <ostream>
#include <string>

using namespace VolTr;
using qz_test::Mesh;
using qz_test::reconstruct;
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
    return qz_test::sampledShape(c.shape, c.points, c.noise, c.densityRatio);
}

CVolTriangulationParams paramsOf(Case const & c, bool isRefined)
{
    CVolTriangulationParams params = qz_test::paramsOf(c.depth, c.isAccelerated);
    params.setUseCenter(c.useCenter);
    params.setEstimateResultNormals(true);
    params.setRefine(isRefined);
    return params;
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
    Mesh const plain = reconstruct(samples, paramsOf(c, false)).mesh;
    Mesh const refined = reconstruct(samples, paramsOf(c, true)).mesh;
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
    Mesh const single = reconstruct(samples, paramsOf(c, true), 1).mesh;
    for (int const threads : {2, 3, 8, 16})
        EXPECT_TRUE(reconstruct(samples, paramsOf(c, true), threads).mesh == single) << threads;
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
            qz_test::Result const run = reconstruct(samples, paramsOf(c, isRefined));
            for (Point3D_d const & vertex : run.mesh.vertices)
                EXPECT_TRUE(std::isfinite(vertex.x() + vertex.y() + vertex.z()));
            return run.failure + std::to_string(run.mesh.triangles.size());
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
            double const before = vertexDistances(reconstruct(samples, params).mesh, *shape).rms;
            params.setCorrectField(true);
            Mesh const corrected = reconstruct(samples, params).mesh;
            EXPECT_LT(vertexDistances(corrected, *shape).rms, 0.75 * before) << isAccelerated << useCenter;
            EXPECT_EQ(examine(corrected).eulerNumber(), shape->eulerNumber());
        }
    }
    Case const noisy = {"genus3", 30000, 7, 0.005, 1, true, true, 0, 0};
    PointCloudSamples const samples = cloudOf(noisy);
    CVolTriangulationParams params = paramsOf(noisy, true);
    params.setCorrectField(true);
    CReconstructionReport const report = reconstruct(samples, params).report;
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

// SPDX-License-Identifier: Apache-2.0
#include <VolTriang/Runs.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

// The accelerated path against the other one, over whole runs.

using namespace VolTr;
using namespace qz_test;

namespace
{

PointCloudSamples sampledSphere(std::size_t number) { return sampledShape("sphere", number); }

struct CloudCase
{
    char const * shape;
    double noise;
    double densityRatio;
    int depth;
    bool useCenter;
    float kernelScale;
    float subdivision = 1.0f;
};

class AcceleratedSurface : public testing::TestWithParam<CloudCase>
{};

} // namespace

TEST_P(AcceleratedSurface, liesWhereTheOtherOneLies)
{
    CloudCase const & c = GetParam();
    PointCloudSamples const samples = sampledShape(c.shape, 20000, c.noise, c.densityRatio);
    CVolTriangulationParams params = paramsOf(c.depth, false);
    params.setUseCenter(c.useCenter);
    params.setKernelScaleFactor(c.kernelScale);
    params.setReconstructFactor(c.subdivision);
    params.setClosed(qz_sampling::makeShape(c.shape)->isClosed());
    Mesh const exact = reconstruct(samples, params).mesh;
    params.setAccelerated(true);
    Result const accelerated = reconstruct(samples, params);
    ASSERT_EQ(accelerated.report.path, CReconstructionReport::Path::accelerated);
    Mesh const & fast = accelerated.mesh;
    ASSERT_FALSE(fast.triangles.empty());

    double const exactTriangles = static_cast<double>(exact.triangles.size());
    EXPECT_NEAR(static_cast<double>(fast.triangles.size()), exactTriangles,
                std::max(8.0, 0.001 * exactTriangles));
    double const cell = leafCell(samples, c.depth);
    MeshDistance const distance(exact);
    std::vector<double> distances;
    for (REmath::Point3D_d const & vertex : fast.vertices)
        distances.push_back(distance(vertex) / cell);
    std::sort(distances.begin(), distances.end());
    EXPECT_LT(distances[distances.size() * 99 / 100], 0.01);
    EXPECT_LT(distances.back(), 0.05);
}

INSTANTIATE_TEST_SUITE_P(Clouds, AcceleratedSurface,
                         testing::Values(CloudCase{"sphere", 0.0, 1.0, 6, true, 0.95f},
                                         CloudCase{"genus3", 0.002, 1.0, 6, true, 0.95f},
                                         CloudCase{"bumpy-sphere", 0.0, 10.0, 6, true, 1.0f},
                                         CloudCase{"torus", 0.002, 10.0, 5, false, 0.95f, 2.0f},
                                         CloudCase{"sphere", 0.0, 1.0, 4, true, 0.8f, 3.7f},
                                         CloudCase{"sphere", 0.002, 1.0, 6, true, 0.95f, 0.3f},
                                         CloudCase{"sheet", 0.0, 1.0, 6, true, 0.95f}));

TEST(AcceleratedReconstruction, goesTheOtherWayWhereItCannotServe)
{
    PointCloudSamples const samples = sampledSphere(2000);
    using Reason = CReconstructionReport::Reason;
    auto const expectOtherPath = [&](CVolTriangulationParams params, Reason reason) {
        Result const result = reconstruct(samples, params);
        EXPECT_EQ(result.report.path, CReconstructionReport::Path::exact);
        EXPECT_EQ(result.report.reason, reason);
        params.setAccelerated(false);
        EXPECT_TRUE(reconstruct(samples, params).mesh == result.mesh);
    };
    CVolTriangulationParams wide = paramsOf(4, true);
    wide.setKernelScaleFactor(1.2f);
    expectOtherPath(wide, Reason::kernelOrDepth);
    for (double tolerance : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        CVolTriangulationParams unreachable = paramsOf(4, true);
        unreachable.setSolverTolerance(tolerance);
        expectOtherPath(unreachable, Reason::didNotConverge);
    }
    CVolTriangulationParams chosen = paramsOf(4, true);
    chosen.setPrefferedSolver(1);
    expectOtherPath(chosen, Reason::solverChosen);
}

TEST(AcceleratedReconstruction, endsOnHardCloudsAsTheOtherPathDoes)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    auto const randomCloud = [&](int number, float size) {
        PointCloudSamples samples;
        for (int n = 0; n < number; ++n)
            samples.add({size * uniform(random), size * uniform(random), size * uniform(random)},
                        {uniform(random), uniform(random), uniform(random)});
        return samples;
    };
    PointCloudSamples one;
    one.add({1.0f, 2.0f, 3.0f}, {0.0f, 0.0f, 1.0f});
    PointCloudSamples oneCell;
    for (int n = 0; n < 30; ++n)
        oneCell.add({1.0f, 2.0f, 3.0f}, {0.0f, 1.0f, 0.0f});
    PointCloudSamples isolated = sampledSphere(500);
    isolated.add({30.0f, 0.0f, 0.0f}, {1.0f, 0.0f, 0.0f});
    PointCloudSamples opposed = sampledSphere(500);
    for (std::size_t n = 0; n < 500; ++n)
        opposed.add(opposed.points[n],
                    {-opposed.normals[n][0], -opposed.normals[n][1], -opposed.normals[n][2]});
    PointCloudSamples broken = sampledSphere(300);
    broken.normals[5][0] = std::numeric_limits<float>::quiet_NaN();
    PointCloudSamples huge = sampledSphere(300);
    for (auto & normal : huge.normals)
        normal[0] *= 1e37f;
    PointCloudSamples const clouds[] = {PointCloudSamples(),
                                        one,
                                        oneCell,
                                        isolated,
                                        opposed,
                                        broken,
                                        huge,
                                        randomCloud(1, 1.0f),
                                        randomCloud(400, 1.0f),
                                        randomCloud(50, 1e-20f)};
    auto const isExpectedFailure = testing::AnyOf("", "triangulation: Failed to solve linear system",
                                                  "triangulation: Failed to reconstruct iso-value surface");
    for (PointCloudSamples const & samples : clouds) {
        for (bool useCenter : {false, true}) {
            CVolTriangulationParams params = paramsOf(5, false);
            params.setUseCenter(useCenter);
            std::string const expected = reconstruct(samples, params).failure;
            EXPECT_THAT(expected, isExpectedFailure);
            params.setAccelerated(true);
            EXPECT_EQ(reconstruct(samples, params).failure, expected) << samples.points.size() << " samples";
            params.setOctreeDepth(3); // where iterations without an end take little
            for (int solver : {3, 4}) {
                params.setPrefferedSolver(solver);
                EXPECT_THAT(reconstruct(samples, params).failure, isExpectedFailure);
            }
        }
    }
}

TEST(AcceleratedReconstruction, endsWithHostileParametersAsTheOtherPathDoes)
{
    PointCloudSamples const samples = sampledSphere(300);
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const infinity = std::numeric_limits<float>::infinity();
    std::vector<CVolTriangulationParams> hostile;
    for (float factor : {0.0f, -1.0f, nan, infinity, 1e-6f, 0.3f, 3.7f}) {
        hostile.push_back(paramsOf(4, false));
        hostile.back().setReconstructFactor(factor);
    }
    for (float scale : {1.0f, 0.0f, -1.0f, nan}) {
        hostile.push_back(paramsOf(4, false));
        hostile.back().setKernelScaleFactor(scale);
    }
    for (int depth : {1, 2, 3}) {
        hostile.push_back(paramsOf(depth, false));
        hostile.back().setUseCenter(depth != 1);
    }
    for (int level : {0, 1, 100}) {
        hostile.push_back(paramsOf(4, false));
        hostile.back().setDetalizationLevel(level);
        hostile.back().setDensityEstimationDepthDelta(level - 50);
        hostile.back().setClosed(false);
    }
    hostile.push_back(paramsOf(16, false)); // isolated samples, more depths than the tables serve
    hostile.back().setDetalizationLevel(14);
    hostile.push_back(paramsOf(18, false));
    hostile.back().setDetalizationLevel(2);
    for (CVolTriangulationParams & params : hostile) {
        std::string const expected = reconstruct(samples, params).failure;
        params.setAccelerated(true);
        EXPECT_EQ(reconstruct(samples, params).failure, expected)
            << "depth " << params.getOctreeDepth() << ", subdivision " << params.getReconstructFactor()
            << ", levels " << params.getDetalizationLevel();
    }
}

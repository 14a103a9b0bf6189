// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/NormalizeByLast.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>

#include <VolTriang/ScaledKernel.h>
#include <support/PointCloudSamples.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

using namespace VolTr;

namespace
{

std::vector<PointCloudSamples> makeClouds()
{
    std::mt19937 random(3);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<PointCloudSamples> clouds(6);
    for (int n = 0; n < 2000; ++n) {
        float const z = uniform(random);
        float const ring = std::sqrt(1.0f - z * z);
        float const angle = 3.2f * uniform(random) * std::fabs(uniform(random)); // dense on one side
        clouds[0].add({ring * std::cos(angle) + 40.0f, ring * std::sin(angle), z}, {});
        clouds[1].add({uniform(random), uniform(random), uniform(random)}, {});
        // On a lattice that is symmetrical about the middle: many samples on faces of cells.
        clouds[2].add({std::round(uniform(random) * 8.0f), std::round(uniform(random) * 8.0f), 0.0f}, {});
    }
    // Copies of few places, a line, a single sample far from the origin.
    for (int n = 0; n < 60; ++n) {
        clouds[3].add({static_cast<float>(n % 3), static_cast<float>(n % 2), 0.5f}, {});
        clouds[4].add({0.1f * static_cast<float>(n), 0.0f, 0.0f}, {});
    }
    clouds[5].add({1e6f, -3e5f, 7.0f}, {});
    return clouds;
}

} // namespace

TEST(SampleDensity, SameBitsAsByItsDefinition)
{
    for (PointCloudSamples const & cloud : makeClouds()) {
        for (bool const centred : {true, false}) {
            for (int const depth : {2, 5, 7}) {
                COctree const octree(&cloud, depth, nullptr, centred, -1);
                for (double const factor : {0.7, 0.95, 1.0, 1.6, 7.0}) {
                    Basis const basis(qz_test::scaledKernel(factor), &octree, 0);
                    for (int const delta : {0, 2}) {
                        int const estimation = std::max(octree.getNodeDepthEnd() - 1 - delta, 0);
                        if (factor > 2.0 && (depth > 5 || delta == 0))
                            continue; // slow by the definition
                        SCOPED_TRACE(testing::Message()
                                     << cloud.points.size() << " samples, depth " << depth << " of "
                                     << estimation << ", factor " << factor << ", centred " << centred);
                        SampleDensity const density =
                            estimateSampleDensity(cloud, octree, basis, estimation, 3, nullptr, nullptr);
                        std::vector<float> expected(cloud.points.size(), 0.0f);
                        addDensityByNodes(cloud, octree, basis, estimation, expected);
                        normalizeByLast(expected);
                        for (float & value : expected)
                            value = value > 0.0f ? 1.0f / value : value;
                        ASSERT_EQ(density.weights.size(), expected.size());
                        // Also where a weight is NaN.
                        EXPECT_EQ(std::memcmp(density.weights.data(), expected.data(),
                                              expected.size() * sizeof(float)),
                                  0);
                    }
                }
            }
        }
    }
}

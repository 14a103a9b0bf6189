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

// Weights that follow from the definition, walked through one by one.
std::vector<float> weightsByDefinition(PointCloudSamples const & cloud, COctree const & octree,
                                       Basis const & basis, int estimation)
{
    std::vector<float> expected(cloud.points.size(), 0.0f);
    addDensityByNodes(cloud, octree, basis, estimation, expected);
    normalizeByLast(expected);
    for (float & value : expected)
        value = value > 0.0f ? 1.0f / value : value;
    return expected;
}

// Also where a weight is NaN.
bool areSameBits(std::vector<float> const & one, std::vector<float> const & other)
{
    return one.size() == other.size() &&
           std::memcmp(one.data(), other.data(), one.size() * sizeof(float)) == 0;
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
                        EXPECT_TRUE(areSameBits(density.weights,
                                                weightsByDefinition(cloud, octree, basis, estimation)));
                    }
                }
            }
        }
    }
}

// Nearly all samples in one cell, and many in each of a few: more than one thread takes at a time.
TEST(SampleDensity, SameBitsWhereSamplesCrowd)
{
    std::mt19937 random(4);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    for (float const width : {0.01f, 0.8f}) {
        PointCloudSamples cloud;
        for (int n = 0; n < 280000; ++n)
            cloud.add({0.3f + width * uniform(random), 0.2f + width * uniform(random), 0.4f}, {});
        for (int n = 0; n < 300; ++n)
            cloud.add({2.0f * uniform(random), 2.0f * uniform(random), 2.0f * uniform(random)}, {});
        COctree const octree(&cloud, 3, nullptr, true, -1);
        Basis const basis(qz_test::scaledKernel(1.0), &octree, 0);
        std::vector<float> const expected = weightsByDefinition(cloud, octree, basis, 1);
        for (int const threads : {1, 3}) {
            SampleDensity const density =
                estimateSampleDensity(cloud, octree, basis, 1, threads, nullptr, nullptr);
            EXPECT_TRUE(areSameBits(density.weights, expected)) << width << ", threads " << threads;
        }
    }
}

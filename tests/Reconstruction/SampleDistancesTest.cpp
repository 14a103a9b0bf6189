// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/SampleDistances.h>
#include <QZsys/ParallelTasks.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace QZmath;

TEST(SampleDistances, areThoseToTheNearestPoint)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<float> along(-1, 1);
    TriangleMesh mesh;
    mesh.origin = {1e6, -2e6, 5};
    for (int i = 0; i < 3 * 5000; ++i)
        mesh.positions.push_back(along(random));
    std::vector<double> samples;
    for (std::size_t i = 0; i < 3 * 400; ++i)
        samples.push_back(mesh.origin[i % 3] + double(along(random)));
    samples[3 * 7 + 1] = std::numeric_limits<double>::quiet_NaN();
    samples[3 * 9] = std::numeric_limits<double>::infinity();
    PointCloudView cloud;
    cloud.size = samples.size() / 3;
    cloud.positions64 = samples.data();

    std::vector<float> const distances = sampleDistances(mesh, cloud);
    ASSERT_EQ(distances.size(), mesh.vertexCount());
    for (std::size_t v = 0; v < distances.size(); ++v) {
        double best = std::numeric_limits<double>::infinity();
        for (std::size_t i = 0; i < cloud.size; ++i) {
            double squared = 0;
            for (std::size_t k = 0; k < 3; ++k)
                squared +=
                    std::pow(samples[3 * i + k] - mesh.origin[k] - double(mesh.positions[3 * v + k]), 2);
            if (squared < best)
                best = squared;
        }
        ASSERT_NEAR(double(distances[v]), std::sqrt(best), 1e-6);
    }
    CThreadNumberScope const alone(1);
    EXPECT_EQ(sampleDistances(mesh, cloud), distances);
}

TEST(SampleDistances, withoutPointsAreInfinite)
{
    TriangleMesh mesh;
    EXPECT_TRUE(sampleDistances(mesh, PointCloudView()).empty());
    mesh.positions = {0, 0, 0};
    EXPECT_EQ(sampleDistances(mesh, PointCloudView())[0], std::numeric_limits<float>::infinity());
}

// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/SampleShapes.h>

#include <QZsys/ParallelTasks.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

using qz_sampling::Cloud;
using qz_sampling::Random;
using qz_sampling::SamplingOptions;
using qz_sampling::Shape;
using REmath::Point3D_d;

namespace
{

class SampleShapes : public testing::TestWithParam<std::string>
{
protected:
    std::unique_ptr<Shape> const m_shape = qz_sampling::makeShape(GetParam());
};

INSTANTIATE_TEST_SUITE_P(All, SampleShapes, testing::ValuesIn(qz_sampling::shapeNames()),
                         [](auto const & parameter) {
                             std::string name = parameter.param;
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

} // namespace

TEST_P(SampleShapes, SamplesLieOnTheSurfaceWithItsNormals)
{
    Random random(2);
    for (int round = 0; round < 2000; ++round) {
        qz_sampling::SurfacePoint const point = m_shape->sample(random);
        ASSERT_NEAR(m_shape->signedDistance(point.position), 0, 1e-12);
        ASSERT_NEAR(point.normal.length(), 1, 1e-12);
        for (std::size_t axis = 0; axis < 3; ++axis)
            ASSERT_LE(std::abs(point.position.asArray()[axis]), m_shape->halfExtent().asArray()[axis] + 1e-9);
        // A step along the normal has its length as distance, and the same normal; inside a sharp edge
        // another face may be nearer.
        double const step = random.uniform(m_shape->name() == "block" ? 0.0 : -0.005, 0.005);
        Point3D_d const aside = point.position + point.normal * step;
        if (m_shape->distanceToBorder(aside) < 0.01)
            continue;
        ASSERT_NEAR(m_shape->signedDistance(aside), step, 2e-4);
        ASSERT_GT(m_shape->normalNear(aside).angleCos(point.normal), 0.99);
    }
}

TEST_P(SampleShapes, CloudHonoursItsOptions)
{
    SamplingOptions options;
    options.pointNumber = 20000;
    Cloud const plain = sampleCloud(*m_shape, options);
    ASSERT_EQ(plain.size(), options.pointNumber);
    EXPECT_EQ(plain.positions, sampleCloud(*m_shape, options).positions);
    EXPECT_EQ(plain.boundaryMarks.empty(), m_shape->isClosed());
    if (!m_shape->isClosed()) {
        // A rim of 1.5 mean distances along the square's border.
        double const share = 8 * 1.5 * std::sqrt(m_shape->area() / 20000) / 4;
        auto const marked = std::count(plain.boundaryMarks.begin(), plain.boundaryMarks.end(), 1);
        EXPECT_NEAR(static_cast<double>(marked) / 20000, share, 0.3 * share);
    }

    options.noise = 0.002;
    options.densityRatio = 10;
    options.seed = 9;
    Cloud const noisy = sampleCloud(*m_shape, options);
    double sum = 0;
    int low = 0;
    int high = 0;
    Point3D_d const half = m_shape->halfExtent();
    for (std::size_t n = 0; n < noisy.size(); ++n) {
        Point3D_d const point(noisy.positions.data() + 3 * n);
        sum += std::pow(m_shape->signedDistance(point), 2);
        low += point.x() < 0 ? 1 : 0;
        high += point.x() > 0 ? 1 : 0;
    }
    double const sigma = options.noise * 2 * std::max({half.x(), half.y(), half.z()});
    EXPECT_NEAR(std::sqrt(sum / 20000), sigma, 0.1 * sigma);
    // The halves of an even body would have 1 + 9 / 4 against 1 + 27 / 4 or less extreme shares.
    EXPECT_GT(high, 1.6 * low);
    EXPECT_LT(high, 3.2 * low);
}

// The cloud is what one generator gives point after point, in whatever pieces threads make it.
TEST_P(SampleShapes, ThreadsMakeTheCloudOfOneGenerator)
{
    SamplingOptions options;
    options.pointNumber = 40000;
    for (auto const & [noise, densityRatio] : {std::pair(0.0, 1.0), {0.01, 1.0}, {0.0, 0.2}, {0.001, 5.0}}) {
        options.noise = noise;
        options.densityRatio = densityRatio;
        options.seed += 5;
        Random random(options.seed);
        Point3D_d const half = m_shape->halfExtent();
        std::vector<float> positions, normals;
        while (positions.size() < 3 * options.pointNumber) {
            qz_sampling::SurfacePoint point = m_shape->sample(random);
            double const density = 1 + (densityRatio - 1) * (point.position.x() + half.x()) / (2 * half.x());
            if (densityRatio != 1 && random.uniform() * std::max(1.0, densityRatio) > density)
                continue;
            double const x = noise > 0 ? random.normal() : 0;
            double const y = noise > 0 ? random.normal() : 0;
            double const z = noise > 0 ? random.normal() : 0;
            point.position += Point3D_d(x, y, z) * (noise * 2 * std::max({half.x(), half.y(), half.z()}));
            for (std::size_t axis = 0; axis < 3; ++axis) {
                positions.push_back(static_cast<float>(point.position.asArray()[axis]));
                normals.push_back(static_cast<float>(point.normal.asArray()[axis]));
            }
        }
        for (int const threads : {1, 2, 5}) {
            CThreadNumberScope const scope(threads);
            Cloud const cloud = sampleCloud(*m_shape, options);
            EXPECT_TRUE(cloud.positions == positions) << noise << ' ' << densityRatio << ' ' << threads;
            EXPECT_TRUE(cloud.normals == normals) << noise << ' ' << densityRatio << ' ' << threads;
        }
    }
}

// The first outputs of SplitMix64 for the seed 1234567: clouds must be the same everywhere.
TEST(Random, KnownSequence)
{
    Random random(1234567);
    EXPECT_EQ(random.next(), 6457827717110365317U);
    EXPECT_EQ(random.next(), 3203168211198807973U);
}

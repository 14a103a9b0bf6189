// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/PointCloudView.h>

#include <support/PointCloudSamples.h>

#include <random>
#include <vector>

namespace qz_test
{

/// The points of a cloud that a rank was given.
struct DealtPoints
{
    std::vector<float> positions, normals;

    /// Each point goes to some rank, by a throw of dice that all see alike; sometimes all go to one.
    DealtPoints(PointCloudSamples const & cloud, int rank, int ranks, unsigned seed)
    {
        std::mt19937 random(seed);
        bool const toOne = random() % 8 == 0;
        for (std::size_t n = 0; n < cloud.points.size(); ++n) {
            if ((toOne ? ranks - 1 : static_cast<int>(random() % static_cast<unsigned>(ranks))) != rank)
                continue;
            positions.insert(positions.end(), cloud.points[n].begin(), cloud.points[n].end());
            normals.insert(normals.end(), cloud.normals[n].begin(), cloud.normals[n].end());
        }
    }
    QZmath::PointCloudView view() const
    {
        QZmath::PointCloudView cloud;
        cloud.size = positions.size() / 3;
        cloud.positions = positions.data();
        cloud.normals = normals.data();
        return cloud;
    }
};

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/sampling/SampleShapes.h>
#include <support/PointCloudSamples.h>

#include <cmath>
#include <string>

namespace qz_test
{

inline PointCloudSamples toSamples(qz_sampling::Cloud const & cloud)
{
    PointCloudSamples samples;
    for (std::size_t point = 0; point < cloud.size(); ++point) {
        float const * p = &cloud.positions[3 * point];
        float const * n = &cloud.normals[3 * point];
        samples.add({p[0], p[1], p[2]}, {n[0], n[1], n[2]},
                    !cloud.boundaryMarks.empty() && cloud.boundaryMarks[point] != 0);
    }
    return samples;
}

/// A cloud on one of the analytic surfaces, see `qz_sampling::makeShape`.
inline PointCloudSamples sampledShape(std::string const & shape, std::size_t points, double noise = 0.0,
                                      double densityRatio = 1.0)
{
    qz_sampling::SamplingOptions options;
    options.pointNumber = points;
    options.noise = noise;
    options.densityRatio = densityRatio;
    return toSamples(sampleCloud(*qz_sampling::makeShape(shape), options));
}

/// Points on a sphere of radius 1 along a spiral: even without any chance.
inline PointCloudSamples spiralSphere(int points, float normalLength = 1.0f,
                                      std::array<float, 3> const & centre = {0.0f, 0.0f, 0.0f})
{
    PointCloudSamples samples;
    for (int point = 0; point < points; ++point) {
        double const z = 1.0 - (2.0 * point + 1.0) / points;
        double const angle = 2.4 * point; // nearly the golden angle
        double const radius = std::sqrt(1.0 - z * z);
        float const x = static_cast<float>(radius * std::cos(angle));
        float const y = static_cast<float>(radius * std::sin(angle));
        float const height = static_cast<float>(z);
        samples.add({x + centre[0], y + centre[1], height + centre[2]},
                    {normalLength * x, normalLength * y, normalLength * height});
    }
    return samples;
}

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/sampling/SampleShapes.h>
#include <support/PointCloudSamples.h>

#include <cmath>
#include <random>
#include <string>

namespace qz_test
{

struct CloudOptions
{
    double noise = 0.0, densityRatio = 1.0;  ///< Of the analytic surfaces, see `SamplingOptions`.
    float normalLength = 1.0f;               ///< Of the spiral.
    std::array<float, 3> centre = {0, 0, 0}; ///< Of the spiral.
    float thickness = 1.0f;                  ///< Height of the box, rise of the slope.
    unsigned seed = 11;                      ///< Of the box and the slope.
};

/// A cloud on one of the analytic surfaces of `qz_sampling::makeShape`, or
/// - "spiral": on a sphere of radius 1, even without any chance;
/// - "box": random in the unit square times `thickness`, normals upwards;
/// - "slope": the same in the plane z = `thickness` x.
inline PointCloudSamples cloudOf(std::string const & shape, std::size_t points,
                                 CloudOptions const & options = {})
{
    PointCloudSamples samples;
    if (shape == "spiral") {
        for (std::size_t point = 0; point < points; ++point) {
            double const number = static_cast<double>(point);
            double const z = 1.0 - (2.0 * number + 1.0) / static_cast<double>(points);
            double const angle = 2.4 * number; // nearly the golden angle
            double const radius = std::sqrt(1.0 - z * z);
            std::array<float, 3> place = {static_cast<float>(radius * std::cos(angle)),
                                          static_cast<float>(radius * std::sin(angle)),
                                          static_cast<float>(z)};
            std::array<float, 3> normal = place;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                place[axis] += options.centre[axis];
                normal[axis] *= options.normalLength;
            }
            samples.add(place, normal);
        }
    } else if (shape == "box" || shape == "slope") {
        std::mt19937 random(options.seed);
        auto const uniform = [&] { return static_cast<float>(random() % 100000) / 100000.0f; };
        for (std::size_t point = 0; point < points; ++point) {
            float const x = uniform(), y = uniform();
            samples.add({x, y, options.thickness * (shape == "box" ? uniform() : x)}, {0.0f, 0.0f, 1.0f});
        }
    } else {
        qz_sampling::SamplingOptions sampling;
        sampling.pointNumber = points;
        sampling.noise = options.noise;
        sampling.densityRatio = options.densityRatio;
        qz_sampling::Cloud const cloud = sampleCloud(*qz_sampling::makeShape(shape), sampling);
        for (std::size_t point = 0; point < points; ++point) {
            float const * p = &cloud.positions[3 * point];
            float const * n = &cloud.normals[3 * point];
            samples.add({p[0], p[1], p[2]}, {n[0], n[1], n[2]},
                        !cloud.boundaryMarks.empty() && cloud.boundaryMarks[point] != 0);
        }
    }
    return samples;
}

inline PointCloudSamples sampledShape(std::string const & shape, std::size_t points, double noise = 0.0,
                                      double densityRatio = 1.0)
{
    return cloudOf(shape, points, {noise, densityRatio});
}

inline PointCloudSamples spiralSphere(int points, float normalLength = 1.0f,
                                      std::array<float, 3> const & centre = {0.0f, 0.0f, 0.0f})
{
    return cloudOf("spiral", static_cast<std::size_t>(points), {0.0, 1.0, normalLength, centre});
}

} // namespace qz_test

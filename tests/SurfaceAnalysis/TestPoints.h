// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <apps/sampling/SampleShapes.h>
#include <support/Frames.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

/// Inputs for functions on raw coordinates.
namespace qz_test
{

/// A point of a lattice so small that coincident, collinear and coplanar points are common.
inline REmath::Point3D_d latticePoint(qz_sampling::Random & random, double scale = 1)
{
    auto const coordinate = [&] { return scale * (static_cast<double>(random.next() % 3) - 1); };
    double const x = coordinate(), y = coordinate();
    return {x, y, coordinate()};
}

/// Mostly numbers that are not finite, huge or tiny.
inline float hostileNumber(qz_sampling::Random & random)
{
    float const numbers[] = {NAN, INFINITY, -INFINITY, FLT_MAX, -FLT_MAX, FLT_TRUE_MIN, 1e-20F, 0, 1, -2};
    return numbers[random.next() % 10];
}

/// Points with their true normals.
struct OrientedPoints
{
    std::vector<REmath::Point3D> points, normals;
    int size() const { return static_cast<int>(points.size()); }
};

/// On one of the analytic surfaces of `qz_sampling::makeShape`.
inline OrientedPoints samplePoints(std::string const & shape, std::size_t count, double noise = 0)
{
    qz_sampling::SamplingOptions options;
    options.pointNumber = count;
    options.noise = noise;
    qz_sampling::Cloud const cloud = qz_sampling::sampleCloud(*qz_sampling::makeShape(shape), options);
    OrientedPoints result;
    for (std::size_t i = 0; i < cloud.positions.size(); i += 3) {
        result.points.emplace_back(&cloud.positions[i]);
        result.normals.emplace_back(&cloud.normals[i]);
    }
    return result;
}

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <support/Frames.h>

#include <cfloat>
#include <cmath>

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

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace VolTr
{

/// Place of a cube in its lattice; its corners have this index and the next one on each axis.
using CubeIndex = std::array<int, 3>;

/// Where the cubes of the polygoniser lie: corner i at `start - (i - 1/2) edge`, so indices grow against the
/// axes, and `start` is the middle of cube 0.
struct CubeFrame
{
    std::array<double, 3> start;
    double edge;

    /// Index of the cube of a coordinate. Far out, and for NaN, saturated well within the range of `int`.
    int indexOf(double coord, std::size_t axis) const
    {
        double const bound = 1.5 * (1 << 30);
        double const place = (start[axis] - coord) / edge + 0.5;
        return static_cast<int>(std::floor(place > -bound ? (place < bound ? place : bound) : -bound));
    }
};

/// Closed box of cubes.
struct CubeBox
{
    CubeIndex low;
    CubeIndex high;

    bool contains(CubeIndex const & cube) const
    {
        bool isInside = true;
        for (std::size_t axis = 0; axis < 3; ++axis)
            isInside = isInside && low[axis] <= cube[axis] && cube[axis] <= high[axis];
        return isInside;
    }
};

} // namespace VolTr

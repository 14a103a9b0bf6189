// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace QZmath
{

/// A point cloud in arrays that somebody else owns and keeps alive. Nothing is copied and nothing checked.
struct PointCloudView
{
    std::size_t size = 0; ///< points
    /// 3 a point, x y z, in any unit: exactly one of the two. Coordinates that need more than the 24 bits of
    /// a `float`, such as those of maps, come in `double`.
    float const * positions = nullptr;
    double const * positions64 = nullptr;
    float const * normals = nullptr;       ///< 3 a point, any length above 0; null: none
    std::uint8_t const * colors = nullptr; ///< 3 a point (r, g, b), sRGB; null: none
    std::uint8_t const * boundary =
        nullptr; ///< 1 a point, not 0 on the border of an open surface; null: none
};

} // namespace QZmath

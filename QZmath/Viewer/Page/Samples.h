// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Viewer/Drawing/SceneMesh.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath::Viewing
{

/// Samples of a scene that a page shows, as whole numbers of a grid around the mesh: coordinate = origin of
/// the mesh + low + step * number.
struct ThinnedSamples
{
    std::array<double, 3> low{};
    double step = 1;
    std::vector<std::array<std::uint16_t, 4>> places; ///< x, y, z, 0; along a curve that fills space
    std::vector<std::array<std::uint8_t, 4>> colors;  ///< r, g, b, 0; or empty
};

/// At most so many samples, one in so many along a curve that fills space: as dense as the samples, evenly.
/// Those farther from the mesh's box than a tenth of its longest side, which would make the grid coarse, and
/// those that are no numbers are left out. Of very many, only one in so many of the input is looked at. O(n
/// log n).
ThinnedSamples thinnedSamples(PointCloudView const & samples, SceneMesh const & mesh,
                              std::size_t mostSamples);

} // namespace QZmath::Viewing

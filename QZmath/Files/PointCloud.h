// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/PointCloudView.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace QZmath
{

/// A point cloud that owns its arrays. A plain value; nothing is checked.
struct PointCloud
{
    /// 3 a point, x y z, in the unit of the file: exactly one of the two is filled. `double` where `float`
    /// would lose digits of the file.
    std::vector<float> positions;
    std::vector<double> positions64;
    std::vector<float> normals;         ///< 3 a point, as they were in the file; empty: none
    std::vector<std::uint8_t> colors;   ///< 3 a point (r, g, b), sRGB; empty: none
    std::vector<std::uint8_t> boundary; ///< 1 a point: 1 on the border of an open surface, else 0; or empty
    std::optional<std::array<double, 3>> viewpoint; ///< place of the scanner, where the file tells it
    /// What was guessed or left out while the file was read, a sentence each.
    std::vector<std::string> notes;

    std::size_t size() const { return (positions.empty() ? positions64.size() : positions.size()) / 3; }
    /// Refers to the arrays as they are now.
    PointCloudView view() const
    {
        PointCloudView cloud;
        cloud.size = size();
        cloud.positions = positions.empty() ? nullptr : positions.data();
        cloud.positions64 = positions.empty() && !positions64.empty() ? positions64.data() : nullptr;
        cloud.normals = normals.empty() ? nullptr : normals.data();
        cloud.colors = colors.empty() ? nullptr : colors.data();
        cloud.boundary = boundary.empty() ? nullptr : boundary.data();
        return cloud;
    }
};

} // namespace QZmath

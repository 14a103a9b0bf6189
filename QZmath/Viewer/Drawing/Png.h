// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace QZmath::Viewing
{

/// A picture of sRGB bytes, 3 a pixel, rows from the top.
struct Picture
{
    int width = 0, height = 0;
    std::vector<std::uint8_t> bytes;

    std::uint8_t * pixel(int x, int y)
    {
        return &bytes[3 * (std::size_t(y) * std::size_t(width) + std::size_t(x))];
    }
};

/// The bytes of a PNG file.
std::string pngOf(Picture const & picture);

} // namespace QZmath::Viewing

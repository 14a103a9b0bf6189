// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Viewer/Drawing/Camera.h>
#include <QZmath/Viewer/Drawing/Png.h>

#include <cstdint>
#include <vector>

namespace QZmath::Viewing
{

/// Colours of a picture, from 0 to 1: those of the page in light and in dark.
struct Look
{
    Vec3 ground, groundFar, clay, inside, text, sky, below;
    float rim = 0; ///< how much brighter outlines are, or darker below 0
    Vec3 axes[3];

    static Look of(bool dark);
};

/// What the vertices of a mesh look like: a colour each, or the look's clay where there are none. Of `isData`
/// the light takes less, so that they can be read.
struct Paint
{
    std::vector<std::uint8_t> colors; ///< 3 a vertex, sRGB; empty: clay
    std::vector<std::uint8_t> sky;    ///< see `skyOver`
    bool isData = false;
};

/// Draws the mesh over the ground, with nine samples a pixel.
Picture drawMesh(SceneMesh const & mesh, Paint const & paint, Camera const & camera, Look const & look,
                 int width, int height);

/// Colours of the scales for density and distance, a byte to three.
Vec3 densityColor(std::uint8_t value);
Vec3 distanceColor(std::uint8_t value);

} // namespace QZmath::Viewing

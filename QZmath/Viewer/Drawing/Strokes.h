// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Viewer/Drawing/Png.h>
#include <QZmath/Viewer/Drawing/Vec3.h>

#include <string>

namespace QZmath::Viewing
{

/// A line with round ends over a picture; lengths in pixels, the colour from 0 to 1. What lies outside the
/// picture is not drawn.
void drawLine(Picture & picture, float fromX, float fromY, float toX, float toY, float width, Vec3 color);

/// Width of a text of digits, sign, point, e, X, Y and Z, `height` pixels high.
float textWidth(std::string const & text, float height);

/// Such a text, its lower left corner at a place; other characters are left blank.
void drawText(Picture & picture, std::string const & text, float left, float bottom, float height,
              Vec3 color);

} // namespace QZmath::Viewing

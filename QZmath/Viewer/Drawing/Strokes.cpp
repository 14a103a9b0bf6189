// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Drawing/Strokes.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace QZmath::Viewing
{

namespace
{

// Lines of a character on a grid of 4 x 6, from the lower left corner.
using Line = std::vector<std::pair<float, float>>;

std::vector<Line> linesOf(char character)
{
    switch (character) {
    case '0':
        return {{{1.2f, 0},
                 {2.8f, 0},
                 {3.7f, 1},
                 {4, 2.2f},
                 {4, 3.8f},
                 {3.7f, 5},
                 {2.8f, 6},
                 {1.2f, 6},
                 {0.3f, 5},
                 {0, 3.8f},
                 {0, 2.2f},
                 {0.3f, 1},
                 {1.2f, 0}}};
    case '1':
        return {{{0.8f, 4.9f}, {2.2f, 6}, {2.2f, 0}}};
    case '2':
        return {{{0.1f, 4.7f},
                 {0.5f, 5.5f},
                 {1.4f, 6},
                 {2.6f, 6},
                 {3.5f, 5.5f},
                 {3.9f, 4.7f},
                 {3.7f, 3.7f},
                 {0, 0},
                 {4, 0}}};
    case '3':
        return {{{0.2f, 6},
                 {3.7f, 6},
                 {1.8f, 3.7f},
                 {2.7f, 3.7f},
                 {3.6f, 3.1f},
                 {4, 2},
                 {3.7f, 0.9f},
                 {2.8f, 0.1f},
                 {1.4f, 0},
                 {0.5f, 0.4f},
                 {0, 1.1f}}};
    case '4':
        return {{{3, 0}, {3, 6}, {0, 1.7f}, {4, 1.7f}}};
    case '5':
        return {{{3.7f, 6},
                 {0.6f, 6},
                 {0.3f, 3.3f},
                 {1.2f, 3.8f},
                 {2.5f, 3.8f},
                 {3.6f, 3.1f},
                 {4, 2},
                 {3.7f, 0.9f},
                 {2.8f, 0.1f},
                 {1.4f, 0},
                 {0.5f, 0.4f},
                 {0, 1}}};
    case '6':
        return {{{3.6f, 5.5f},
                 {2.7f, 6},
                 {1.6f, 6},
                 {0.6f, 5.2f},
                 {0, 3.6f},
                 {0, 1.9f},
                 {0.4f, 0.7f},
                 {1.3f, 0},
                 {2.7f, 0},
                 {3.6f, 0.7f},
                 {4, 1.8f},
                 {3.6f, 2.9f},
                 {2.7f, 3.6f},
                 {1.4f, 3.6f},
                 {0.5f, 3},
                 {0, 1.9f}}};
    case '7':
        return {{{0, 6}, {4, 6}, {1.5f, 0}}};
    case '8':
        return {{{1.3f, 3.2f}, {0.5f, 3.8f}, {0.3f, 4.6f}, {0.6f, 5.5f}, {1.4f, 6},
                 {2.6f, 6},    {3.4f, 5.5f}, {3.7f, 4.6f}, {3.5f, 3.8f}, {2.7f, 3.2f},
                 {1.3f, 3.2f}, {0.4f, 2.6f}, {0, 1.7f},    {0.3f, 0.7f}, {1.2f, 0},
                 {2.8f, 0},    {3.7f, 0.7f}, {4, 1.7f},    {3.6f, 2.6f}, {2.7f, 3.2f}}};
    case '9':
        return {{{0.4f, 0.5f},
                 {1.3f, 0},
                 {2.4f, 0},
                 {3.4f, 0.8f},
                 {4, 2.4f},
                 {4, 4.1f},
                 {3.6f, 5.3f},
                 {2.7f, 6},
                 {1.3f, 6},
                 {0.4f, 5.3f},
                 {0, 4.2f},
                 {0.4f, 3.1f},
                 {1.3f, 2.4f},
                 {2.6f, 2.4f},
                 {3.5f, 3},
                 {4, 4.1f}}};
    case 'e':
        return {{{0, 2.1f},
                 {3.9f, 2.1f},
                 {3.8f, 3},
                 {3, 3.9f},
                 {1.2f, 3.9f},
                 {0.3f, 3.1f},
                 {0, 2},
                 {0.3f, 0.9f},
                 {1.2f, 0},
                 {2.8f, 0},
                 {3.6f, 0.5f}}};
    case '.':
        return {{{0.4f, 0.1f}, {0.4f, 0.1f}}};
    case '-':
        return {{{0.5f, 2.8f}, {3.5f, 2.8f}}};
    case '+':
        return {{{0.4f, 2.8f}, {3.6f, 2.8f}}, {{2, 1.2f}, {2, 4.4f}}};
    case 'X':
        return {{{0, 0}, {4, 6}}, {{0, 6}, {4, 0}}};
    case 'Y':
        return {{{0, 6}, {2, 2.9f}, {4, 6}}, {{2, 2.9f}, {2, 0}}};
    case 'Z':
        return {{{0, 6}, {4, 6}, {0, 0}, {4, 0}}};
    default:
        return {};
    }
}

float advanceOf(char character) { return character == '.' ? 2.6f : 5.9f; }

} // namespace

void drawLine(Picture & picture, float fromX, float fromY, float toX, float toY, float width, Vec3 color)
{
    float const reach = 0.5f * width + 1;
    auto const bounded = [](float value, int most) {
        return static_cast<int>(std::clamp(value, 0.0f, static_cast<float>(most)));
    };
    int const left = bounded(std::min(fromX, toX) - reach, picture.width);
    int const right = bounded(std::max(fromX, toX) + reach + 1, picture.width);
    int const top = bounded(std::min(fromY, toY) - reach, picture.height);
    int const bottom = bounded(std::max(fromY, toY) + reach + 1, picture.height);
    float const dx = toX - fromX, dy = toY - fromY;
    float const squared = dx * dx + dy * dy;
    for (int y = top; y < bottom; ++y)
        for (int x = left; x < right; ++x) {
            float const px = float(x) + 0.5f - fromX, py = float(y) + 0.5f - fromY;
            float const along = squared > 0 ? std::clamp((px * dx + py * dy) / squared, 0.0f, 1.0f) : 0.0f;
            float const away = std::hypot(px - along * dx, py - along * dy);
            float const cover = std::clamp(0.5f * width + 0.5f - away, 0.0f, 1.0f);
            std::uint8_t * const pixel = picture.pixel(x, y);
            for (int k = 0; k < 3; ++k)
                pixel[k] = static_cast<std::uint8_t>(
                    std::lround((1 - cover) * float(pixel[k]) + 255 * cover * color[k]));
        }
}

float textWidth(std::string const & text, float height)
{
    float width = 0;
    for (char const character : text)
        width += advanceOf(character);
    return std::max(width - 1.9f, 0.0f) * height / 6;
}

void drawText(Picture & picture, std::string const & text, float left, float bottom, float height, Vec3 color)
{
    float const unit = height / 6;
    float const width = 0.13f * height;
    for (char const character : text) {
        for (Line const & line : linesOf(character))
            for (std::size_t i = 1; i < line.size(); ++i)
                drawLine(picture, left + unit * line[i - 1].first, bottom - unit * line[i - 1].second,
                         left + unit * line[i].first, bottom - unit * line[i].second, width, color);
        left += unit * advanceOf(character);
    }
}

} // namespace QZmath::Viewing

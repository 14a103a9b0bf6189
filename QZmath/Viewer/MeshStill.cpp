// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/MeshStill.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Viewer/Drawing/Occlusion.h>
#include <QZmath/Viewer/Drawing/Picture.h>
#include <QZmath/Viewer/Drawing/Strokes.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace QZmath
{

namespace
{

using namespace Viewing;
using Shading = StillOptions::Shading;

Shading checkedShading(MeshScene const & scene, StillOptions const & options)
{
    int const least = 16, most = 16384;
    if (std::min(options.width, options.height) < least || std::max(options.width, options.height) > most)
        throw InputError("a picture of " + std::to_string(options.width) + " x " +
                         std::to_string(options.height) + " pixels is out of range: 16 to 16384 each");
    bool const hasColors = !scene.mesh->colors.empty();
    bool const hasDistances = scene.distances != nullptr && !scene.distances->empty();
    if (options.shading == Shading::automatic)
        return hasColors ? Shading::color : Shading::plain;
    if ((options.shading == Shading::color && !hasColors) ||
        (options.shading == Shading::density && scene.mesh->density.empty()) ||
        (options.shading == Shading::distance && !hasDistances))
        throw InputError("the mesh does not have what the picture is to be coloured by");
    return options.shading;
}

Paint paintOf(MeshScene const & scene, SceneMesh const & mesh, Shading shading)
{
    Paint paint;
    paint.sky = skyOver(mesh);
    paint.isData = shading != Shading::plain && shading != Shading::color;
    if (shading == Shading::plain)
        return paint;
    std::size_t const count = mesh.vertexCount();
    paint.colors.resize(3 * count);
    auto const fill = [&](auto const & colorOf) {
        for (std::size_t v = 0; v < count; ++v) {
            Vec3 const color = colorOf(v);
            for (int k = 0; k < 3; ++k)
                paint.colors[3 * v + std::size_t(k)] =
                    static_cast<std::uint8_t>(std::lround(255 * std::clamp(color[k], 0.0f, 1.0f)));
        }
    };
    if (shading == Shading::color) {
        for (std::size_t i = 0; i < 3 * count; ++i)
            paint.colors[i] = scene.mesh->colors[3 * std::size_t(mesh.sources[i / 3]) + i % 3];
    } else if (shading == Shading::normal) {
        fill([&](std::size_t v) {
            return 0.5f * (Vec3{1, 1, 1} + mesh.normal(static_cast<std::uint32_t>(v)));
        });
    } else if (shading == Shading::density) {
        ByteRange const range = byteRange(scene.mesh->density, mesh, false);
        fill([&](std::size_t v) { return densityColor(range.bytes[v]); });
    } else {
        ByteRange const range = byteRange(*scene.distances, mesh, true);
        fill([&](std::size_t v) { return distanceColor(range.bytes[v]); });
    }
    return paint;
}

// A rule of a round length with a tick at each round part of it, and the axes.
void drawScale(SceneMesh const & mesh, Camera const & camera, Look const & look, Picture & picture)
{
    float const unit = float(std::min(picture.width, picture.height)) / 1200;
    float const margin = 44 * unit, height = 22 * unit, line = std::max(2.4f * unit, 1.0f);
    double const pixelLength = mesh.scale * camera.targetDistance / camera.focus; // at the middle of the mesh
    double const longest = 0.24 * picture.width * pixelLength;
    double const power = std::pow(10.0, std::floor(std::log10(longest)));
    double const share = longest / power;
    int const digit = share >= 5 ? 5 : share >= 2 ? 2 : 1;
    int const parts = digit == 2 ? 4 : 5;
    double const length = digit * power;
    if (!(length > 0) || !std::isfinite(length))
        return;
    float const left = margin, bottom = float(picture.height) - margin;
    auto const wide = static_cast<float>(length / pixelLength);
    drawLine(picture, left, bottom, left + wide, bottom, line, look.text);
    for (int tick = 0; tick <= parts; ++tick) {
        float const x = left + wide * float(tick) / float(parts);
        float const high = (tick == 0 || tick == parts ? 13 : 7) * unit;
        drawLine(picture, x, bottom, x, bottom - high, line, look.text);
    }
    std::string const text = plainNumber(length, 3);
    drawText(picture, "0", left, bottom - 24 * unit, height, look.text);
    drawText(picture, text, left + wide - textWidth(text, height), bottom - 24 * unit, height, look.text);

    float const x = float(picture.width) - 2.1f * margin, y = float(picture.height) - 2.1f * margin;
    std::array<int, 3> order = {0, 1, 2};
    auto const seen = [&](int k) {
        return camera.turned({k == 0 ? 1.0f : 0.0f, k == 1 ? 1.0f : 0.0f, k == 2 ? 1.0f : 0.0f});
    };
    std::sort(order.begin(), order.end(), [&](int a, int b) { return seen(a).z < seen(b).z; });
    for (int const k : order) {
        Vec3 const direction = seen(k);
        drawLine(picture, x, y, x + 48 * unit * direction.x, y - 48 * unit * direction.y, 1.5f * line,
                 look.axes[k]);
        drawText(picture, std::string(1, static_cast<char>('X' + k)), x + 68 * unit * direction.x - 6 * unit,
                 y - 68 * unit * direction.y + 9 * unit, 18 * unit, look.axes[k]);
    }
}

} // namespace

std::string meshStill(MeshScene const & scene, StillOptions const & options, CProgressCounter * progress)
{
    auto const report = [&](double position) {
        if (progress != nullptr)
            progress->SetPosFloat(position);
    };
    SceneMesh const mesh = sceneMesh(scene, std::numeric_limits<std::size_t>::max());
    Shading const shading = checkedShading(scene, options);
    report(0.2);
    Paint const paint = paintOf(scene, mesh, shading);
    report(0.5);
    Camera const camera(mesh, options.width, options.height);
    Look const look = Look::of(options.dark);
    Picture picture = drawMesh(mesh, paint, camera, look, options.width, options.height);
    report(0.9);
    if (mesh.triangleCount() > 0)
        drawScale(mesh, camera, look, picture);
    std::string const file = pngOf(picture);
    report(1.0);
    return file;
}

void writeMeshStill(MeshScene const & scene, std::string const & path, PendingFiles & files,
                    StillOptions const & options, CProgressCounter * progress)
{
    files.write(path, meshStill(scene, options, progress));
}

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Drawing/Camera.h>

#include <algorithm>
#include <cmath>

namespace QZmath::Viewing
{

namespace
{

float const st_halfAngle = 0.27925268f; // 16 degrees
float const st_azimuth = 0.55f, st_fromPole = 1.2f;

// A direction in a world with y upwards, in the axes of a mesh with another one upwards.
Vec3 ownDirection(Vec3 d, int up)
{
    return up == 2 ? Vec3{d.x, -d.z, d.y} : up == 0 ? Vec3{d.y, -d.x, d.z} : d;
}

} // namespace

Camera::Camera(SceneMesh const & mesh, int width, int height)
    : up(upAxis(mesh)), middleX(0.5f * float(width)), middleY(0.5f * float(height))
{
    Vec3 const towards{std::sin(st_fromPole) * std::sin(st_azimuth), std::cos(st_fromPole),
                       std::sin(st_fromPole) * std::cos(st_azimuth)};
    back = ownDirection(towards, up);
    right = cross(ownDirection({0, 1, 0}, up), back).unit();
    above = cross(back, right);

    float const across = std::tan(st_halfAngle);
    float const aspect = float(width) / float(height);
    focus = 0.5f * float(height) / across;
    Vec3 target = 0.5f * Vec3::of(mesh.size.data());
    std::size_t const stride = mesh.vertexCount() / 100000 + 1;
    targetDistance = 1;
    for (int round = 0; round < 4; ++round) {
        float away = 0;
        for (std::size_t v = 0; v < mesh.vertexCount(); v += stride) {
            Vec3 const place = turned(mesh.place(static_cast<std::uint32_t>(v)) - target);
            away = std::max({away, place.z + std::abs(place.y) / across,
                             place.z + std::abs(place.x) / (across * aspect)});
        }
        targetDistance = away > 0 ? 1.12f * away : 1;
        eye = target + targetDistance * back;
        float least[2] = {INFINITY, INFINITY}, most[2] = {-INFINITY, -INFINITY};
        for (std::size_t v = 0; v < mesh.vertexCount(); v += stride) {
            Vec3 const place = seen(mesh.place(static_cast<std::uint32_t>(v)));
            for (int k = 0; k < 2; ++k) {
                least[k] = std::min(least[k], place[k] / -place.z);
                most[k] = std::max(most[k], place[k] / -place.z);
            }
        }
        if (mesh.vertexCount() > 0 && round < 3)
            target = target + (0.5f * targetDistance * (least[0] + most[0])) * right +
                     (0.5f * targetDistance * (least[1] + most[1])) * above;
    }
}

} // namespace QZmath::Viewing

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Drawing/Occlusion.h>

#include <QZmath/Viewer/Drawing/Loops.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace QZmath::Viewing
{

namespace
{

int const st_directions = 96;
int const st_side = 288; // pixels of a map

/// How far the mesh reaches towards a direction, over the plane across it. Nearer to the direction is
/// greater.
struct DepthMap
{
    Vec3 across, along, towards; // unit vectors
    std::vector<float> depths;   // rows; minus infinity where there is nothing

    // The mesh's box, longest side 1, around 0 in a ball of this radius.
    static constexpr float reach = 0.88f;
    static constexpr float pixel = 2 * reach / float(st_side);

    Vec3 toMap(Vec3 place) const
    {
        return {(dot(place, across) + reach) / pixel, (dot(place, along) + reach) / pixel,
                dot(place, towards)};
    }

    void draw(SceneMesh const & mesh, Vec3 center)
    {
        depths.assign(std::size_t(st_side) * st_side, -std::numeric_limits<float>::infinity());
        std::vector<Vec3> corners(mesh.vertexCount());
        for (std::size_t v = 0; v < corners.size(); ++v)
            corners[v] = toMap(mesh.place(static_cast<std::uint32_t>(v)) - center);
        for (std::size_t i = 0; i < mesh.triangles.size(); i += 3)
            draw(corners[mesh.triangles[i]], corners[mesh.triangles[i + 1]], corners[mesh.triangles[i + 2]]);
    }

    // The pixels whose middles lie in a triangle; of one that holds none, the pixel around its middle.
    void draw(Vec3 a, Vec3 b, Vec3 c)
    {
        auto const bounded = [](float value) {
            return std::clamp(static_cast<int>(std::floor(value)), 0, st_side - 1);
        };
        int const left = bounded(std::min({a.x, b.x, c.x}) + 0.5f),
                  right = bounded(std::max({a.x, b.x, c.x}) - 0.5f);
        int const low = bounded(std::min({a.y, b.y, c.y}) + 0.5f),
                  high = bounded(std::max({a.y, b.y, c.y}) - 0.5f);
        float const area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
        if (right <= left && high <= low) {
            put(bounded((a.x + b.x + c.x) / 3), bounded((a.y + b.y + c.y) / 3), (a.z + b.z + c.z) / 3);
            return;
        }
        if (area == 0)
            return;
        for (int y = low; y <= high; ++y)
            for (int x = left; x <= right; ++x) {
                float const px = float(x) + 0.5f - a.x, py = float(y) + 0.5f - a.y;
                float const second = (px * (c.y - a.y) - py * (c.x - a.x)) / area;
                float const third = (py * (b.x - a.x) - px * (b.y - a.y)) / area;
                if (second >= 0 && third >= 0 && second + third <= 1)
                    put(x, y, a.z + second * (b.z - a.z) + third * (c.z - a.z));
            }
    }

    void put(int x, int y, float depth)
    {
        float & best = depths[std::size_t(y) * st_side + std::size_t(x)];
        best = std::max(best, depth);
    }

    // The share of the four pixels around a place, weighted by nearness, that do not cover it.
    float openAt(Vec3 place) const
    {
        Vec3 const seen = toMap(place);
        float const x = std::clamp(seen.x - 0.5f, 0.0f, float(st_side - 2));
        float const y = std::clamp(seen.y - 0.5f, 0.0f, float(st_side - 2));
        auto const column = static_cast<std::size_t>(x), row = static_cast<std::size_t>(y);
        float const right = x - float(column), up = y - float(row);
        float const * const lower = &depths[row * st_side + column];
        float const * const upper = lower + st_side;
        float const limit = seen.z + 1.5f * pixel;
        auto const open = [&](float depth) { return depth <= limit ? 1.0f : 0.0f; };
        return (1 - up) * ((1 - right) * open(lower[0]) + right * open(lower[1])) +
               up * ((1 - right) * open(upper[0]) + right * open(upper[1]));
    }
};

// Even over the sphere, along a spiral.
Vec3 directionOf(int index)
{
    double const height = 1 - (2 * index + 1.0) / st_directions;
    double const turn = index * 2.399963229728653; // golden angle
    double const radius = std::sqrt(1 - height * height);
    return {static_cast<float>(radius * std::cos(turn)), static_cast<float>(radius * std::sin(turn)),
            static_cast<float>(height)};
}

} // namespace

std::vector<std::uint8_t> skyOver(SceneMesh const & mesh)
{
    Vec3 const center = 0.5f * Vec3::of(mesh.size.data());
    std::vector<DepthMap> maps(st_directions);
    forEach(st_directions, [&](int index) {
        DepthMap & map = maps[static_cast<std::size_t>(index)];
        map.towards = directionOf(index);
        Vec3 const other = std::abs(map.towards.x) < 0.7f ? Vec3{1, 0, 0} : Vec3{0, 1, 0};
        map.across = cross(other, map.towards).unit();
        map.along = cross(map.towards, map.across);
        map.draw(mesh, center);
    });
    std::vector<std::uint8_t> sky(mesh.vertexCount());
    forEachPiece(sky.size(), 4096, [&](std::size_t begin, std::size_t end) {
        std::vector<float> open(end - begin, 0.0f), all(end - begin, 0.0f);
        for (DepthMap const & map : maps)
            for (std::size_t v = begin; v < end; ++v) {
                auto const vertex = static_cast<std::uint32_t>(v);
                Vec3 const normal = mesh.normal(vertex);
                float const cosine = dot(normal, map.towards);
                if (cosine <= 0)
                    continue;
                all[v - begin] += cosine;
                open[v - begin] +=
                    cosine * map.openAt(mesh.place(vertex) - center + DepthMap::pixel * normal);
            }
        for (std::size_t v = begin; v < end; ++v) {
            float const share = all[v - begin] > 0 ? open[v - begin] / all[v - begin] : 1;
            sky[v] = static_cast<std::uint8_t>(std::lround(255 * share));
        }
    });
    return sky;
}

} // namespace QZmath::Viewing

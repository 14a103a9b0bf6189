// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/Genus3Level.h>

#include <cmath>
#include <cstdint>
#include <cstring>

using REmath::Point3D_d;

namespace qz_sampling::genus3
{

namespace
{

constexpr int circles = 4;
constexpr double centres[circles][2] = {
    {0, 0}, {0.6, 0}, {-0.3, 0.5196152422706632}, {-0.3, -0.5196152422706632}};
constexpr double holeRadius = 0.25;
constexpr double steepness = 5;
constexpr double thickness = 0.08;

constexpr double radiusOf(int circle) { return circle == 0 ? discRadius : holeRadius; }
// Positive for the side of the disk's body.
constexpr double scaleOf(int circle)
{
    return (circle == 0 ? -steepness : steepness) / (2 * radiusOf(circle));
}

// t / sqrt(1 + t²) of a t that vanishes at the circle and is positive on the side of the disk's body.
struct Factor
{
    double value;
    double dx;
    double dy;
};

[[gnu::always_inline]] inline Factor factor(int circle, double x, double y)
{
    double const offsetX = x - centres[circle][0];
    double const offsetY = y - centres[circle][1];
    double const radius = radiusOf(circle);
    double const scale = scaleOf(circle);
    double const t = scale * (offsetX * offsetX + offsetY * offsetY - radius * radius);
    double const root = std::sqrt(1 + t * t);
    double const slope = 2 * scale / (root * root * root);
    return {t / root, slope * offsetX, slope * offsetY};
}

[[gnu::always_inline]] inline double level(double x, double y, double z)
{
    double product = thickness;
    for (int circle = 0; circle < circles; ++circle)
        product *= factor(circle, x, y).value;
    return z * z - product;
}

using Quad = double __attribute__((vector_size(32)));
using Marks = std::int64_t __attribute__((vector_size(32))); // -1 or 0

// In this file roots set no error number, or there would be no vectors.
[[gnu::always_inline]] inline unsigned walkLanes(Walks & walks)
{
    double here[st_lanes], next[st_lanes];
    for (std::size_t lane = 0; lane < st_lanes; ++lane) {
        double const position = walks.position[lane];
        here[lane] = level(walks.origin[0][lane] + walks.along[0][lane] * position,
                           walks.origin[1][lane] + walks.along[1][lane] * position,
                           walks.origin[2][lane] + walks.along[2][lane] * position);
        next[lane] = nextPosition(position, here[lane]);
    }
    unsigned stopped = 0;
    for (std::size_t first = 0; first < st_lanes; first += 4) {
        Quad levels, before, passed, position, end, following;
        std::memcpy(&levels, here + first, sizeof(Quad));
        std::memcpy(&before, walks.before + first, sizeof(Quad));
        std::memcpy(&passed, walks.passed + first, sizeof(Quad));
        std::memcpy(&position, walks.position + first, sizeof(Quad));
        std::memcpy(&end, walks.end + first, sizeof(Quad));
        std::memcpy(&following, next + first, sizeof(Quad));
        Marks const stops = ((before < 0) != (levels < 0)) | (position >= end);
        before = stops ? before : levels;
        passed = stops ? passed : position;
        position = stops ? position : following;
        std::memcpy(walks.level + first, &levels, sizeof(Quad));
        std::memcpy(walks.before + first, &before, sizeof(Quad));
        std::memcpy(walks.passed + first, &passed, sizeof(Quad));
        std::memcpy(walks.position + first, &position, sizeof(Quad));
        // Not by subscripts of the vector: what gcc 12 makes of them with checks of bounds reads elsewhere.
        std::int64_t marks[4];
        std::memcpy(marks, &stops, sizeof(Marks));
        for (unsigned k = 0; k < 4; ++k)
            stopped |= (marks[k] != 0 ? 1u : 0u) << (first + k);
    }
    return stopped;
}

#ifdef __x86_64__
[[gnu::target("avx2")]] unsigned walkWide(Walks & walks) { return walkLanes(walks); }
#endif

} // namespace

double levelAt(Point3D_d const & point) { return level(point.x(), point.y(), point.z()); }

Point3D_d gradientAt(Point3D_d const & point)
{
    Factor factors[circles];
    for (int circle = 0; circle < circles; ++circle)
        factors[circle] = factor(circle, point.x(), point.y());
    double dx = 0;
    double dy = 0;
    for (int circle = 0; circle < circles; ++circle) {
        double others = thickness;
        for (int other = 0; other < circles; ++other)
            others *= other != circle ? factors[other].value : 1;
        dx += others * factors[circle].dx;
        dy += others * factors[circle].dy;
    }
    return {-dx, -dy, 2 * point.z()};
}

unsigned walk(Walks & walks)
{
#ifdef __x86_64__
    static bool const isWide = __builtin_cpu_supports("avx2") != 0;
    if (isWide)
        return walkWide(walks);
#endif
    return walkLanes(walks);
}

} // namespace qz_sampling::genus3

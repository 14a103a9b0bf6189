// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <support/Frames.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

/// Neighbourhoods on analytic surfaces with the truth at hand.
namespace qz_test
{

using REmath::Detail::dot;

/// Angle between two lines, 0 to 90 degrees.
inline double degreesBetweenLines(double const * a, REmath::Point3D_d const & b)
{
    return std::acos(std::min(1.0, std::abs(REmath::Point3D_d(a).angleCos(b)))) * 57.29577951308232;
}

/// Surface z(x, y) that touches the plane of x and y at the origin.
struct Patch
{
    char const * name;
    double (*height)(double x, double y);
    std::array<double, 2> curvatures; ///< in order, positive upwards
};

inline std::vector<Patch> curvedPatches()
{
    return {
        {"cylinder", [](double x, double) { return 1 - std::sqrt(1 - x * x); }, {0, 1}},
        {"saddle", [](double x, double y) { return 0.5 * (x * x - y * y); }, {-1, 1}},
        // Tube of radius 1 about a circle of radius 3, outside and inside.
        {"torusOutside",
         [](double x, double y) {
             double const ring = std::sqrt(1 - x * x) + 3;
             return 4 - std::sqrt(ring * ring - y * y);
         },
         {0.25, 1}},
        {"torusInside",
         [](double x, double y) {
             double const ring = 3 - std::sqrt(1 - x * x);
             return std::sqrt(ring * ring - y * y) - 2;
         },
         {-0.5, 1}},
    };
}

inline Patch sphericalPatch()
{
    return {"sphere", [](double x, double y) { return 1 - std::sqrt(1 - x * x - y * y); }, {1, 1}};
}

struct Neighbourhood
{
    std::vector<REmath::Point3D> points;
    REmath::Point3D_d normal; ///< upwards at the first point
};

/// `count` points within `radius` around the first one, at the origin of the patch, off the surface by
/// normally distributed `noise` times the radius; enlarged by `size` and put into a random frame.
inline Neighbourhood makeNeighbourhood(Patch const & patch, qz_sampling::Random & random, int count,
                                       double radius, double noise, double size)
{
    Frame const frame = randomFrame(random, size);
    Neighbourhood result;
    result.normal = frame.axes[2];
    for (int i = 0; i < count; ++i) {
        double const angle = random.uniform(0, 6.283185307179586),
                     reach = radius * std::sqrt(random.uniform());
        double const x = i == 0 ? 0 : reach * std::cos(angle), y = i == 0 ? 0 : reach * std::sin(angle);
        double const z = patch.height(x, y) + noise * radius * random.normal();
        REmath::Point3D_d const p = frame.toWorld(REmath::Point3D_d(x, y, z) * size);
        result.points.emplace_back(p.x(), p.y(), p.z());
    }
    return result;
}

} // namespace qz_test

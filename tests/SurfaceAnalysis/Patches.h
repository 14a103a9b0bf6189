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

/// Surface that touches the plane of x and y at the origin: a piece of a torus, whose tube and ring have the
/// curvatures given there, positive upwards. It is a sphere where both are the same; 0 counts as 1e-7.
struct Patch
{
    double height(double x, double y) const
    {
        double const ringRadius = 1 / (curvatures[0] == 0 ? 1e-7 : curvatures[0]);
        double const tubeRadius = 1 / (curvatures[1] == 0 ? 1e-7 : curvatures[1]);
        double const fromAxis = std::sqrt(tubeRadius * tubeRadius - x * x) + ringRadius - tubeRadius;
        return ringRadius - std::copysign(std::sqrt(fromAxis * fromAxis - y * y), ringRadius);
    }

    char const * name;
    std::array<double, 2> curvatures; ///< in order
};

inline std::vector<Patch> curvedPatches()
{
    return {{"cylinder", {0, 1}}, {"saddle", {-0.5, 1}}, {"torus", {0.25, 1}}};
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
        double const angle = random.uniform(0, 6.283185307179586);
        double const reach = i == 0 ? 0 : radius * std::sqrt(random.uniform());
        double const x = reach * std::cos(angle), y = reach * std::sin(angle);
        double const z = patch.height(x, y) + noise * radius * random.normal();
        result.points.emplace_back(frame.toWorld(REmath::Point3D_d(x, y, z) * size).asArray());
    }
    return result;
}

} // namespace qz_test

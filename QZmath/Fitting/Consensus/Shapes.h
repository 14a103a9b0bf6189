// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Fitting/Samples/Lanes.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <vector>

/// The objects of which a consensus is looked for. Each is made through `sampleSize` points or by least
/// squares from more, measures distances, of one point or of four at a time, also roughly for the trials,
/// knows up to which distance it has a use
/// (`greatestDistance`), and tells how likely a point of the background is near.
///
/// The background is a box of the three extents a >= b >= c of the points along their principal axes, filled
/// evenly. Extents that the object itself may have given to the points, so that there is no background there,
/// count as a quarter of a at least.
namespace REmath::Detail
{

[[gnu::always_inline]] inline void takeRoot(Lanes & lanes)
{
#if defined(__x86_64__)
    // std::sqrt goes lane by lane, as it could set errno.
    using HalfLanes [[gnu::vector_size(2 * sizeof(double))]] = double;
    HalfLanes halves[2];
    std::memcpy(halves, &lanes, sizeof(lanes));
    halves[0] = __builtin_ia32_sqrtpd(halves[0]);
    halves[1] = __builtin_ia32_sqrtpd(halves[1]);
    std::memcpy(&lanes, halves, sizeof(lanes));
#else
    for (int lane = 0; lane < 4; ++lane)
        lanes[lane] = std::sqrt(lanes[lane]);
#endif
}
[[gnu::always_inline]] inline void takeRoot(double & number) { number = std::sqrt(number); }

/// Principal axes of points about their centroid, from the longest one, and the root mean square of the
/// points' distances from the centroid along each.
struct PrincipalFrame
{
    /// False when the points have none, as those that are not finite.
    bool fit(std::vector<Point3D_d> const & points);

    Point3D_d centroid;
    std::array<Point3D_d, 3> axes;
    std::array<double, 3> spread{};
};

/// The probability that a point of the background is within the distance t of the object: the product of
/// min(1, t f) for two factors f.
struct NearbyChance
{
    double within(double distance) const
    {
        return std::min(1.0, distance * factors[0]) * std::min(1.0, distance * factors[1]);
    }

    double factors[2];
};

using Extents = std::array<double, 3>;

struct ConsensusLine
{
    static constexpr int sampleSize = 2;
    /// As many of the principal spreads of points determine the line.
    static constexpr int dimension = 1;

    bool through(Point3D_d const * sample);
    bool fit(std::vector<Point3D_d> const & inliers);
    NearbyChance chance(Extents const & extents) const;

    template <class Number>
    [[gnu::always_inline]] void squaredDistance(Number const & x, Number const & y, Number const & z,
                                                Number & square) const
    {
        Number const dx = x - origin.x(), dy = y - origin.y(), dz = z - origin.z();
        Number const cx = dy * direction.z() - dz * direction.y();
        Number const cy = dz * direction.x() - dx * direction.z();
        Number const cz = dx * direction.y() - dy * direction.x();
        square = cx * cx + cy * cy + cz * cz;
    }
    template <class Number>
    [[gnu::always_inline]] void roughSquaredDistance(Number const & x, Number const & y, Number const & z,
                                                     Number & square) const
    {
        squaredDistance(x, y, z, square);
    }
    double greatestDistance() const { return std::numeric_limits<double>::infinity(); }

    Point3D_d origin, direction;
};

struct ConsensusPlane
{
    static constexpr int sampleSize = 3;
    static constexpr int dimension = 2;

    bool through(Point3D_d const * sample);
    bool fit(std::vector<Point3D_d> const & inliers);
    NearbyChance chance(Extents const & extents) const;

    template <class Number>
    [[gnu::always_inline]] void squaredDistance(Number const & x, Number const & y, Number const & z,
                                                Number & square) const
    {
        Number const height =
            (x - origin.x()) * normal.x() + (y - origin.y()) * normal.y() + (z - origin.z()) * normal.z();
        square = height * height;
    }
    template <class Number>
    [[gnu::always_inline]] void roughSquaredDistance(Number const & x, Number const & y, Number const & z,
                                                     Number & square) const
    {
        squaredDistance(x, y, z, square);
    }
    double greatestDistance() const { return std::numeric_limits<double>::infinity(); }

    Point3D_d origin, normal;
};

struct ConsensusCircle
{
    static constexpr int sampleSize = 3;
    static constexpr int dimension = 2;

    bool through(Point3D_d const * sample);
    /// A few steps of Gauss and Newton from the circle as it is, in the plane of the inliers.
    bool fit(std::vector<Point3D_d> const & inliers);
    NearbyChance chance(Extents const & extents) const;

    template <class Number>
    [[gnu::always_inline]] void squaredDistance(Number const & x, Number const & y, Number const & z,
                                                Number & square) const
    {
        Number const dx = x - center.x(), dy = y - center.y(), dz = z - center.z();
        Number const height = dx * normal.x() + dy * normal.y() + dz * normal.z();
        Number const px = dx - height * normal.x(), py = dy - height * normal.y(),
                     pz = dz - height * normal.z();
        Number beside = px * px + py * py + pz * pz;
        takeRoot(beside);
        beside -= radius;
        square = height * height + beside * beside;
    }
    /// Without a root: (r² - R²) / 2R in place of r - R.
    template <class Number>
    [[gnu::always_inline]] void roughSquaredDistance(Number const & x, Number const & y, Number const & z,
                                                     Number & square) const
    {
        Number const dx = x - center.x(), dy = y - center.y(), dz = z - center.z();
        Number const height = dx * normal.x() + dy * normal.y() + dz * normal.z();
        Number const flat = height * height;
        Number const beside = (dx * dx + dy * dy + dz * dz - flat - radius * radius) * (0.5 / radius);
        square = flat + beside * beside;
    }
    double greatestDistance() const { return radius; }

    Point3D_d center, normal;
    double radius = 0;
};

} // namespace REmath::Detail

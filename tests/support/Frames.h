// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <apps/sampling/Random.h>

#include <array>

namespace qz_test
{

/// Right-handed orthonormal frame at an origin.
struct Frame
{
    REmath::Point3D_d origin;
    std::array<REmath::Point3D_d, 3> axes;

    /// From coordinates in the frame to those of the world, and back.
    REmath::Point3D_d toWorld(REmath::Point3D_d const & local) const
    {
        return origin + directionToWorld(local);
    }
    REmath::Point3D_d toLocal(REmath::Point3D_d const & world) const
    {
        REmath::Point3D_d const offset = world - origin;
        auto const along = [&](REmath::Point3D_d const & axis) {
            return axis.x() * offset.x() + axis.y() * offset.y() + axis.z() * offset.z();
        };
        return {along(axes[0]), along(axes[1]), along(axes[2])};
    }
    /// The same for directions, which have no origin.
    REmath::Point3D_d directionToWorld(REmath::Point3D_d const & local) const
    {
        return axes[0] * local.x() + axes[1] * local.y() + axes[2] * local.z();
    }
};

/// Point uniform in a cube of half side `range` around zero.
inline REmath::Point3D_d randomPoint(qz_sampling::Random & random, double range = 1)
{
    double const x = random.uniform(-range, range), y = random.uniform(-range, range);
    return {x, y, random.uniform(-range, range)};
}

/// Frame with uniformly distributed axes and an origin uniform in a cube of half side `range` around zero.
inline Frame randomFrame(qz_sampling::Random & random, double range)
{
    // A uniformly distributed rotation is a uniformly distributed unit quaternion.
    double w = 0, x = 0, y = 0, z = 0, squaredLength = 0;
    while (squaredLength < 1e-6 || squaredLength > 1) {
        for (double * const part : {&w, &x, &y, &z})
            *part = random.uniform(-1, 1);
        squaredLength = w * w + x * x + y * y + z * z;
    }
    double const scale = 2 / squaredLength;
    Frame frame;
    frame.axes[0] = {1 - scale * (y * y + z * z), scale * (x * y + w * z), scale * (x * z - w * y)};
    frame.axes[1] = {scale * (x * y - w * z), 1 - scale * (x * x + z * z), scale * (y * z + w * x)};
    frame.axes[2] = {scale * (x * z + w * y), scale * (y * z - w * x), 1 - scale * (x * x + y * y)};
    frame.origin = randomPoint(random, range);
    return frame;
}

} // namespace qz_test

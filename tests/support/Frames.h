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
    REmath::Point3D_d toWorld(REmath::Point3D_d const & local) const;
    REmath::Point3D_d toLocal(REmath::Point3D_d const & world) const;
    /// The same for directions, which have no origin.
    REmath::Point3D_d directionToWorld(REmath::Point3D_d const & local) const;
};

/// Frame with uniformly distributed axes and an origin uniform in a cube of half side `range` around zero.
Frame randomFrame(qz_sampling::Random & random, double range);

/// Point uniform in a cube of half side `range` around zero.
REmath::Point3D_d randomPoint(qz_sampling::Random & random, double range = 1);

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#include <support/Frames.h>

using REmath::Point3D_d;

namespace qz_test
{

Point3D_d Frame::toWorld(Point3D_d const & local) const { return origin + directionToWorld(local); }

Point3D_d Frame::directionToWorld(Point3D_d const & local) const
{
    return axes[0] * local.x() + axes[1] * local.y() + axes[2] * local.z();
}

Point3D_d Frame::toLocal(Point3D_d const & world) const
{
    Point3D_d const offset = world - origin;
    auto const along = [&](Point3D_d const & axis) {
        return axis.x() * offset.x() + axis.y() * offset.y() + axis.z() * offset.z();
    };
    return {along(axes[0]), along(axes[1]), along(axes[2])};
}

Frame randomFrame(qz_sampling::Random & random, double range)
{
    // A uniformly distributed rotation is a uniformly distributed unit quaternion.
    double w = 0;
    double x = 0;
    double y = 0;
    double z = 0;
    double squaredLength = 0;
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

Point3D_d randomPoint(qz_sampling::Random & random, double range)
{
    Point3D_d point;
    for (double * const coord : {&point.x(), &point.y(), &point.z()})
        *coord = random.uniform(-range, range);
    return point;
}

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Viewer/Drawing/SceneMesh.h>

namespace QZmath::Viewing
{

/// Where a picture of a mesh is taken from: from the front, a little from the right and above, as near as the
/// mesh allows, which fills the picture but for a rim. Places are those of the scene mesh.
struct Camera
{
    int up = 1;              ///< the axis that points upwards
    Vec3 right, above, back; ///< of the viewer, in the mesh's own axes; unit vectors
    Vec3 eye;
    float focus = 1;                ///< pixels at distance 1
    float middleX = 0, middleY = 0; ///< pixels
    float targetDistance = 1;       ///< of the middle of the mesh

    Camera(SceneMesh const & mesh, int width, int height);

    /// Right, upwards and towards the viewer of the eye; the last one is below 0.
    Vec3 seen(Vec3 place) const
    {
        Vec3 const from = place - eye;
        return {dot(from, right), dot(from, above), dot(from, back)};
    }
    Vec3 turned(Vec3 direction) const
    {
        return {dot(direction, right), dot(direction, above), dot(direction, back)};
    }
};

} // namespace QZmath::Viewing

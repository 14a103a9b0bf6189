// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <support/Mesh.h>

#include <apps/sampling/SampleShapes.h>

#include <algorithm>
#include <cmath>

namespace qz_test
{

struct DistanceScore
{
    double rms = 0;
    double max = 0;
};

template <class TDeviation>
DistanceScore scoreOf(std::size_t count, TDeviation const & deviationOf)
{
    DistanceScore score;
    for (std::size_t n = 0; n < count; ++n) {
        double const deviation = std::abs(deviationOf(n));
        score.rms += deviation * deviation / static_cast<double>(count);
        score.max = std::max(score.max, deviation);
    }
    score.rms = std::sqrt(score.rms);
    return score;
}

/// How far the mesh's vertices are from the true surface.
inline DistanceScore vertexDistances(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    return scoreOf(mesh.vertices.size(),
                   [&](std::size_t v) { return shape.signedDistance(mesh.vertices[v]); });
}

/// How far the middles of the mesh's triangles are from the true surface.
inline DistanceScore centroidDistances(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    return scoreOf(mesh.triangles.size(), [&](std::size_t t) {
        REmath::Point3D_d sum;
        for (int const vertex : mesh.triangles[t])
            sum += mesh.vertices[static_cast<std::size_t>(vertex)];
        return shape.signedDistance(sum / 3);
    });
}

/// Angles in degrees between the mesh's vertex normals and the true normals.
inline DistanceScore normalAngles(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    return scoreOf(mesh.vertices.size(), [&](std::size_t v) {
        double const cosine = shape.normalNear(mesh.vertices[v]).angleCos(mesh.normals[v]);
        return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180 / std::acos(-1.0);
    });
}

} // namespace qz_test

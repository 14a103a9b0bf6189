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
DistanceScore scoreOfVertices(Mesh const & mesh, TDeviation const & deviationOf)
{
    DistanceScore score;
    for (std::size_t v = 0; v < mesh.vertices.size(); ++v) {
        double const deviation = std::abs(deviationOf(v));
        score.rms += deviation * deviation / static_cast<double>(mesh.vertices.size());
        score.max = std::max(score.max, deviation);
    }
    score.rms = std::sqrt(score.rms);
    return score;
}

/// How far the mesh's vertices are from the true surface.
inline DistanceScore vertexDistances(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    return scoreOfVertices(mesh, [&](std::size_t v) { return shape.signedDistance(mesh.vertices[v]); });
}

/// Angles in degrees between the mesh's vertex normals and the true normals.
inline DistanceScore normalAngles(Mesh const & mesh, qz_sampling::Shape const & shape)
{
    return scoreOfVertices(mesh, [&](std::size_t v) {
        double const cosine = shape.normalNear(mesh.vertices[v]).angleCos(mesh.normals[v]);
        return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180 / std::acos(-1.0);
    });
}

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <support/Mesh.h>

#include <apps/sampling/SampleShapes.h>

namespace qz_test
{

struct DistanceScore
{
    double rms = 0;
    double max = 0;
};

/// How far the mesh is from the true surface, at its vertices and at the centroids of its triangles.
DistanceScore vertexDistances(Mesh const & mesh, qz_sampling::Shape const & shape);
DistanceScore centroidDistances(Mesh const & mesh, qz_sampling::Shape const & shape);

/// Angles in degrees between the mesh's vertex normals and the true normals.
DistanceScore normalAngles(Mesh const & mesh, qz_sampling::Shape const & shape);

/// Median distance of the points of a cloud to the mesh.
double medianSampleDistance(std::vector<float> const & positions, Mesh const & mesh);

} // namespace qz_test

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PointCloud.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <cstddef>
#include <vector>

namespace qz_recon
{

/// A group of samples that no part of the mesh comes near.
struct UnreachedPart
{
    std::size_t samples = 0;
    float firstSample[3] = {0, 0, 0}; ///< where one of them is
};

/// Finds the parts of a cloud that are farther than `distance` from every vertex of the mesh, the largest
/// first. Samples within about the same distance of each other belong to one part; groups of fewer than 10
/// samples are taken for stray points and left out. O(n log n).
std::vector<UnreachedPart> findUnreachedParts(QZmath::PointCloud const & cloud,
                                              QZmath::TriangleMesh const & mesh, double distance);

} // namespace qz_recon

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/io/PointCloud.h>

#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <cstdint>

namespace qz_recon
{

/// Number of nodes that the octree of a reconstruction will have. O(n log n) time, some 8 bytes of memory for
/// each sample and 64 for each occupied leaf cell. The depth must be one that the octree accepts; beyond 20
/// the result is that of 20.
std::uint64_t countOctreeNodes(qz_io::PointCloud const & cloud,
                               VolTr::CVolTriangulationParams const & params);

/// Bytes that a reconstruction of so many samples and nodes needs at its peak.
double estimateMemory(std::uint64_t samples, std::uint64_t nodes,
                      VolTr::CVolTriangulationParams const & params);

/// Bytes that this process can still take: the machine's available memory, and what its control group and its
/// address space limit leave.
double availableMemory();

/// Greatest memory that this process has occupied so far, in bytes; 0 if unknown.
double peakMemory();

} // namespace qz_recon

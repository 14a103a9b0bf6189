// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PointCloud.h>
#include <QZmath/Foundation/Point3D.h>

#include <cstddef>
#include <optional>

class CProgressCounter;

namespace qz_recon
{

/// Memory per point while normals are estimated, the cloud included.
constexpr double st_normalEstimationBytes = 260;

/// Gives a cloud its normals by the `neighbours` nearest points of each, towards the viewpoint, if there is
/// one, else spread along a minimum spanning tree and outwards. A point on whose neighbourhood no plane fits
/// gets a zero normal, which has no weight in the reconstruction; the return value is their number. Throws
/// `InputError` when no point gets a normal.
std::size_t estimateNormals(QZmath::PointCloud & cloud, int neighbours,
                            std::optional<REmath::Point3D> const & viewpoint, CProgressCounter * progress);

} // namespace qz_recon

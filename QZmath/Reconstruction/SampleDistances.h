// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/PointCloudView.h>
#include <QZmath/Foundation/TriangleMesh.h>

#include <vector>

class CProgressCounter;

namespace QZmath
{

/// How far each vertex of a mesh is from the nearest point of a cloud, in units of the cloud: where the
/// surface is supported, about half the spacing of the points or less. Infinite where there is no point;
/// points that are not finite do not count.
///
/// Distances are those of coordinates rounded to `float` relative to the mesh's origin. O((n + m) log n), 28
/// bytes a point; on the threads of `CVescaThreadingTasksHelper`, with the same bits for any number of them.
///
/// \param progress may be null
QZMATH_API std::vector<float> sampleDistances(TriangleMesh const & mesh, PointCloudView const & samples,
                                              CProgressCounter * progress = nullptr);

} // namespace QZmath

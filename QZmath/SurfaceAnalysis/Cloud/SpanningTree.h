// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>

class CProgressCounter;

namespace REmath::Detail
{

/// `OrientNormalsBySpanningTree` over a tree that exists already. `normals` are in the order of the cloud.
/// The return value is the number of points in parts whose outer side is a guess.
int orientBySpanningTree(CPointTree const & tree, Point3D * normals, CProgressCounter * progress);

} // namespace REmath::Detail

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>

class CProgressCounter;

namespace REmath::Detail
{

/// `OrientNormalsBySpanningTree` over a tree that exists already. `normals` are in the order of the cloud.
void orientBySpanningTree(CPointTree const & tree, Point3D * normals, CProgressCounter * progress);

} // namespace REmath::Detail

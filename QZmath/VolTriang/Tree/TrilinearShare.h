// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

namespace VolTr
{

/// Factor of one axis in the trilinear weight of a point towards a node, in a cell of that width: 1
/// at the node, falling evenly to 0 at the other end of the cell and below 0 beyond. An axis
/// without extent does not count.
inline double trilinearShare(double point, double node, double width)
{
    return std::fabs(width) < 1e-10 ? 1.0 : 1.0 - std::fabs(point - node) / width;
}

} // namespace VolTr

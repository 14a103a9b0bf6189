// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <vector>

namespace VolTr
{

/// Scales a vector by the magnitude of its last element and returns that magnitude, 0 for an empty vector. A
/// magnitude of 0, or one that is not finite, leaves the vector as it is. The last element rather than the
/// greatest: the scale is free, and logs and meshes of earlier versions stay comparable to the bit.
template <class T>
T normalizeByLast(std::vector<T> & values)
{
    if (values.empty())
        return T(0);
    T const factor = std::fabs(values.back());
    if (factor > T(0) && std::isfinite(factor)) {
        T const scale = T(1) / factor;
        for (T & value : values)
            value *= scale;
    }
    return factor;
}

} // namespace VolTr

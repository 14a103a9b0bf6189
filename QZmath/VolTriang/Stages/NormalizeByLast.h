// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <vector>

namespace VolTr
{

/// 0 for an empty vector.
template <class T>
T magnitudeOfLast(std::vector<T> const & values)
{
    return values.empty() ? T(0) : std::fabs(values.back());
}

/// Divides by a factor, unless it is 0 or not finite.
template <class T>
void normalize(T * begin, T * end, T factor)
{
    if (!(factor > T(0)) || !std::isfinite(factor))
        return;
    T const scale = T(1) / factor;
    for (; begin != end; ++begin)
        *begin *= scale;
}

/// Scales a vector by the magnitude of its last element and returns that magnitude. The last element rather
/// than the greatest: the scale is free, and logs and meshes of earlier versions stay comparable to the bit.
template <class T>
T normalizeByLast(std::vector<T> & values)
{
    T const factor = magnitudeOfLast(values);
    normalize(values.data(), values.data() + values.size(), factor);
    return factor;
}

} // namespace VolTr

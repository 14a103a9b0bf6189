// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

/// Greatest absolute value; NaN is passed over.
inline double largestMagnitude(double const * vector, std::size_t size)
{
    double largest = 0;
    for (std::size_t i = 0; i < size; ++i)
        largest = std::max(largest, std::abs(vector[i]));
    return largest;
}

/// Euclidean length without overflow or underflow on the way; NaN for a vector with NaN.
inline double vectorLength(double const * vector, std::size_t size)
{
    double const largest = largestMagnitude(vector, size);
    if (std::isinf(largest))
        return largest;
    double const unit = largest > 0 ? largest : 1;
    double sum = 0;
    for (std::size_t i = 0; i < size; ++i)
        sum += (vector[i] / unit) * (vector[i] / unit);
    return unit * std::sqrt(sum);
}

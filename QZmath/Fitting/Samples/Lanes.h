// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>

namespace REmath::Detail
{

// Four points at a time, one per lane. The lanes are part of the result: with and without wide registers the
// same numbers are added in the same order.
using Lanes [[gnu::vector_size(4 * sizeof(double))]] = double;
using FloatLanes [[gnu::vector_size(4 * sizeof(float))]] = float;

[[gnu::always_inline]] inline void loadFour(double const * coords, Lanes & x, Lanes & y, Lanes & z)
{
    for (int lane = 0; lane < 4; ++lane) {
        x[lane] = coords[3 * lane];
        y[lane] = coords[3 * lane + 1];
        z[lane] = coords[3 * lane + 2];
    }
}

[[gnu::always_inline]] inline void loadFour(float const * coords, Lanes & x, Lanes & y, Lanes & z)
{
    FloatLanes a, b, c; // x0 y0 z0 x1, y1 z1 x2 y2, z2 x3 y3 z3
    std::memcpy(&a, coords, sizeof(a));
    std::memcpy(&b, coords + 4, sizeof(b));
    std::memcpy(&c, coords + 8, sizeof(c));
    FloatLanes const xy23 = __builtin_shufflevector(b, c, 2, 3, 5, 6);
    FloatLanes const yz01 = __builtin_shufflevector(a, b, 1, 2, 4, 5);
    FloatLanes const split[3] = {__builtin_shufflevector(a, xy23, 0, 3, 4, 6),
                                 __builtin_shufflevector(yz01, xy23, 0, 2, 5, 7),
                                 __builtin_shufflevector(yz01, c, 1, 3, 4, 7)};
    // Four lanes are widened at once when they come from memory, and by halves from a register.
    float narrow[12];
    std::memcpy(narrow, split, sizeof(narrow));
    for (int lane = 0; lane < 4; ++lane) {
        x[lane] = static_cast<double>(narrow[lane]);
        y[lane] = static_cast<double>(narrow[4 + lane]);
        z[lane] = static_cast<double>(narrow[8 + lane]);
    }
}

[[gnu::always_inline]] inline double sumOf(Lanes const & lanes)
{
    return (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
}

/// Whether the processor has four lanes of `double` in one register. Functions for it are compiled without
/// fused multiplication, which would change the bits.
inline bool hasWideLanes()
{
#if defined(__x86_64__)
    static bool const isWide = __builtin_cpu_supports("avx2") != 0;
    return isWide;
#else
    return false;
#endif
}

} // namespace REmath::Detail

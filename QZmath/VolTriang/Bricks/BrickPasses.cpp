// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <cstring>

namespace VolTr
{

namespace
{

// Eight floats for any processor.
struct alignas(32) V
{
    float of[8];
};

#if defined(__FP_FAST_FMAF)

inline float fusedProduct(float a, float b, float c) { return std::fma(a, b, c); }

#else

// The product of two floats is exact in double precision. Their sum with c is rounded to odd there, which
// makes the second rounding, to a float, that of the exact sum (Boldo and Melquiond, Emulation of FMA and
// correctly rounded sums: proved algorithms using rounding to odd, 2008).
inline float fusedProduct(float a, float b, float c)
{
    double const product = static_cast<double>(a) * b;
    double const sum = product + c;
    double const productPart = sum - c;
    double const error = (product - productPart) + (c - (sum - productPart));
    std::uint64_t bits;
    std::memcpy(&bits, &sum, sizeof(bits));
    std::uint64_t const isInexact = error < 0.0 || error > 0.0 ? 1 : 0;
    // One step away from zero or back to it makes the last bit odd, as the truncated part says.
    std::uint64_t const isBeyond = (error < 0.0) == (sum > 0.0) ? 1 : 0;
    bits = (bits - (isInexact & isBeyond & ~bits & 1)) | isInexact;
    double odd;
    std::memcpy(&odd, &bits, sizeof(odd));
    return static_cast<float>(odd);
}

#endif

inline V load(float const * from)
{
    V result;
    std::memcpy(result.of, from, sizeof(result.of));
    return result;
}
inline V loadUnaligned(float const * from) { return load(from); }
inline void store(float * to, V const & value) { std::memcpy(to, value.of, sizeof(value.of)); }

// Writes sixteen floats: the value from `offset` on, at most 8, between zeros.
inline void storeShifted(float * to, V const & value, int offset)
{
    std::memset(to, 0, 2 * sizeof(value.of));
    std::memcpy(to + offset, value.of, sizeof(value.of));
}

inline V permute(V const & value, int const * order)
{
    V result;
    for (int n = 0; n < 8; ++n)
        result.of[n] = value.of[order[n]];
    return result;
}

inline V broadcast(float value)
{
    V result;
    for (float & element : result.of)
        element = value;
    return result;
}

inline V zero() { return broadcast(0.0f); }

inline V mul(V const & a, V const & b)
{
    V result;
    for (int n = 0; n < 8; ++n)
        result.of[n] = a.of[n] * b.of[n];
    return result;
}

inline V add(V const & a, V const & b)
{
    V result;
    for (int n = 0; n < 8; ++n)
        result.of[n] = a.of[n] + b.of[n];
    return result;
}

inline V fma(V const & a, V const & b, V const & c)
{
    V result;
    for (int n = 0; n < 8; ++n)
        result.of[n] = fusedProduct(a.of[n], b.of[n], c.of[n]);
    return result;
}

inline V sub(V const & a, V const & b)
{
    V result;
    for (int n = 0; n < 8; ++n)
        result.of[n] = a.of[n] - b.of[n];
    return result;
}

inline V keepNodes(V const & value, std::uint8_t row)
{
    V result;
    for (int z = 0; z < 8; ++z)
        result.of[z] = (row >> z & 1) != 0 ? value.of[z] : 0.0f;
    return result;
}

inline V expandRow(float const * compact, std::uint8_t row)
{
    V result;
    for (int z = 0; z < 8; ++z)
        result.of[z] = (row >> z & 1) != 0 ? *compact++ : 0.0f;
    return result;
}

inline void compressRow(V const & value, std::uint8_t row, float * compact)
{
    for (int z = 0; z < 8; ++z) {
        if ((row >> z & 1) != 0)
            *compact++ = value.of[z];
    }
}

} // namespace

} // namespace VolTr

#include <QZmath/VolTriang/Bricks/BrickPassLoops.h>

namespace VolTr
{

BrickPasses const & plainBrickPasses() { return passes; }

BrickPasses const & bestBrickPasses()
{
    BrickPasses const * const vectorised = vectorBrickPasses();
    return vectorised != nullptr ? *vectorised : plainBrickPasses();
}

} // namespace VolTr

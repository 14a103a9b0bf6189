// SPDX-License-Identifier: Apache-2.0
//
// Compiled for AVX2 and FMA where the compiler has them. Nothing of it may run on another processor, so it
// uses no inline function of a header that another source file could share.
#include <QZmath/VolTriang/Bricks/BrickPasses.h>

#if defined(__AVX2__) && defined(__FMA__)

#include <immintrin.h>

namespace VolTr
{

namespace
{

using V = __m256;

inline V load(float const * from) { return _mm256_load_ps(from); }
inline V loadUnaligned(float const * from) { return _mm256_loadu_ps(from); }
inline void store(float * to, V value) { _mm256_store_ps(to, value); }
inline V broadcast(float value) { return _mm256_set1_ps(value); }
inline V zero() { return _mm256_setzero_ps(); }
inline V mul(V a, V b) { return _mm256_mul_ps(a, b); }
inline V add(V a, V b) { return _mm256_add_ps(a, b); }
inline V sub(V a, V b) { return _mm256_sub_ps(a, b); }
inline V fma(V a, V b, V c) { return _mm256_fmadd_ps(a, b, c); }

// For each row: which compact value every place takes, and which place every compact value.
struct RowOrders
{
    constexpr RowOrders()
    {
        for (int row = 0; row < 256; ++row) {
            int count = 0;
            for (int z = 0; z < 8; ++z) {
                bool const isUsed = (row >> z & 1) != 0;
                ofPlace[row][z] = isUsed ? count : 0;
                placeMask[row][z] = isUsed ? -1 : 0;
                if (isUsed)
                    placeOf[row][count++] = z;
            }
            for (int n = 0; n < 8; ++n)
                countMask[row][n] = n < count ? -1 : 0;
        }
    }

    alignas(32) int ofPlace[256][8] = {};
    alignas(32) int placeMask[256][8] = {};
    alignas(32) int placeOf[256][8] = {};
    alignas(32) int countMask[256][8] = {};
};
constexpr RowOrders rowOrders;

inline __m256i loadOrder(int const * order)
{
    return _mm256_load_si256(reinterpret_cast<__m256i const *>(order));
}

inline V permute(V value, int const * order) { return _mm256_permutevar8x32_ps(value, loadOrder(order)); }

// How a row turns by some places, and which of the places then belong to the next row.
struct RowShifts
{
    constexpr RowShifts()
    {
        for (int offset = 0; offset < 8; ++offset) {
            for (int n = 0; n < 8; ++n) {
                order[offset][n] = (n - offset) & 7;
                isNext[offset][n] = n < offset ? -1 : 0;
            }
        }
    }

    alignas(32) int order[8][8] = {};
    alignas(32) int isNext[8][8] = {};
};
constexpr RowShifts rowShifts;

// Writes sixteen floats: the value from `offset` on, below 8, between zeros. In two whole stores, which the
// loads after them need not wait for.
inline void storeShifted(float * to, V value, int offset)
{
    V const turned = permute(value, rowShifts.order[offset]);
    V const isNext = _mm256_castsi256_ps(loadOrder(rowShifts.isNext[offset]));
    store(to, _mm256_andnot_ps(isNext, turned));
    store(to + 8, _mm256_and_ps(isNext, turned));
}

inline V keepNodes(V value, std::uint8_t row)
{
    return _mm256_and_ps(value, _mm256_castsi256_ps(loadOrder(rowOrders.placeMask[row])));
}

inline V expandRow(float const * compact, std::uint8_t row)
{
    return keepNodes(_mm256_permutevar8x32_ps(_mm256_loadu_ps(compact), loadOrder(rowOrders.ofPlace[row])),
                     row);
}

inline void compressRow(V value, std::uint8_t row, float * compact)
{
    _mm256_maskstore_ps(compact, loadOrder(rowOrders.countMask[row]),
                        _mm256_permutevar8x32_ps(value, loadOrder(rowOrders.placeOf[row])));
}

} // namespace

} // namespace VolTr

#include <QZmath/VolTriang/Bricks/BrickPassLoops.h>

namespace VolTr
{

BrickPasses const * vectorBrickPasses()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? &passes : nullptr;
}

} // namespace VolTr

#else

namespace VolTr
{

BrickPasses const * vectorBrickPasses() { return nullptr; }

} // namespace VolTr

#endif

// SPDX-License-Identifier: Apache-2.0
//
// Compiled for AVX2 where the compiler has it. Nothing of it may run on another processor, so it uses no
// inline function of a header that another source file could share.
#include <QZmath/VolTriang/Bricks/BrickFunction.h>

#if defined(__AVX2__)

#include <immintrin.h>

namespace VolTr
{

namespace
{

using V = __m256;
using VI = __m256i;

inline VI joined(void const * low, void const * high)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(static_cast<__m128i const *>(low))),
                                   _mm_loadu_si128(static_cast<__m128i const *>(high)), 1);
}
inline V joinedFloats(void const * low, void const * high) { return _mm256_castsi256_ps(joined(low, high)); }
inline V positivePart(V value) { return _mm256_max_ps(value, _mm256_setzero_ps()); }
inline V square(V factor, V value) { return _mm256_mul_ps(_mm256_mul_ps(factor, value), value); }

} // namespace

bool BrickFunction::hasVectors() { return __builtin_cpu_supports("avx2") != 0; }

// Each half of a vector is the vector of one level in `sumPlain`, with the same operations in the same order.
double BrickFunction::sumVectors(Level const * levels, int levelsNumber, Knots const & knots, Int4 step,
                                 Float4 rest, Hint::Place * places)
{
    V const one = _mm256_set1_ps(1.0f);
    V const signs = _mm256_set1_ps(-0.0f);
    V const outerKnot = _mm256_set1_ps(knots.outer);
    V const innerKnot = _mm256_set1_ps(knots.inner);
    V const outerFactor = _mm256_set1_ps(knots.outerFactor);
    V const innerFactor = _mm256_set1_ps(knots.innerFactor);
    VI const steps = joined(&step, &step);
    V const rests = joinedFloats(&rest, &rest);
    __m256d sum = _mm256_setzero_pd();
    for (int level = 0; level < levelsNumber; level += 2) {
        // Without a second level the first one stands for it, and its sum is not used.
        bool const isPair = level + 1 < levelsNumber;
        Level const & low = levels[level];
        Level const & high = isPair ? levels[level + 1] : low;
        Hint::Place & lowNear = places[level];
        Hint::Place & highNear = isPair ? places[level + 1] : lowNear;

        VI const place = _mm256_add_epi32(steps, joined(&low.half, &high.half));
        VI const inCell = _mm256_and_si256(place, joined(&low.cellMask, &high.cellMask));
        VI const start =
            _mm256_sub_epi32(_mm256_srav_epi32(place, joined(&low.shift, &high.shift)), _mm256_set1_epi32(1));
        V const offset = _mm256_add_ps(_mm256_mul_ps(_mm256_add_ps(_mm256_cvtepi32_ps(inCell), rests),
                                                     joinedFloats(&low.scale, &high.scale)),
                                       _mm256_set1_ps(0.5f));
        int const isEqual =
            _mm256_movemask_epi8(_mm256_cmpeq_epi32(start, joined(&lowNear.start, &highNear.start)));
        if ((isEqual & 0xffff) != 0xffff)
            low.enter(reinterpret_cast<Int4>(_mm256_castsi256_si128(start)), lowNear);
        if ((isEqual >> 16 & 0xffff) != 0xffff && isPair)
            high.enter(reinterpret_cast<Int4>(_mm256_extracti128_si256(start, 1)), highNear);

        V const before = positivePart(_mm256_sub_ps(outerKnot, offset));
        V const after = positivePart(_mm256_sub_ps(outerKnot, _mm256_sub_ps(_mm256_set1_ps(2.0f), offset)));
        V const distance = _mm256_andnot_ps(signs, _mm256_sub_ps(offset, one));
        V const outside = positivePart(_mm256_sub_ps(outerKnot, distance));
        V const inside = positivePart(_mm256_sub_ps(innerKnot, distance));
        V const w0 = square(outerFactor, before);
        V const w1 = _mm256_add_ps(square(outerFactor, outside), square(innerFactor, inside));
        V const w2 = square(outerFactor, after);
        V const y0 = _mm256_permute_ps(w0, 0x55);
        V const y1 = _mm256_permute_ps(w1, 0x55);
        V const y2 = _mm256_permute_ps(w2, 0x55);
        V const x[3] = {_mm256_permute_ps(w0, 0), _mm256_permute_ps(w1, 0), _mm256_permute_ps(w2, 0)};
        V planes[3];
        for (int n = 0; n < 3; ++n) {
            Float4 const * const lowRows = lowNear.rows[n];
            Float4 const * const highRows = highNear.rows[n];
            V const r0 = joinedFloats(lowRows, highRows);
            V const r1 = joinedFloats(lowRows + 1, highRows + 1);
            V const r2 = joinedFloats(lowRows + 2, highRows + 2);
            planes[n] =
                _mm256_mul_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(y0, r0), _mm256_mul_ps(y1, r1)),
                                            _mm256_mul_ps(y2, r2)),
                              x[n]);
        }
        V const alongRow =
            _mm256_blend_ps(_mm256_shuffle_ps(_mm256_unpackhi_ps(w0, w1), w2, _MM_SHUFFLE(3, 2, 1, 0)),
                            _mm256_setzero_ps(), 0x88);
        V const terms =
            _mm256_mul_ps(_mm256_add_ps(_mm256_add_ps(planes[0], planes[1]), planes[2]), alongRow);
        sum = _mm256_add_pd(sum, _mm256_cvtps_pd(_mm256_castps256_ps128(terms)));
        if (isPair)
            sum = _mm256_add_pd(sum, _mm256_cvtps_pd(_mm256_extractf128_ps(terms, 1)));
    }
    __m128d const both = _mm_add_pd(_mm256_castpd256_pd128(sum), _mm256_extractf128_pd(sum, 1));
    return _mm_cvtsd_f64(both) + _mm_cvtsd_f64(_mm_unpackhi_pd(both, both));
}

} // namespace VolTr

#else

namespace VolTr
{

bool BrickFunction::hasVectors() { return false; }

double BrickFunction::sumVectors(Level const *, int, Knots const &, Int4, Float4, Hint::Place *)
{
    return 0.0;
}

} // namespace VolTr

#endif

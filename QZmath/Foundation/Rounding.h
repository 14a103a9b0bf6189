// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Rounding of numbers that are shown to people: on labels, axes and in reports. Powers of ten come from
/// repeated multiplication with 10 or 0.1, so results can differ in the last bits from the nearest `double`
/// to the decimal number meant. All functions throw nothing and can be called from any thread.

/// `x` + 0.5, truncated: the nearest integer for positive `x`, but -1 for -1.5 and 0 for -0.9. Limited to the
/// range of `int`; 0 for NaN.
QZMATH_API int rndtoni(double x);

/// Multiplies `value` by 10 `power` times, or by 0.1 -`power` times.
QZMATH_API void scaleDouble(double & value, int power);

/// Mantissa and decimal exponent of a positive number: `value` is about the result times 10^`exponent`, with
/// the result above 1 and up to 10. An exact power of ten counts to the decade below: 100 gives 10 and an
/// exponent of 1. For 0, negative numbers, infinity and NaN the exponent is 0 and the result `value`.
QZMATH_API double getScale(double value, int & exponent);

/// Chooses a round upper end for an axis from 0 that has to reach `value`, which stays unchanged.
///
/// `top` is the first of 1.2, 1.4, 1.5, 2.5, 3, 4, 5, 6, 7, 8, 10 that is not less than the mantissa of
/// `value`, times 10^`exponent`; `step` is the distance of its labels and `subdivisions` the number of parts
/// that each step is divided into. `exponent` is that of `getScale`. Where that knows no mantissa, `value`
/// takes its place.
QZMATH_API void roundBoundary(double & value, double & top, double & step, int & subdivisions,
                              int & exponent);

/// Two decimals: `100 x + 0.5`, truncated, times 0.01. Negative numbers are not mirrored: -1.234 gives -1.22.
QZMATH_API double fRound2(double x);

/// Five significant digits, or four decimals of the mantissa in (1, 10]: 1234.5678 gives 1234.6. Negative
/// numbers are mirrored. 0 below 1e-30 in magnitude; infinity and NaN stay.
QZMATH_API double fRound4(double x);

/// `fRound4` with `digits` decimals of the mantissa in place of four: 0 to 15 is sensible, negative ones
/// count as 0, and above 307 the result is infinite.
QZMATH_API double fRoundN(double x, int digits);

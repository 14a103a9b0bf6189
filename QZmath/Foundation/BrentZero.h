// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Finds a zero of `function` between `a` and `b`, at which it must have opposite signs (or be 0), by Brent's
/// method: bisection, hastened by secant and inverse quadratic steps (R. P. Brent, Algorithms for
/// Minimization without Derivatives, 1973, chapter 4).
///
/// `function(x, context)` is called once at each end and once per iteration. The search ends when
/// `|f(root)| <= valueTolerance`, or when the root lies within an interval of half length `tol` about it,
/// with `tol` the larger of 10^-`digits` and about 2.2e-16 |root|. `digits` of 0 means 9.
///
/// `iterations` is the limit on entry and the number used on exit. `status` on exit:
/// - 0: `root` is found, after 2 + `iterations` evaluations. A product of the values at the ends that is 0,
/// be
///   it by underflow, ends the search before it begins, with 0 `iterations`, at `a` when the value there is 0
///   and else at `b`.
/// - -1: no opposite signs at the ends, or NaN there; `iterations` is 1 and `root` is `b`.
/// - 1: the limit was not enough; `iterations` is the limit + 1 (1 for a negative limit) and `root` the best
///   point so far.
///
/// An interpolated step is taken when it stays within three quarters of the interval **or** is shorter than
/// half the step before the last, where Brent asks for both. So the steps are bolder and can leave the
/// interval for a while: `function` must be defined a little around it, and the number of evaluations is
/// bounded by the limit alone.
///
/// Passes on what `function` throws. Allocates nothing.
QZMATH_API void BrentZeroFun(double (*function)(double, void *), double a, double b, double valueTolerance,
                             int digits, int & iterations, double & root, int & status, void * context);

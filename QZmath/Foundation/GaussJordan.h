// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Inverts a small matrix and solves for several right sides in place, by Gauss-Jordan elimination with full
/// pivoting.
///
/// `a` is an array of `n` row pointers of `n` elements each; it becomes the inverse. `b` has `n` rows of `m`
/// elements, of which every column is a right side and becomes its solution; with `m` of 0 it is not touched
/// and can be null. Elements are moved, the row pointers stay. Of several equally large pivots the last one
/// in reading order is taken.
///
/// Gives 1 for success, -1 for a singular matrix, that is when no pivot but 0 is left, and -1 for `n` or `m`
/// above 50, with nothing touched. Gives 0 when no pivot can be chosen since all that is left is NaN. `a` and
/// `b` are spoiled after a failure. With a finite pivot to choose, NaN goes unnoticed and spreads.
///
/// O(n³ + n² m) operations. Throws nothing, allocates nothing.
QZMATH_API int gaussj(double ** a, int n, double ** b, int m);

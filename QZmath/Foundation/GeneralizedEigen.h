// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Real solutions of the generalised eigenvalue problem `a x = λ b x` for general square matrices, by the QZ
/// method (LAPACK's dggevx with balancing).
///
/// `a` and `b` are arrays of `n` row pointers and stay as they are. The `count` eigenvalues that were found
/// come to `values` and their vectors to the rows `vectors[0]` to `vectors[count - 1]`, scaled so that the
/// largest element has magnitude 1. Room for `n` values and for `n` vectors of `n` elements must be there.
/// The order is that of LAPACK; a multiple eigenvalue comes as often as it has been found.
///
/// With λ = α / β, an eigenvalue counts when its imaginary part is exactly 0, |β| >= 1e-10 and
/// |α| < 1e20 |β|. So the infinite eigenvalues of a singular `b` are left out, and `b = 0` is a success with
/// a `count` of 0. When the matrices have a common null vector, the pencil is singular and the values that
/// belong to it are arbitrary.
///
/// False, with a `count` of 0, when `n` is below 1 or above 26000, when an element is infinite or NaN, and
/// when the iteration does not converge. O(n³) operations; the result does not depend on the number of
/// threads. Up to n = 16 nothing is allocated; beyond, `std::bad_alloc` is thrown when there is no memory for
/// about 6 n² numbers.
QZMATH_API bool gen_right_eigen(int n, double const * const * a, double const * const * b, int & count,
                                double ** vectors, double * values);

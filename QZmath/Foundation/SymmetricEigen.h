// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Eigenvalues and eigenvectors of a real symmetric matrix in two steps. For a matrix `a` of `n` row
/// pointers:
///
///     tred2_d(a, n, d, e);             // a: transformation, d and e: tridiagonal matrix
///     if (tqli_d(d, e, n, a) == 0) ... // failed
///
/// leaves the eigenvalues in `d`, unsorted, and in column i of `a`, that is in `a[0][i]`, `a[1][i]` ..., the
/// unit eigenvector of `d[i]`. The columns are orthogonal within rounding also for multiple eigenvalues;
/// their signs are arbitrary, and their determinant can be -1.
///
/// Eigenvalues are accurate relative to the largest one. Those of a matrix that is graded, with its large
/// elements at the lower right, come out with a better relative accuracy than those of its mirror image.
///
/// All four functions allocate nothing, throw nothing and can run in any thread. The `float` forms work in
/// `float`, with square roots in `double`.

/// Householder reduction to tridiagonal form, `a = Q T Q^T`, from the last row upwards (Wilkinson and
/// Reinsch, Handbook for Automatic Computation II/2). Only the lower triangle of `a` is read; `a` becomes Q.
/// The `n` elements of `d` get the diagonal of T, `e[1]` to `e[n - 1]` its subdiagonal, `e[0]` becomes 0.
/// About 8/3 n³ operations.
QZMATH_API void tred2(float ** a, int n, float * d, float * e);
QZMATH_API void tred2_d(double ** a, int n, double * d, double * e);

/// QL method with implicit shifts for the tridiagonal matrix with diagonal `d` and subdiagonal `e[1]` to
/// `e[n - 1]`; `e[0]` is not read. The eigenvalues come to `d`, `e` is used up. Every rotation is applied to
/// the columns of `z` too, which begins as Q for the eigenvectors of `Q T Q^T` and as the unit matrix for
/// those of T.
///
/// Gives 1, or 0 when an eigenvalue takes more than 100 sweeps or `d` or `e` holds a NaN; all arrays are
/// undefined then. About 3 n³ operations with the vectors.
QZMATH_API int tqli(float * d, float * e, int n, float ** z);
QZMATH_API int tqli_d(double * d, double * e, int n, double ** z);

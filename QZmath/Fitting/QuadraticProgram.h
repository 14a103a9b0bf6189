// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Solves the dense convex quadratic program
///
///     minimise ½ x'Hx + c'x
///     subject to  A_i x = b_i for i < me,  A_i x >= b_i for me <= i < m,  xl <= x <= xu
///
/// by a dual active-set method (D. Goldfarb, A. Idnani, Mathematical Programming 27, 1983). H need not be
/// definite: a semidefinite or zero one is lifted a little and the lift is undone by proximal iterations, so
/// that linear programs can be solved too. The result is exact but for rounding, multipliers included, also
/// with dependent, repeated and redundant constraints. At the solution
///
///     Hx + c = A' lambda + zl - zu,
///
/// with the multipliers of inequalities and bounds at least 0, and 0 where the constraint is not active.
///
/// Every argument is a pointer, in the order of a numerical routine; inputs stay unmodified. Matrices are
/// column-major. The number of an argument, for `badIndex`, is its place in the list, from 1.
///
/// \param n variables, at least 1 and at most 20000
/// \param m rows of `a`
/// \param me how many of them, from the first on, are equalities
/// \param ldh leading dimension of `h`, at least n
/// \param lda leading dimension of `a`, at least max(1, m)
/// \param maxIter limit to the changes of the active set; 0 or less for 40 (n + m)
/// \param warm 1 to start from the active set in `activeSet`, anything else to start without one. A set
///     that is nearly right saves iterations, any other costs some; it has no influence on what a solution
///     is.
/// \param h the whole of H, n by n; where the triangles differ, their mean counts
/// \param c n numbers
/// \param a m by n; can be null for m = 0, like `b` and `lambda`
/// \param b m right sides
/// \param xl,xu n bounds each; a magnitude of 1.0e9 or more, infinity included, means none
/// \param x start and solution, n numbers. The start matters only where H is not definite and several
///     solutions exist, of which it selects one nearby.
/// \param lambda multipliers of the m rows, those of equalities of any sign
/// \param zl,zu multipliers of the n lower and upper bounds
/// \param f the objective at `x`
/// \param tol relative tolerance, measured by the terms of each constraint and gradient component, at most
///     0.01; 0 or less for about 1e-13. Also the negative curvature that H may have, relative to its
///     diagonal.
/// \param violation greatest absolute violation of a constraint or bound at `x`, 0 if none is violated
/// \param activeSet m + n flags: 1 for an active row; -1 and 1 for a variable at its active lower and upper
///     bound; else 0. Of dependent constraints that are met with equality, only some are called active.
/// \param nActive number of flags that are not 0
/// \param iterations changes of the active set
/// \param status 0 solved; 1 iteration limit, or no convergence; 2 infeasible; 3 unbounded; 4 H is not
///     positive semidefinite; 5 bad argument; 6 too little work space
/// \param badIndex after 2, a constraint that contradicts others or itself: 1 to m for a row, m + 1 to m + n
///     for the bounds of a variable; after 5 and 6, the number of the argument; else 0
/// \param print not used, nothing is ever printed; can be null
/// \param work,lwork work space of at least 3 n² + 13 n + 4 m numbers, and its size. A size of -1 is a query:
///     only n, m and the pointers are looked at, `status` becomes 0, and the sizes needed come to `work[0]`
///     and `iwork[0]`.
/// \param iwork,liwork work space of at least 3 n + m integers, and its size, with -1 for the same query
/// \param reserved1,reserved2 not used; can be null
///
/// After statuses 1 and 2, `x` and the other results are those of the last iterate, in general not even
/// feasible; after 3, `x` is the feasible point next to the start, with multipliers of 0. After 4, 5 and 6
/// only `status` and `badIndex` are set. Bad arguments are null pointers, sizes out of range, and NaN or
/// infinity in any number that is not a bound; values so large that the computation overflows end in
/// status 1. Without a place for `status`, nothing happens at all.
///
/// O(n³) once and O(n (n + m)) for each iteration. Allocates nothing beyond what LAPACK needs; the result
/// does not depend on the number of threads. Calls keep no state, so that any number of them can run at once.
QZMATH_API void QLPoptimize(int * n, int * m, int * me, int * ldh, int * lda, int * maxIter, int * warm,
                            double * h, double * c, double * a, double * b, double * xl, double * xu,
                            double * x, double * lambda, double * zl, double * zu, double * f, double * tol,
                            double * violation, int * activeSet, int * nActive, int * iterations,
                            int * status, int * badIndex, int * print, double * work, int * lwork,
                            int * iwork, int * liwork, int * reserved1, int * reserved2);

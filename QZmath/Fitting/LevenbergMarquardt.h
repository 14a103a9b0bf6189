// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Functor.h>

namespace REmath
{

/// Minimises the sum of squares of `m` functions of `n` variables by the method of Levenberg and Marquardt
/// (J. Moré: The Levenberg-Marquardt algorithm, implementation and theory, 1978), with the functions' own
/// derivatives.
///
/// `functor(m, n, x, fvec, fjac, ldfjac, iflag)` fills for `iflag` 1 the `m` values `fvec` of the functions
/// at `x`, and for 2 their derivatives `fjac[i + ldfjac * j]` of function i by variable j, and leaves the
/// other array alone. It returns 0 or more to go on; a negative value ends the search and becomes the result.
///
/// `x` holds `n` start values on entry and the solution on return, `fvec` the `m` values there. `tol` bounds
/// the relative error wanted in the sum of squares and in `x`. At most 100 (n + 1) evaluations of the
/// functions.
///
/// | result | |
/// |---|---|
/// | 0 | `n` below 1, `m` below `n`, or `tol` negative; nothing was called |
/// | 1, 2, 3 | converged in the sum of squares, in `x`, in both |
/// | 4 | `fvec` is orthogonal to the derivatives to machine precision |
/// | 5 | too many evaluations; so too for functions that are NaN |
/// | 6, 7 | `tol` is too small for a further reduction of the sum, for a better `x` |
///
/// Allocates O(m n). An exception of the functor passes through. Safe on several threads at once with
/// functors that are.
QZMATH_API int
lmder1_adapter(Functor7<int, int, int, double const *, double *, double *, int, int> const & functor, int m,
               int n, double * x, double * fvec, double tol);

} // namespace REmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace REmath
{

/// Solves A x = b for a square matrix that is known only by its products, by the stabilised method of
/// bi-conjugate gradients (van der Vorst 1992), without preconditioner.
///
/// - `n`: number of unknowns; `rightPart` holds b.
/// - `multiply(context, in, out)`: writes A * in to the n elements of `out`. It may throw; everything is
/// released.
/// - `solution`: the initial guess, replaced by the result.
/// - `eps`: iterations end when the norm of the residual is at most `eps` times the norm of b.
/// - `maxIterations`: at most so many iterations. When 0 or less, they end where the squared residual has not
/// halved in 1000 + 10 `n` of them, as on a system without a solution; that counts as a breakdown.
///
/// Gives the number of iterations, whether they converged or were stopped by the limit: a caller who must
/// know has to look at the residual. Gives -1 on breakdown, and `solution` then holds the last approximation.
/// A residual that vanishes at the start is such a breakdown: an initial guess that solves the system exactly
/// gives -1, and so does n of 0. A residual that is not a number ends the iterations like convergence.
///
/// Takes two products for each iteration and one for the start. Allocates its work vectors once per call.
/// Safe to be called from several threads. The result is the same for any number of threads of the BLAS.
QZMATH_API int bicgstab(int n, void (*multiply)(void * context, float const * in, float * out),
                        void * context, float const * rightPart, float * solution, float eps,
                        int maxIterations);
QZMATH_API int bicgstab(int n, void (*multiply)(void * context, double const * in, double * out),
                        void * context, double const * rightPart, double * solution, double eps,
                        int maxIterations);

} // namespace REmath

using REmath::bicgstab;

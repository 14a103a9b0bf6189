// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace REmath
{

/// The stabilised bi-conjugate gradient iteration for A x = b (H. A. van der Vorst, SIAM J. Sci. Stat.
/// Comput. 13, 1992), without preconditioning and with the residual of opposite sign, A x - b.
///
/// It stops as soon as |A x - b|^2, carried along by recurrence, is not above eps^2 |b|^2; a residual that
/// became NaN stops it too. Results are the same to the bit whatever the number of threads.
///
/// \param n             size of the system
/// \param multiply      computes `out` = A `in`, both of n elements; what it throws passes
/// \param context       handed to `multiply`
/// \param rightPart     b, n elements
/// \param solution      in: initial guess, out: result; n elements
/// \param maxIterations no limit when 0 or less
/// \return the number of iterations, also when the limit was reached; -1 on breakdown, which includes a start
/// that
///         solves the system already
///
/// Memory: six vectors of n elements. Thread-safe.
QZMATH_API int bicgstab(int n, void (*multiply)(void * context, double const * in, double * out),
                        void * context, double const * rightPart, double * solution, double eps,
                        int maxIterations);
QZMATH_API int bicgstab(int n, void (*multiply)(void * context, float const * in, float * out),
                        void * context, float const * rightPart, float * solution, float eps,
                        int maxIterations);

} // namespace REmath

using REmath::bicgstab;

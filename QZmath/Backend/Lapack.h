// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The dense factorisations that the library takes from LAPACK. Call them inside a `CBlasSingleThread` scope
/// where results must not depend on the number of threads.
namespace QzBackend
{

/// Factors a symmetric positive definite column-major matrix, of which the lower triangle is read, into L L^T
/// and puts L in place of that triangle. False when a pivot is not positive; NaN may go unnoticed here.
bool choleskyLower(int size, double * matrix, int leading);

} // namespace QzBackend

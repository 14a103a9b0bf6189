// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

/// The dense factorisations that the library takes from LAPACK.
namespace QzBackend
{

/// Factors a symmetric positive definite column-major matrix, of which the lower triangle is read, into L L^T
/// and puts L in place of that triangle. False when a pivot is not positive; NaN may go unnoticed here. Call
/// it inside a `CBlasSingleThread` scope where results must not depend on the number of threads.
bool choleskyLower(int size, double * matrix, int leading);

/// Puts the inverse of the lower triangle of a column-major matrix in its place; what stands above is neither
/// read nor written. False when a diagonal element is exactly 0. On the calling thread alone.
bool invertLowerTriangle(int size, double * matrix, int leading);

/// The functions on LU factors take column-major matrices without gaps, `size` of 1 or more, and run on the
/// calling thread alone, so that their results do not depend on the number of threads. NaN passes through.

/// Puts the LU factors with partial pivoting in place of the matrix and fills `pivots` with `size` numbers of
/// rows, from 1. False when a pivot is exactly 0.
bool factorLu(int size, float * matrix, int * pivots);
bool factorLu(int size, double * matrix, int * pivots);

/// Puts the solutions in place of the `rightParts` columns of `columns`, with what `factorLu` has made.
bool solveLu(int size, int rightParts, float const * factors, int const * pivots, float * columns);
bool solveLu(int size, int rightParts, double const * factors, int const * pivots, double * columns);

/// Puts the inverse in place of the factors that `factorLu` has made.
bool invertLu(int size, double * factors, int const * pivots);

/// Estimates the 1-norm of a square matrix that is known by its products only, from below and seldom by more
/// than a factor of 3, with about five products (Higham, ACM TOMS 14, 1988). Both functions put the product
/// in place of the vector that they get. `size` from 1 on.
double estimateNorm(int size, std::function<void(double * vector)> const & multiply,
                    std::function<void(double * vector)> const & multiplyTransposed);

/// Generalised eigenvalues alpha / beta and left eigenvectors u^H A = (alpha / beta) u^H B of a balanced
/// pencil of column-major matrices, which are overwritten. The `size` vectors come to `vectors` one after the
/// other, a conjugate pair as real and imaginary part; beta is not negative. False when the iteration fails.
/// The elements must be finite, `size` from 1 to 26000. `work` and `integerWork` have room for
/// `generalizedEigenWork(size)` and `size + 6` numbers. On the calling thread alone, allocates nothing.
bool generalizedLeftEigen(int size, double * a, double * b, double * alphaReal, double * alphaImaginary,
                          double * beta, double * vectors, double * work, int * integerWork);
constexpr int generalizedEigenWork(int size) { return size * (3 * size + 15) + 17; }

} // namespace QzBackend

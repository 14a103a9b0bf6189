// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

/// The dense vector and matrix kernels that the library takes from BLAS.
///
/// The library links a BLAS without threads of its own, but a host can have brought another one before. So
/// that every result depends on the operands only, not on a number of threads, long vectors go to BLAS in
/// pieces too short for it to divide, and matrix kernels are to be called inside a `CBlasSingleThread` scope.
/// All functions are thread-safe. Vectors are contiguous; lengths of 0 do nothing. Functions on matrices
/// throw `std::bad_alloc` when there is no memory for the kernels to work in, before anything is written.
namespace QzBackend
{

/// Sum of the products of the elements, accumulated in the type of the vectors.
float dot(std::size_t size, float const * left, float const * right);
double dot(std::size_t size, double const * left, double const * right);

/// y += factor * x
void axpy(std::size_t size, float factor, float const * x, float * y);
void axpy(std::size_t size, double factor, double const * x, double * y);

/// y = x
void copy(std::size_t size, float const * x, float * y);
void copy(std::size_t size, double const * x, double * y);

/// x *= factor
void scal(std::size_t size, float factor, float * x);
void scal(std::size_t size, double factor, double * x);

/// C = C + factor * A * B^T for column-major A (rows by inner), B (columns by inner) and C (rows by columns).
void gemmTransposed(int rows, int columns, int inner, double factor, double const * a, int leadingA,
                    double const * b, int leadingB, double * c, int leadingC);

/// The same with the factor 1, and C = A * B^T, where C need not be initialised.
void addProductTransposed(int rows, int columns, int inner, double const * a, int leadingA, double const * b,
                          int leadingB, double * c, int leadingC);
void productTransposed(int rows, int columns, int inner, double const * a, int leadingA, double const * b,
                       int leadingB, double * c, int leadingC);

/// C = C - A * B, or C - A^T * B, for column-major A (rows by inner, or inner by rows), B (inner by columns)
/// and C (rows by columns).
void subtractProduct(bool transposed, int rows, int columns, int inner, double const * a, int leadingA,
                     double const * b, int leadingB, double * c, int leadingC);

/// B = L^-1 * B, or L^-T * B, for the lower triangular L (size by size) and column-major B (size by columns).
void solveLower(bool transposed, int size, int columns, double const * lower, int leadingL, double * b,
                int leadingB);

/// x = L^-1 * x and x = U^-1 * x, or L^-T * x and U^-T * x, for the unit lower and the upper triangle of a
/// matrix (size by size), as LU factors leave them.
void solveUnitLower(bool transposed, int size, double const * matrix, int leading, double * x);
void solveUpper(bool transposed, int size, double const * matrix, int leading, double * x);

/// B = B * L^-T for the lower triangular L (size by size) and column-major B (rows by size).
void solveLowerTransposedFromRight(int rows, int size, double const * lower, int leadingL, double * b,
                                   int leadingB);

/// C = A * B for column-major matrices without gaps: A is rows by inner, B inner by columns. C need not be
/// initialised. In a `CBlasSingleThread` scope of its own where the size calls for it.
void multiply(int rows, int columns, int inner, float const * a, float const * b, float * c);
void multiply(int rows, int columns, int inner, double const * a, double const * b, double * c);

/// y = A * x for a column-major A (rows by columns) without gaps, with the same care.
void multiply(int rows, int columns, float const * a, float const * x, float * y);
void multiply(int rows, int columns, double const * a, double const * x, double * y);

/// As long as one of these exists, BLAS runs its kernels on the calling thread alone, in the whole process:
/// it would otherwise split its sums by the number of threads. The first scope saves the former number of
/// threads and the last one gives it back. Scopes may nest and overlap on any threads. Without effect on a
/// BLAS that has no such setting.
class CBlasSingleThread
{
public:
    CBlasSingleThread();
    ~CBlasSingleThread();
    CBlasSingleThread(CBlasSingleThread const &) = delete;
    CBlasSingleThread & operator=(CBlasSingleThread const &) = delete;
};

/// As long as one of these exists, a kernel that this thread calls finds its working memory. Some is
/// mapped for each thread that is inside a kernel and kept for good; a kernel that the system refuses it
/// cannot fail, only wait: so what is needed is mapped before. All functions
/// above and those of Lapack.h see to it themselves; this is for kernels that others call. Costs two atomic
/// operations once there is enough. Scopes may nest.
class CBlasMemory
{
public:
    /// For how many threads, up to `wanted`, there is such memory; at least 1, for which there may be none.
    static int threadsProvidedFor(int wanted);

    CBlasMemory(); ///< throws `std::bad_alloc`
    ~CBlasMemory();
    CBlasMemory(CBlasMemory const &) = delete;
    CBlasMemory & operator=(CBlasMemory const &) = delete;
};

} // namespace QzBackend

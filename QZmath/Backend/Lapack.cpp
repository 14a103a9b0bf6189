// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Lapack.h>

#include <QZmath/Backend/Blas.h>

#include <cstddef>
#include <lapack.h>
#include <optional>
#include <vector>

namespace QzBackend
{

bool choleskyLower(int size, double * matrix, int leading)
{
    if (size <= 0)
        return true;
    CBlasMemory const memory;
    int status = 0;
    LAPACK_dpotrf("L", &size, matrix, &leading, &status);
    return status == 0;
}

bool invertLowerTriangle(int size, double * matrix, int leading)
{
    CBlasSingleThread const serial;
    CBlasMemory const memory;
    if (size <= 0)
        return true;
    int status = 0;
    LAPACK_dtrtri("L", "N", &size, matrix, &leading, &status);
    return status == 0;
}

bool factorLu(int size, float * matrix, int * pivots)
{
    CBlasSingleThread const serial;
    CBlasMemory const memory;
    int status = 0;
    LAPACK_sgetrf(&size, &size, matrix, &size, pivots, &status);
    return status == 0;
}

bool factorLu(int size, double * matrix, int * pivots)
{
    CBlasSingleThread const serial;
    CBlasMemory const memory;
    int status = 0;
    LAPACK_dgetrf(&size, &size, matrix, &size, pivots, &status);
    return status == 0;
}

bool solveLu(int size, int rightParts, float const * factors, int const * pivots, float * columns)
{
    CBlasSingleThread const serial;
    CBlasMemory const memory;
    int status = 0;
    LAPACK_sgetrs("N", &size, &rightParts, factors, &size, pivots, columns, &size, &status);
    return status == 0;
}

bool solveLu(int size, int rightParts, double const * factors, int const * pivots, double * columns)
{
    CBlasSingleThread const serial;
    CBlasMemory const memory;
    int status = 0;
    LAPACK_dgetrs("N", &size, &rightParts, factors, &size, pivots, columns, &size, &status);
    return status == 0;
}

bool invertLu(int size, double * factors, int const * pivots)
{
    // The blocked algorithm needs this many columns.
    constexpr int blockColumns = 64;
    std::vector<double> work(static_cast<std::size_t>(size) * blockColumns);
    CBlasSingleThread const serial;
    CBlasMemory const memory;
    int const workSize = size * blockColumns;
    int status = 0;
    LAPACK_dgetri(&size, factors, &size, pivots, work.data(), &workSize, &status);
    return status == 0;
}

double estimateNorm(int size, std::function<void(double *)> const & multiply,
                    std::function<void(double *)> const & multiplyTransposed)
{
    std::vector<double> extreme(static_cast<std::size_t>(size)), vector(extreme.size());
    std::vector<int> signs(extreme.size());
    double estimate = 0.0;
    int state[3] = {0, 0, 0};
    CBlasSingleThread const serial;
    for (int wanted = 0;;) {
        LAPACK_dlacn2(&size, extreme.data(), vector.data(), signs.data(), &estimate, &wanted, state);
        if (wanted == 0)
            return estimate;
        (wanted == 1 ? multiply : multiplyTransposed)(vector.data());
    }
}

bool generalizedLeftEigen(int size, double * a, double * b, double * alphaReal, double * alphaImaginary,
                          double * beta, double * vectors, double * work, int * integerWork)
{
    int const workSize = generalizedEigenWork(size) - 2 * size;
    double * const leftScale = work + workSize;
    double * const rightScale = leftScale + size;
    double normA = 0, normB = 0;
    int first = 0, last = 0;
    // No kernel divides so little among threads, and the scope would make concurrent callers meet.
    std::optional<CBlasSingleThread> serial;
    if (size > 16)
        serial.emplace();
    // Neither right vectors nor condition numbers are asked for, so their arrays are not touched.
    double unusedVector = 0, unusedCondition = 0;
    lapack_logical unusedFlag = 0;
    CBlasMemory const memory;
    int const one = 1;
    int status = 0;
    LAPACK_dggevx("B", "V", "N", "N", &size, a, &size, b, &size, alphaReal, alphaImaginary, beta, vectors,
                  &size, &unusedVector, &one, &first, &last, leftScale, rightScale, &normA, &normB,
                  &unusedCondition, &unusedCondition, work, &workSize, integerWork, &unusedFlag, &status);
    return status == 0;
}

} // namespace QzBackend

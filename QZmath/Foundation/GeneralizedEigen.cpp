// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/GeneralizedEigen.h>

#include <QZmath/Backend/Lapack.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace
{

// The size of the work array is an integer of 32 bits.
constexpr int largestSize = 26000;

/// Copies row after row; read column by column this is the transpose. False on infinity and NaN.
bool copyRows(int n, double const * const * matrix, double * copy)
{
    bool isFinite = true;
    for (int row = 0; row < n; ++row) {
        for (int col = 0; col < n; ++col) {
            *copy++ = matrix[row][col];
            isFinite = isFinite && std::isfinite(matrix[row][col]);
        }
    }
    return isFinite;
}

} // namespace

bool gen_right_eigen(int n, double const * const * a, double const * const * b, int & count,
                     double ** vectors, double * values)
{
    count = 0;
    if (n < 1 || n > largestSize)
        return false;
    std::size_t const size = static_cast<std::size_t>(n);
    std::vector<double> memory(3 * size * size + 3 * size);
    double * const transposedA = memory.data();
    double * const transposedB = transposedA + size * size;
    double * const leftVectors = transposedB + size * size;
    double * const alphaReal = leftVectors + size * size;
    double * const alphaImaginary = alphaReal + size;
    double * const beta = alphaImaginary + size;
    // The left eigenvectors of the transposes are the right ones of the matrices.
    if (!copyRows(n, a, transposedA) || !copyRows(n, b, transposedB) ||
        !QzBackend::generalizedLeftEigen(n, transposedA, transposedB, alphaReal, alphaImaginary, beta,
                                         leftVectors))
        return false;
    for (int i = 0; i < n; ++i) {
        if (alphaImaginary[i] != 0 || !(std::abs(beta[i]) >= 1e-10) ||
            !(std::abs(alphaReal[i]) < std::abs(beta[i]) * 1e+20))
            continue;
        values[count] = alphaReal[i] / beta[i];
        std::copy_n(leftVectors + static_cast<std::size_t>(i) * size, size, vectors[count]);
        ++count;
    }
    return true;
}

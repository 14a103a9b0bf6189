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

// Copies row after row; read column by column this is the transpose. False on infinity and NaN.
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

// Numbers that the solution of a problem takes: three matrices, three vectors and the work space.
constexpr std::size_t memorySize(std::size_t size)
{
    return 3 * size * size + 3 * size +
           static_cast<std::size_t>(QzBackend::generalizedEigenWork(static_cast<int>(size)));
}

// Problems up to this size, as fits of quadrics solve them point by point, run on the stack.
constexpr std::size_t largestOnStack = 16;

bool solve(int n, double const * const * a, double const * const * b, int & count, double ** vectors,
           double * values, double * memory, int * integerWork)
{
    auto const size = static_cast<std::size_t>(n);
    double * const transposedA = memory;
    double * const transposedB = transposedA + size * size;
    double * const leftVectors = transposedB + size * size;
    double * const alphaReal = leftVectors + size * size;
    double * const alphaImaginary = alphaReal + size;
    double * const beta = alphaImaginary + size;
    double * const work = beta + size;
    // The left eigenvectors of the transposes are the right ones of the matrices.
    if (!copyRows(n, a, transposedA) || !copyRows(n, b, transposedB) ||
        !QzBackend::generalizedLeftEigen(n, transposedA, transposedB, alphaReal, alphaImaginary, beta,
                                         leftVectors, work, integerWork))
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

} // namespace

bool gen_right_eigen(int n, double const * const * a, double const * const * b, int & count,
                     double ** vectors, double * values)
{
    count = 0;
    if (n < 1 || n > largestSize)
        return false;
    auto const size = static_cast<std::size_t>(n);
    if (size <= largestOnStack) {
        double memory[memorySize(largestOnStack)];
        int integerWork[largestOnStack + 6];
        return solve(n, a, b, count, vectors, values, memory, integerWork);
    }
    std::vector<double> memory(memorySize(size));
    std::vector<int> integerWork(size + 6);
    return solve(n, a, b, count, vectors, values, memory.data(), integerWork.data());
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Lapack.h>
#include <QZmath/Foundation/IndexDetail.h>
#include <QZmath/Foundation/Matrix.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

namespace REmath
{

namespace
{

// From this size on the factorisation is LAPACK's; below, its calls cost more than the work.
constexpr int lapackSize = 16;
constexpr int lapackInverseSize = 6;

// LU factors with partial pivoting of a small column-major matrix, in place and in the form of getrf, but
// with pivot rows counted from 0. False when a pivot is 0; the factorisation is carried through even so.
template <class T>
bool factorSmall(int size, T * matrix, int * pivotRows)
{
    bool isRegular = true;
    for (int step = 0; step < size; ++step) {
        T * const pivotColumn = matrix + step * size;
        int pivotRow = step;
        for (int row = step + 1; row < size; ++row) {
            if (std::abs(pivotColumn[row]) > std::abs(pivotColumn[pivotRow]))
                pivotRow = row;
        }
        pivotRows[step] = pivotRow;
        T const pivot = pivotColumn[pivotRow];
        if (pivot == 0) {
            isRegular = false;
            continue;
        }
        if (pivotRow != step) {
            for (int col = 0; col < size; ++col)
                std::swap(matrix[col * size + step], matrix[col * size + pivotRow]);
        }
        for (int row = step + 1; row < size; ++row)
            pivotColumn[row] /= pivot;
        for (int col = step + 1; col < size; ++col) {
            T * const column = matrix + col * size;
            T const factor = column[step];
            for (int row = step + 1; row < size; ++row)
                column[row] -= pivotColumn[row] * factor;
        }
    }
    return isRegular;
}

// Solves in place for one column with the factors of `factorSmall`.
template <class T>
void solveSmall(int size, T const * factors, int const * pivotRows, T * column)
{
    for (int step = 0; step < size; ++step)
        std::swap(column[step], column[pivotRows[step]]);
    for (int step = 0; step < size; ++step) {
        for (int row = step + 1; row < size; ++row)
            column[row] -= factors[step * size + row] * column[step];
    }
    for (int step = size - 1; step >= 0; --step) {
        column[step] /= factors[step * size + step];
        for (int row = 0; row < step; ++row)
            column[row] -= factors[step * size + row] * column[step];
    }
}

template <class T>
void requireSquare(Matrix<T> const & matrix)
{
    if (matrix.rows() != matrix.cols())
        throw static_cast<char const *>("MatrixSolveDimError");
}

template <class T>
bool solve(Matrix<T> & a, Matrix<T> const & b, Matrix<T> & x)
{
    requireSquare(a);
    if (b.rows() != a.rows())
        throw static_cast<char const *>("MatrixSolveDimError");
    if (&x == &a) {
        Matrix<T> factors(a);
        return solve(factors, b, x);
    }
    if (&x != &b) {
        if (x.rows() == b.rows() && x.cols() == b.cols())
            x.as(0, 0, b);
        else
            x = b;
    }
    int const size = a.rows();
    if (size < 1)
        return true;
    if (size >= lapackSize) {
        std::vector<int> pivotRows(Detail::index(size));
        return QzBackend::factorLu(size, a[0], pivotRows.data()) &&
               QzBackend::solveLu(size, std::max(x.cols(), 0), a[0], pivotRows.data(),
                                  x.cols() > 0 ? x[0] : nullptr);
    }
    std::array<int, lapackSize> pivotRows;
    if (!factorSmall(size, a[0], pivotRows.data()))
        return false;
    for (int col = 0; col < x.cols(); ++col)
        solveSmall(size, a[0], pivotRows.data(), x[col]);
    return true;
}

} // namespace

bool solveMat(Matrix<float> & a, Matrix<float> const & b, Matrix<float> & x) { return solve(a, b, x); }

bool solveMat(Matrix<double> & a, Matrix<double> const & b, Matrix<double> & x) { return solve(a, b, x); }

bool inverseMat(Matrix<double> const & a, Matrix<double> & inverse)
{
    requireSquare(a);
    inverse = a;
    int const size = inverse.rows();
    if (size < 1)
        return true;
    if (size >= lapackInverseSize) {
        std::vector<int> pivotRows(Detail::index(size));
        return QzBackend::factorLu(size, inverse[0], pivotRows.data()) &&
               QzBackend::invertLu(size, inverse[0], pivotRows.data());
    }
    std::array<int, lapackInverseSize> pivotRows;
    if (!factorSmall(size, inverse[0], pivotRows.data()))
        return false;
    std::array<double, lapackInverseSize * lapackInverseSize> columns{};
    for (int col = 0; col < size; ++col) {
        columns[Detail::index(col * size + col)] = 1;
        solveSmall(size, inverse[0], pivotRows.data(), columns.data() + col * size);
    }
    std::copy_n(columns.data(), size * size, inverse[0]);
    return true;
}

} // namespace REmath

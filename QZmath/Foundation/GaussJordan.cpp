// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/GaussJordan.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

using REmath::Detail::index;

namespace
{

constexpr int largestSize = 50;

struct Place
{
    int row = -1;
    int col = -1;
};

// Largest element in the rows and columns that have not given a pivot yet; no place when all are NaN.
Place findPivot(double const * const * a, int n, std::array<bool, largestSize> const & isDone)
{
    Place pivot;
    double largest = 0;
    for (int row = 0; row < n; ++row) {
        if (isDone[index(row)])
            continue;
        for (int col = 0; col < n; ++col) {
            if (!isDone[index(col)] && std::abs(a[row][col]) >= largest) {
                largest = std::abs(a[row][col]);
                pivot = {row, col};
            }
        }
    }
    return pivot;
}

void divideRow(double * row, int length, double divisor)
{
    for (int col = 0; col < length; ++col)
        row[col] /= divisor;
}

void subtractRow(double * row, double const * pivotRow, int length, double factor)
{
    for (int col = 0; col < length; ++col)
        row[col] -= pivotRow[col] * factor;
}

} // namespace

int gaussj(double ** a, int n, double ** b, int m)
{
    if (n > largestSize || m > largestSize)
        return -1;
    // The pivot of step k comes to the diagonal by a swap of rows, after which its column is the done one.
    std::array<bool, largestSize> isDone{};
    std::array<Place, largestSize> pivots;
    for (int step = 0; step < n; ++step) {
        Place const pivot = findPivot(a, n, isDone);
        if (pivot.row < 0)
            return 0;
        isDone[index(pivot.col)] = true;
        pivots[index(step)] = pivot;
        if (pivot.row != pivot.col) {
            for (int col = 0; col < n; ++col)
                std::swap(a[pivot.row][col], a[pivot.col][col]);
            for (int col = 0; col < m; ++col)
                std::swap(b[pivot.row][col], b[pivot.col][col]);
        }
        double * const pivotRow = a[pivot.col];
        double const divisor = pivotRow[pivot.col];
        if (divisor == 0)
            return -1;
        // The column of the unit matrix takes the place of the one that is eliminated.
        pivotRow[pivot.col] = 1;
        divideRow(pivotRow, n, divisor);
        if (m > 0)
            divideRow(b[pivot.col], m, divisor);
        for (int row = 0; row < n; ++row) {
            if (row == pivot.col)
                continue;
            double const factor = a[row][pivot.col];
            a[row][pivot.col] = 0;
            subtractRow(a[row], pivotRow, n, factor);
            if (m > 0)
                subtractRow(b[row], b[pivot.col], m, factor);
        }
    }
    for (int step = n - 1; step >= 0; --step) {
        Place const pivot = pivots[index(step)];
        if (pivot.row == pivot.col)
            continue;
        for (int row = 0; row < n; ++row)
            std::swap(a[row][pivot.row], a[row][pivot.col]);
    }
    return 1;
}

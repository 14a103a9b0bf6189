// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <utility>
#include <vector>

#include "DenseSolve.h"

/// Small matrices for the tests of solvers: a dense form with a plain elimination to compare with, the
/// compressed form, and generators from fixed seeds.
namespace testSupport
{

struct DenseMatrix
{
    explicit DenseMatrix(int matrixSize)
        : size(matrixSize), elements(std::size_t(matrixSize) * std::size_t(matrixSize))
    {}
    double & operator()(int row, int column)
    {
        return elements[std::size_t(row) * std::size_t(size) + std::size_t(column)];
    }
    double operator()(int row, int column) const
    {
        return elements[std::size_t(row) * std::size_t(size) + std::size_t(column)];
    }

    int size;
    std::vector<double> elements;
};

struct CompressedMatrix
{
    int size = 0;
    std::vector<int> rowIndex, columns;
    std::vector<double> values;
    int indexBase = 0;
    bool upperOnly = false;

    int nonZeros() const { return int(columns.size()); }

    std::vector<double> product(std::vector<double> const & vector) const
    {
        std::vector<double> result(vector.size(), 0.0);
        for (int row = 0; row < size; ++row)
            for (int position = rowIndex[std::size_t(row)] - indexBase;
                 position < rowIndex[std::size_t(row) + 1] - indexBase; ++position) {
                int const column = columns[std::size_t(position)] - indexBase;
                double const value = values[std::size_t(position)];
                result[std::size_t(row)] += value * vector[std::size_t(column)];
                if (upperOnly && column != row)
                    result[std::size_t(column)] += value * vector[std::size_t(row)];
            }
        return result;
    }
};

/// `keepZeroDiagonal` stores diagonal elements of 0 as elements.
inline CompressedMatrix compress(DenseMatrix const & matrix, bool upperOnly, int indexBase,
                                 bool keepZeroDiagonal = false)
{
    CompressedMatrix result;
    result.size = matrix.size;
    result.indexBase = indexBase;
    result.upperOnly = upperOnly;
    result.rowIndex.push_back(indexBase);
    for (int row = 0; row < matrix.size; ++row) {
        for (int column = upperOnly ? row : 0; column < matrix.size; ++column)
            if (matrix(row, column) != 0.0 || (keepZeroDiagonal && row == column)) {
                result.columns.push_back(column + indexBase);
                result.values.push_back(matrix(row, column));
            }
        result.rowIndex.push_back(int(result.columns.size()) + indexBase);
    }
    return result;
}

/// Elimination with full pivoting in `long double`; the second method that solvers are compared with.
inline std::vector<double> eliminate(DenseMatrix const & matrix, std::vector<double> const & right)
{
    DenseRows rows(right.size());
    for (int row = 0; row < matrix.size; ++row) {
        for (int column = 0; column < matrix.size; ++column)
            rows[std::size_t(row)].push_back(matrix(row, column));
        rows[std::size_t(row)].push_back(right[std::size_t(row)]);
    }
    std::vector<long double> const solution = solveDense(std::move(rows)).value();
    return {solution.begin(), solution.end()};
}

inline std::vector<double> randomVector(int size, std::mt19937 & random)
{
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<double> result(static_cast<std::size_t>(size));
    for (double & element : result)
        element = uniform(random);
    return result;
}

/// A sparse matrix with about `perRow` elements left and right of the diagonal of each row. With `dominance`
/// above 1 the diagonal exceeds the sum of the others by that factor, which makes a symmetric one positive
/// definite; otherwise the diagonal is random as well.
inline DenseMatrix randomSparse(int size, double perRow, bool symmetric, double dominance,
                                std::mt19937 & random)
{
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::bernoulli_distribution present(std::min(1.0, perRow / size));
    DenseMatrix matrix(size);
    for (int row = 0; row < size; ++row)
        for (int column = 0; column < size; ++column)
            if (row != column && present(random) && (!symmetric || column > row)) {
                matrix(row, column) = uniform(random);
                if (symmetric)
                    matrix(column, row) = matrix(row, column);
            }
    for (int row = 0; row < size; ++row) {
        double sum = 0.0;
        for (int column = 0; column < size; ++column)
            sum += std::fabs(matrix(row, column));
        matrix(row, row) = dominance > 1.0 ? dominance * sum + 0.1 : uniform(random);
    }
    return matrix;
}

/// The upper triangle of a positive definite operator on a cube of `side`^3 points that couples each point
/// with all others up to `reach` away along each axis: 27 points for 1, 125 for 2. `shift` is what the
/// diagonal has beyond the row sum; 0 makes the matrix singular with the constants in its kernel.
inline CompressedMatrix gridOperator(int side, int reach, double shift, int indexBase)
{
    CompressedMatrix result;
    result.size = side * side * side;
    result.indexBase = indexBase;
    result.upperOnly = true;
    result.rowIndex.push_back(indexBase);
    auto const inside = [&](int coordinate) { return coordinate >= 0 && coordinate < side; };
    for (int row = 0; row < result.size; ++row) {
        int const x = row % side, y = row / side % side, z = row / (side * side);
        double diagonal = shift;
        std::size_t const diagonalPlace = result.values.size();
        result.columns.push_back(row + indexBase);
        result.values.push_back(0.0);
        for (int dz = -reach; dz <= reach; ++dz)
            for (int dy = -reach; dy <= reach; ++dy)
                for (int dx = -reach; dx <= reach; ++dx) {
                    int const column = row + dx + side * (dy + side * dz);
                    if (column == row || !inside(x + dx) || !inside(y + dy) || !inside(z + dz))
                        continue;
                    double const weight = 1.0 / (dx * dx + dy * dy + dz * dz);
                    diagonal += weight;
                    if (column > row) {
                        result.columns.push_back(column + indexBase);
                        result.values.push_back(-weight);
                    }
                }
        result.values[diagonalPlace] = diagonal;
        result.rowIndex.push_back(int(result.columns.size()) + indexBase);
    }
    return result;
}

inline double norm(std::vector<double> const & vector)
{
    double sum = 0.0;
    for (double const element : vector)
        sum += element * element;
    return std::sqrt(sum);
}

/// |a - b| / |b|
inline double relativeDistance(std::vector<double> a, std::vector<double> const & b)
{
    for (std::size_t index = 0; index < a.size(); ++index)
        a[index] -= b[index];
    return norm(a) / norm(b);
}

} // namespace testSupport

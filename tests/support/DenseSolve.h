// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

/// Rows of a small linear system, each with its right side as the last element.
using DenseRows = std::vector<std::vector<long double>>;

/// Solves the square system by elimination with full pivoting; nothing for a singular one.
inline std::optional<std::vector<long double>> solveDense(DenseRows rows)
{
    std::size_t const order = rows.size();
    std::vector<std::size_t> columns(order);
    for (std::size_t k = 0; k < order; ++k)
        columns[k] = k;
    for (std::size_t k = 0; k < order; ++k) {
        std::size_t pivotRow = k, pivotColumn = k;
        for (std::size_t i = k; i < order; ++i) {
            for (std::size_t j = k; j < order; ++j) {
                if (std::abs(rows[i][columns[j]]) > std::abs(rows[pivotRow][columns[pivotColumn]])) {
                    pivotRow = i;
                    pivotColumn = j;
                }
            }
        }
        std::swap(rows[k], rows[pivotRow]);
        std::swap(columns[k], columns[pivotColumn]);
        if (std::abs(rows[k][columns[k]]) < 1e-9L)
            return std::nullopt;
        for (std::size_t i = k + 1; i < order; ++i) {
            long double const factor = rows[i][columns[k]] / rows[k][columns[k]];
            for (std::size_t j = k; j < order; ++j)
                rows[i][columns[j]] -= factor * rows[k][columns[j]];
            rows[i][order] -= factor * rows[k][order];
        }
    }
    std::vector<long double> solution(order);
    for (std::size_t k = order; k-- > 0;) {
        long double sum = rows[k][order];
        for (std::size_t j = k + 1; j < order; ++j)
            sum -= rows[k][columns[j]] * solution[columns[j]];
        solution[columns[k]] = sum / rows[k][columns[k]];
    }
    return solution;
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

/// Matrix with a pointer to each row, as the routines on raw memory take it.
template <class Real>
struct RowMatrix
{
    explicit RowMatrix(int rowCount, int columnCount = 0, Real value = 0)
        : n(rowCount), columns(columnCount > 0 ? columnCount : rowCount),
          elements(static_cast<std::size_t>(n * columns), value)
    {
        for (int row = 0; row < n; ++row)
            rows.push_back(elements.data() + row * columns);
    }
    RowMatrix(RowMatrix const & other) : RowMatrix(other.n, other.columns)
    {
        elements.assign(other.elements.begin(), other.elements.end());
    }
    RowMatrix & operator=(RowMatrix const &) = delete;

    Real & at(int row, int col) { return rows[static_cast<std::size_t>(row)][col]; }
    double at(int row, int col) const { return rows[static_cast<std::size_t>(row)][col]; }

    int n, columns;
    std::vector<Real> elements;
    std::vector<Real *> rows;
};

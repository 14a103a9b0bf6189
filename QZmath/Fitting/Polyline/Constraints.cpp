// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/Polyline/Constraints.h>

#include <QZmath/Fitting/Polyline/CurveForm.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

using REmath::Matrix;

namespace PolylineDetail
{

namespace
{

// target += factor * source, from element `begin` on.
void addColumn(double * target, double factor, double const * source, int begin, int end)
{
    for (int row = begin; row < end; ++row)
        target[row] += factor * source[row];
}

} // namespace

Matrix<double> eliminateConstraints(Matrix<double> & constraints)
{
    int const rows = constraints.rows();
    int const order = constraints.cols();
    Matrix<double> z(order, order);
    z.diag(1);
    std::vector<int> columns(REmath::Detail::index(order)); // not eliminated yet
    std::iota(columns.begin(), columns.end(), 0);
    for (int row = 0; row < rows; ++row) {
        auto pivot = columns.end();
        double greatest = zeroTolerance;
        for (auto column = columns.begin(); column + 1 != columns.end(); ++column) {
            double const size = std::abs(constraints(row, *column));
            if (size > greatest) {
                greatest = size;
                pivot = column;
            }
        }
        if (pivot == columns.end())
            continue;
        int const pivotColumn = *pivot;
        columns.erase(pivot);
        for (int const column : columns) {
            double const factor = -constraints(row, column) / constraints(row, pivotColumn);
            if (factor == 0)
                continue;
            addColumn(constraints[column], factor, constraints[pivotColumn], row + 1, rows);
            addColumn(z[column], factor, z[pivotColumn], 0, order);
        }
    }
    Matrix<double> result(order, static_cast<int>(columns.size()));
    for (int column = 0; column < result.cols(); ++column)
        std::copy_n(z[columns[REmath::Detail::index(column)]], order, result[column]);
    return result;
}

void formNormalEquations(Matrix<double> const & blocks, std::vector<double> const & p,
                         Matrix<double> const & z, Matrix<double> & normal, Matrix<double> & rightSide)
{
    int const last = z.rows() - 1;
    int const unknowns = z.cols() - 1;
    // Products with the blocks and the border, row by row of the bordered matrix.
    Matrix<double> product(z.rows(), z.cols());
    for (int row = 0; row < blocks.cols(); ++row) {
        int const begin = row - row % 4;
        double border = 0;
        for (int i = 0; i < 4; ++i)
            border += blocks(i, row) * p[REmath::Detail::index(begin + i)];
        for (int col = 0; col < z.cols(); ++col) {
            double sum = border * z(last, col);
            for (int i = 0; i < 4; ++i)
                sum += blocks(i, row) * z(begin + i, col);
            product(row, col) = sum;
            product(last, col) += border * z(row, col);
        }
    }
    Matrix<double> const form = z.transpose() * product;
    Matrix<double> const hessian = form.get(0, 0, unknowns, unknowns);
    Matrix<double> gradient = form.get(0, unknowns, unknowns, 1);
    gradient *= -1;
    Matrix<double> const transposed = hessian.transpose();
    normal = transposed * hessian;
    rightSide = transposed * gradient;
}

} // namespace PolylineDetail

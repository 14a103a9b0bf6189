// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/SymmetricEigen.h>

#include <cmath>

namespace REmath::Detail
{

/// Eigenvectors of a symmetric 3 by 3 matrix.
struct ScatterEigen
{
    double values[3];
    int smallest = -1; ///< the lowest index of the smallest value below 1e30; -1 if there is none
};

/// Replaces the matrix by its eigenvectors as columns. False when the iteration fails, as on NaN.
inline bool decomposeScatter(double ** matrix, ScatterEigen & eigen)
{
    double subdiagonal[3];
    tred2_d(matrix, 3, eigen.values, subdiagonal);
    if (tqli_d(eigen.values, subdiagonal, 3, matrix) == 0)
        return false;
    double least = 1e30;
    eigen.smallest = -1;
    for (int i = 0; i < 3; ++i) {
        if (eigen.values[i] < least) {
            least = eigen.values[i];
            eigen.smallest = i;
        }
    }
    return true;
}

/// Scatter matrix, not divided by `n`, of one or more points about their mean.
inline void sumScatter(int n, Point3D const * points, double ** matrix)
{
    double cx = 0, cy = 0, cz = 0;
    for (int i = 0; i < n; ++i) {
        cx += static_cast<double>(points[i].x());
        cy += static_cast<double>(points[i].y());
        cz += static_cast<double>(points[i].z());
    }
    cx /= n;
    cy /= n;
    cz /= n;
    double xx = 0, xy = 0, xz = 0, yy = 0, yz = 0, zz = 0;
    for (int i = 0; i < n; ++i) {
        double const x = static_cast<double>(points[i].x()) - cx;
        double const y = static_cast<double>(points[i].y()) - cy;
        double const z = static_cast<double>(points[i].z()) - cz;
        xx += x * x;
        xy += x * y;
        xz += x * z;
        yy += y * y;
        yz += y * z;
        zz += z * z;
    }
    double const scatter[3][3] = {{xx, xy, xz}, {xy, yy, yz}, {xz, yz, zz}};
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col)
            matrix[row][col] = scatter[row][col];
    }
}

/// Decomposes the scatter matrix of the points. False for no points, on NaN and when no eigenvalue is below
/// 1e30.
inline bool decomposeScatterOf(int n, Point3D const * points, double ** matrix, ScatterEigen & eigen)
{
    if (n < 1)
        return false;
    sumScatter(n, points, matrix);
    return decomposeScatter(matrix, eigen) && eigen.smallest >= 0;
}

} // namespace REmath::Detail

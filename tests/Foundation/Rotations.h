// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/RotationMatrix.h>

#include <algorithm>
#include <cmath>

inline CRotationMatrix product(CRotationMatrix const & a, CRotationMatrix const & b)
{
    CRotationMatrix result = CRotationMatrix::Zero();
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) {
            for (int k = 0; k < 3; ++k)
                result.m[row][col] += a.m[row][k] * b.m[k][col];
        }
    }
    return result;
}

/// Greatest difference of two elements.
inline double distance(CRotationMatrix const & a, CRotationMatrix const & b)
{
    double largest = 0;
    for (int i = 0; i < 9; ++i) {
        double const difference = std::abs(a.m[i / 3][i % 3] - b.m[i / 3][i % 3]);
        if (std::isnan(difference))
            return difference;
        largest = std::max(largest, difference);
    }
    return largest;
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/Point3D.h>

#include <gtest/gtest.h>

#include <random>
#include <string>

/// What the tests of the dense containers share.
namespace denseTest
{

/// One for each kind: small and wrapping, plain, points of three and of four coordinates.
using AllElements = testing::Types<unsigned char, int, double, REmath::Point3D, REmath::HPoint3D_d>;

/// The word that `action` throws; empty when it throws nothing.
template <class Action>
std::string wordOf(Action action)
{
    try {
        action();
    } catch (char const * word) {
        return word;
    }
    return {};
}

/// Elements of 0 to 7 with every coordinate of a point different: sums and products of a few are exact in
/// all types but wrap around in the small ones, in the containers and in the models alike.
template <class T>
T randomElement(std::mt19937 & random)
{
    auto const digit = [&random] { return int(random() % 8); };
    if constexpr (std::is_arithmetic_v<T>) {
        return T(digit());
    } else if constexpr (sizeof(T) % 3 == 0) {
        int const x = digit(), y = digit(), z = digit();
        return T(x, y, z);
    } else {
        int const x = digit(), y = digit(), z = digit(), w = digit();
        return T(x, y, z, w);
    }
}

template <class T>
void fillRandomly(REmath::Matrix<T> & matrix, std::mt19937 & random)
{
    for (int col = 0; col < matrix.cols(); ++col) {
        for (int row = 0; row < matrix.rows(); ++row) {
            matrix.elem(row, col) = randomElement<T>(random);
        }
    }
}

template <class T>
REmath::Matrix<T> uniformMatrix(int rows, int cols, std::mt19937 & random)
{
    std::uniform_real_distribution<T> uniform(-1, 1);
    REmath::Matrix<T> matrix(rows, cols);
    for (int col = 0; col < cols; ++col) {
        for (int row = 0; row < rows; ++row) {
            matrix.elem(row, col) = uniform(random);
        }
    }
    return matrix;
}

} // namespace denseTest

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
    int const x = int(random() % 8);
    if constexpr (std::is_arithmetic_v<T>)
        return T(x);
    else if constexpr (sizeof(T) % 3 == 0)
        return T(x, int(random() % 8), int(random() % 8));
    else
        return T(x, int(random() % 8), int(random() % 8), int(random() % 8));
}

/// A matrix of what `element` gives, called for one after the other.
template <class T, class Element>
REmath::Matrix<T> filledMatrix(int rows, int cols, Element const & element)
{
    REmath::Matrix<T> matrix(rows, cols);
    for (int i = 0; i < rows * cols; ++i)
        matrix[0][i] = element();
    return matrix;
}

template <class T>
REmath::Matrix<T> randomMatrix(int rows, int cols, std::mt19937 & random)
{
    return filledMatrix<T>(rows, cols, [&random] { return randomElement<T>(random); });
}

} // namespace denseTest

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/TriangleMesh.h>

#include <cmath>
#include <cstdint>

namespace qz_test
{

/// A sphere of `rows` circles with `columns` vertices each, and two poles; closed, outside outside. Not a
/// number of it is the same in two axes.
inline QZmath::TriangleMesh sphere(int rows, int columns, double radius = 1)
{
    QZmath::TriangleMesh mesh;
    double const half = std::acos(-1.0);
    auto const add = [&](double polar, double around) {
        double const unit[3] = {std::sin(polar) * std::cos(around), std::sin(polar) * std::sin(around),
                                std::cos(polar)};
        for (double const coord : unit) {
            mesh.positions.push_back(static_cast<float>(radius * coord));
            mesh.normals.push_back(static_cast<float>(coord));
            mesh.colors.push_back(static_cast<std::uint8_t>(std::lround(127.5 + 127.5 * coord)));
        }
        mesh.density.push_back(static_cast<float>(10 + polar));
    };
    auto const triangle = [&](int a, int b, int c) {
        for (int const corner : {a, b, c})
            mesh.triangles.push_back(corner);
    };
    for (int i = 1; i <= rows; ++i)
        for (int j = 0; j < columns; ++j)
            add(half * i / (rows + 1), 2 * half * j / columns);
    add(0, 0);
    add(half, 0);
    int const north = rows * columns, south = north + 1;
    for (int j = 0; j < columns; ++j) {
        int const next = (j + 1) % columns;
        triangle(north, j, next);
        triangle((rows - 1) * columns + next, (rows - 1) * columns + j, south);
        for (int i = 0; i + 1 < rows; ++i) {
            triangle(i * columns + j, (i + 1) * columns + j, (i + 1) * columns + next);
            triangle(i * columns + j, (i + 1) * columns + next, i * columns + next);
        }
    }
    return mesh;
}

} // namespace qz_test

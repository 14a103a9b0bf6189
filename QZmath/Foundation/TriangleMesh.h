// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath
{

/// An indexed triangle mesh in memory. A plain value; nothing is checked.
///
/// Positions are relative to `origin`, so that a mesh far from zero keeps its precision: the place of vertex
/// v is origin[axis] + positions[3 v + axis].
struct TriangleMesh
{
    std::array<double, 3> origin{};      ///< in units of the cloud; 0 unless it lies far out
    std::vector<float> positions;        ///< 3 a vertex
    std::vector<float> normals;          ///< 3 a vertex, unit vectors; empty when there are none
    std::vector<std::uint8_t> colors;    ///< 3 a vertex (r, g, b), sRGB; empty when there are none
    std::vector<float> density;          ///< 1 a vertex, samples per unit of area; empty when there is none
    std::vector<std::int32_t> triangles; ///< 3 a triangle, counter-clockwise seen from outside

    std::size_t vertexCount() const { return positions.size() / 3; }
    std::size_t triangleCount() const { return triangles.size() / 3; }
};

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace QZmath
{

/// The vertices of a binary PLY file, of which any range can be written anywhere. Keeps references.
struct PlyVertices
{
    std::array<double, 3> origin{}; ///< other than 0, positions are in `double`
    float const * positions = nullptr;
    float const * normals = nullptr;       ///< null: none
    std::uint8_t const * colors = nullptr; ///< null: none
    float const * density = nullptr;       ///< null: none

    bool isWide() const { return origin[0] != 0 || origin[1] != 0 || origin[2] != 0; }
    std::size_t stride() const
    {
        return (isWide() ? 24U : 12U) + (normals != nullptr ? 12U : 0U) + (colors != nullptr ? 3U : 0U) +
               (density != nullptr ? 4U : 0U);
    }
    /// Writes the row of a vertex, of `stride` bytes.
    QZMATH_FILES_API void write(std::size_t vertex, char * row) const;
};

/// Bytes of a triangle: the number of its corners, and three numbers of 32 bits.
std::size_t const plyTriangleLength = 13;

/// The header of a file of such vertices and of triangles, whose corners are of `cornerType`.
QZMATH_FILES_API std::string plyMeshHeader(PlyVertices const & layout, std::uint64_t vertices,
                                           std::uint64_t triangles, char const * cornerType);

} // namespace QZmath

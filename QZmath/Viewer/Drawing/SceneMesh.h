// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Viewer/Drawing/Vec3.h>
#include <QZmath/Viewer/MeshScene.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace QZmath::Viewing
{

/// The mesh of a scene in the form that it is drawn in: every triangle has finite corners in a box whose
/// longest side is 1, every vertex is a corner of a triangle and has a unit normal, and triangles that follow
/// each other share corners.
struct SceneMesh
{
    std::vector<float> places;  ///< 3 a vertex: cloud = origin + low + scale * place
    std::vector<float> normals; ///< 3 a vertex
    std::vector<std::uint32_t> triangles;
    std::vector<std::uint32_t> sources;    ///< the vertex of the scene's mesh that each one is
    std::array<double, 3> origin{}, low{}; ///< in units of the cloud
    double scale = 1;
    std::array<float, 3> size{};     ///< of the box; the greatest is 1, or all are 0
    std::size_t leftOut = 0;         ///< triangles with places that are no numbers
    std::size_t trianglesBefore = 0; ///< those of the scene's mesh

    bool isClosed = false; ///< each edge has as many triangles on one side as on the other

    std::size_t vertexCount() const { return places.size() / 3; }
    std::size_t triangleCount() const { return triangles.size() / 3; }
    bool isSimplified() const { return triangleCount() + leftOut < trianglesBefore; }
    Vec3 place(std::uint32_t vertex) const { return Vec3::of(&places[3 * std::size_t(vertex)]); }
    Vec3 normal(std::uint32_t vertex) const { return Vec3::of(&normals[3 * std::size_t(vertex)]); }
};

/// \param mostTriangles more are simplified to about so many
/// \throws InputError the mesh is missing or its arrays do not fit together
SceneMesh sceneMesh(MeshScene const & scene, std::size_t mostTriangles);

/// A number of each vertex, such as its density, in 8 bits between two percentiles.
struct ByteRange
{
    double low = 0, high = 0;        ///< what 0 and 255 stand for
    bool lowIsLess = false;          ///< there are values below
    bool highIsMore = false;         ///< there are values above
    std::vector<std::uint8_t> bytes; ///< one a vertex of the scene mesh; 0 for what is no number
};

/// From the values of all vertices of the scene's mesh; with `fromZero`, 0 is the lower end.
ByteRange byteRange(std::vector<float> const & values, SceneMesh const & mesh, bool fromZero);

/// Which axis points upwards: z in maps and flat scenes, else y.
int upAxis(SceneMesh const & mesh);

/// A number with so many digits as a person reads: 1234.5, 0.02, 1.5e-7.
std::string plainNumber(double value, int digits);

/// 1234567 as "1 234 567", with narrow spaces.
std::string grouped(std::size_t count);

} // namespace QZmath::Viewing

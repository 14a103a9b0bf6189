// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/MeshFormats.h>
#include <QZmath/Files/Formats/PlyRows.h>

#include <cstring>
#include <string>

namespace QZmath
{

namespace
{

std::string headerOf(std::uint64_t vertices, bool isWide, bool hasNormals, bool hasColors,
                     char const * further)
{
    std::string const type = isWide ? "property double " : "property float ";
    return "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(vertices) + "\n" + type +
           "x\n" + type + "y\n" + type + "z\n" +
           (hasNormals ? "property float nx\nproperty float ny\nproperty float nz\n" : "") +
           (hasColors ? "property uchar red\nproperty uchar green\nproperty uchar blue\n" : "") + further;
}

template <class T>
char * copied(char * place, T const * values, std::size_t count)
{
    std::memcpy(place, values, count * sizeof(T));
    return place + count * sizeof(T);
}

} // namespace

void PlyVertices::write(std::size_t vertex, char * row) const
{
    float const * const local = positions + 3 * vertex;
    if (isWide()) {
        double const position[3] = {origin[0] + static_cast<double>(local[0]),
                                    origin[1] + static_cast<double>(local[1]),
                                    origin[2] + static_cast<double>(local[2])};
        row = copied(row, position, 3);
    } else {
        row = copied(row, local, 3);
    }
    if (normals != nullptr)
        row = copied(row, normals + 3 * vertex, 3);
    if (colors != nullptr)
        row = copied(row, colors + 3 * vertex, 3);
    if (density != nullptr)
        copied(row, density + vertex, 1);
}

std::string plyMeshHeader(PlyVertices const & layout, std::uint64_t vertices, std::uint64_t triangles,
                          char const * cornerType)
{
    return headerOf(vertices, layout.isWide(), layout.normals != nullptr, layout.colors != nullptr,
                    layout.density != nullptr ? "property float density\n" : "") +
           "element face " + std::to_string(triangles) + "\nproperty list uchar " + cornerType +
           " vertex_indices\nend_header\n";
}

void writePly(TriangleMesh const & mesh, ByteSink & sink)
{
    PlyVertices rows;
    rows.origin = mesh.origin;
    rows.positions = mesh.positions.data();
    rows.normals = mesh.normals.empty() ? nullptr : mesh.normals.data();
    rows.colors = mesh.colors.empty() ? nullptr : mesh.colors.data();
    rows.density = mesh.density.empty() ? nullptr : mesh.density.data();
    std::size_t const vertices = mesh.vertexCount();
    sink.text(plyMeshHeader(rows, vertices, mesh.triangleCount(), "int"));
    std::size_t const stride = rows.stride();
    if (stride == 12)
        sink.bytes(mesh.positions.data(), 12 * vertices); // as they lie in memory
    sink.forEach(stride == 12 ? 0 : vertices, stride,
                 [&](std::size_t i, ByteBlock & block) { rows.write(i, block.claim(stride)); });
    sink.forEach(mesh.triangleCount(), plyTriangleLength, [&](std::size_t i, ByteBlock & block) {
        char * const place = block.claim(plyTriangleLength);
        *place = 3;
        copied(place + 1, mesh.triangles.data() + 3 * i, 3);
    });
}

void writePly(PointCloudView const & cloud, ByteSink & sink)
{
    bool const isWide = cloud.positions == nullptr;
    sink.text(headerOf(cloud.size, isWide, cloud.normals != nullptr, cloud.colors != nullptr,
                       cloud.boundary != nullptr ? "property uchar boundary\n" : "") +
              "end_header\n");
    std::size_t const stride = (isWide ? 24 : 12) + (cloud.normals != nullptr ? 12 : 0) +
                               (cloud.colors != nullptr ? 3 : 0) + (cloud.boundary != nullptr ? 1 : 0);
    sink.forEach(cloud.size, stride, [&](std::size_t i, ByteBlock & block) {
        char * place = block.claim(stride);
        place =
            isWide ? copied(place, cloud.positions64 + 3 * i, 3) : copied(place, cloud.positions + 3 * i, 3);
        if (cloud.normals != nullptr)
            place = copied(place, cloud.normals + 3 * i, 3);
        if (cloud.colors != nullptr)
            place = copied(place, cloud.colors + 3 * i, 3);
        if (cloud.boundary != nullptr)
            *place = cloud.boundary[i] != 0 ? 1 : 0;
    });
}

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/MeshFormats.h>

#include <cstring>

namespace QZmath
{

namespace
{

void writeHeader(ByteSink & sink, std::size_t vertices, bool isWide, bool hasNormals, bool hasColors,
                 char const * further)
{
    std::string const type = isWide ? "property double " : "property float ";
    sink.text("ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(vertices) + "\n" +
              type + "x\n" + type + "y\n" + type + "z\n");
    if (hasNormals)
        sink.text("property float nx\nproperty float ny\nproperty float nz\n");
    if (hasColors)
        sink.text("property uchar red\nproperty uchar green\nproperty uchar blue\n");
    sink.text(further);
}

template <class T>
char * copied(char * place, T const * values, std::size_t count)
{
    std::memcpy(place, values, count * sizeof(T));
    return place + count * sizeof(T);
}

} // namespace

void writePly(TriangleMesh const & mesh, ByteSink & sink)
{
    bool const isWide = hasOrigin(mesh);
    std::size_t const vertices = mesh.vertexCount();
    writeHeader(sink, vertices, isWide, !mesh.normals.empty(), !mesh.colors.empty(),
                mesh.density.empty() ? "" : "property float density\n");
    sink.text("element face " + std::to_string(mesh.triangleCount()) +
              "\nproperty list uchar int vertex_indices\nend_header\n");
    std::size_t const stride = (isWide ? 24 : 12) + (mesh.normals.empty() ? 0 : 12) +
                               (mesh.colors.empty() ? 0 : 3) + (mesh.density.empty() ? 0 : 4);
    if (stride == 12)
        sink.bytes(mesh.positions.data(), 12 * vertices); // as they lie in memory
    sink.forEach(stride == 12 ? 0 : vertices, stride, [&](std::size_t i, ByteBlock & block) {
        char * place = block.claim(stride);
        float const * const local = mesh.positions.data() + 3 * i;
        if (isWide) {
            double const position[3] = {mesh.origin[0] + static_cast<double>(local[0]),
                                        mesh.origin[1] + static_cast<double>(local[1]),
                                        mesh.origin[2] + static_cast<double>(local[2])};
            place = copied(place, position, 3);
        } else {
            place = copied(place, local, 3);
        }
        if (!mesh.normals.empty())
            place = copied(place, mesh.normals.data() + 3 * i, 3);
        if (!mesh.colors.empty())
            place = copied(place, mesh.colors.data() + 3 * i, 3);
        if (!mesh.density.empty())
            copied(place, mesh.density.data() + i, 1);
    });
    std::size_t const faceLength = 13;
    sink.forEach(mesh.triangleCount(), faceLength, [&](std::size_t i, ByteBlock & block) {
        char * const place = block.claim(faceLength);
        *place = 3;
        copied(place + 1, mesh.triangles.data() + 3 * i, 3);
    });
}

void writePly(PointCloudView const & cloud, ByteSink & sink)
{
    bool const isWide = cloud.positions == nullptr;
    writeHeader(sink, cloud.size, isWide, cloud.normals != nullptr, cloud.colors != nullptr,
                cloud.boundary != nullptr ? "property uchar boundary\n" : "");
    sink.text("end_header\n");
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

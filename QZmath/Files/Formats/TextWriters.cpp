// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/MeshFormats.h>

#include <charconv>

namespace QZmath
{

namespace
{

template <class T>
void writeNumbers(ByteSink & sink, T const * values, char separator)
{
    for (int axis = 0; axis < 3; ++axis) {
        if (axis > 0)
            sink.put(separator);
        sink.number(values[axis]);
    }
}

void writePosition(ByteSink & sink, PointCloudView const & cloud, std::size_t i, char separator)
{
    if (cloud.positions != nullptr)
        writeNumbers(sink, cloud.positions + 3 * i, separator);
    else
        writeNumbers(sink, cloud.positions64 + 3 * i, separator);
}

// Shares of 1 with four digits, which is enough to get the byte back.
void writeShares(ByteSink & sink, std::uint8_t const * color)
{
    for (int channel = 0; channel < 3; ++channel) {
        char digits[16];
        auto const end = std::to_chars(digits, digits + sizeof(digits), color[channel] / 255.0,
                                       std::chars_format::fixed, 4)
                             .ptr;
        sink.put(' ');
        sink.text(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }
}

} // namespace

void writeObj(TriangleMesh const & mesh, ByteSink & sink)
{
    bool const isWide = hasOrigin(mesh);
    for (std::size_t i = 0; i < mesh.vertexCount(); ++i) {
        float const * const local = mesh.positions.data() + 3 * i;
        sink.text("v ");
        if (isWide) {
            double const position[3] = {mesh.origin[0] + static_cast<double>(local[0]),
                                        mesh.origin[1] + static_cast<double>(local[1]),
                                        mesh.origin[2] + static_cast<double>(local[2])};
            writeNumbers(sink, position, ' ');
        } else {
            writeNumbers(sink, local, ' ');
        }
        if (!mesh.colors.empty())
            writeShares(sink, mesh.colors.data() + 3 * i);
        sink.put('\n');
    }
    for (std::size_t i = 0; i < mesh.normals.size() / 3; ++i) {
        sink.text("vn ");
        writeNumbers(sink, mesh.normals.data() + 3 * i, ' ');
        sink.put('\n');
    }
    for (std::size_t i = 0; i < mesh.triangleCount(); ++i) {
        sink.put('f');
        for (std::size_t corner = 0; corner < 3; ++corner) {
            std::int64_t const index = std::int64_t(1) + mesh.triangles[3 * i + corner];
            sink.put(' ');
            sink.number(index);
            if (!mesh.normals.empty()) {
                sink.text("//");
                sink.number(index);
            }
        }
        sink.put('\n');
    }
}

void writeObj(PointCloudView const & cloud, ByteSink & sink)
{
    for (std::size_t i = 0; i < cloud.size; ++i) {
        sink.text("v ");
        writePosition(sink, cloud, i, ' ');
        if (cloud.colors != nullptr)
            writeShares(sink, cloud.colors + 3 * i);
        if (cloud.normals != nullptr) {
            sink.text("\nvn ");
            writeNumbers(sink, cloud.normals + 3 * i, ' ');
        }
        sink.put('\n');
    }
}

void writeText(PointCloudView const & cloud, char separator, ByteSink & sink)
{
    bool const isNamed = separator == ',' || cloud.colors != nullptr || cloud.boundary != nullptr;
    if (isNamed) {
        std::string names = "x y z";
        names += cloud.normals != nullptr ? " nx ny nz" : "";
        names += cloud.colors != nullptr ? " r g b" : "";
        names += cloud.boundary != nullptr ? " boundary" : "";
        for (char & letter : names)
            letter = letter == ' ' ? separator : letter;
        sink.text((separator == ',' ? "" : "# ") + names + "\n");
    }
    for (std::size_t i = 0; i < cloud.size; ++i) {
        writePosition(sink, cloud, i, separator);
        if (cloud.normals != nullptr) {
            sink.put(separator);
            writeNumbers(sink, cloud.normals + 3 * i, separator);
        }
        for (std::size_t channel = 0; cloud.colors != nullptr && channel < 3; ++channel) {
            sink.put(separator);
            sink.number(std::int64_t(cloud.colors[3 * i + channel]));
        }
        if (cloud.boundary != nullptr) {
            sink.put(separator);
            sink.put(cloud.boundary[i] != 0 ? '1' : '0');
        }
        sink.put('\n');
    }
}

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/MeshFormats.h>

#include <charconv>

namespace QZmath
{

namespace
{

template <class T>
void writeNumbers(ByteBlock & block, T const * values, char separator)
{
    for (int axis = 0; axis < 3; ++axis) {
        if (axis > 0)
            block.put(separator);
        block.number(values[axis]);
    }
}

void writePosition(ByteBlock & block, PointCloudView const & cloud, std::size_t i, char separator)
{
    if (cloud.positions != nullptr)
        writeNumbers(block, cloud.positions + 3 * i, separator);
    else
        writeNumbers(block, cloud.positions64 + 3 * i, separator);
}

// Shares of 1 with four digits, which is enough to get the byte back.
void writeShares(ByteBlock & block, std::uint8_t const * color)
{
    for (int channel = 0; channel < 3; ++channel) {
        char digits[16];
        auto const end = std::to_chars(digits, digits + sizeof(digits), color[channel] / 255.0,
                                       std::chars_format::fixed, 4)
                             .ptr;
        block.put(' ');
        block.text(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }
}

} // namespace

void writeObj(TriangleMesh const & mesh, ByteSink & sink)
{
    bool const isWide = hasOrigin(mesh);
    std::size_t const usualLength = 40;
    sink.forEach(mesh.vertexCount(), usualLength, [&](std::size_t i, ByteBlock & block) {
        float const * const local = mesh.positions.data() + 3 * i;
        block.text("v ");
        if (isWide) {
            double const position[3] = {mesh.origin[0] + static_cast<double>(local[0]),
                                        mesh.origin[1] + static_cast<double>(local[1]),
                                        mesh.origin[2] + static_cast<double>(local[2])};
            writeNumbers(block, position, ' ');
        } else {
            writeNumbers(block, local, ' ');
        }
        if (!mesh.colors.empty())
            writeShares(block, mesh.colors.data() + 3 * i);
        block.put('\n');
    });
    sink.forEach(mesh.normals.size() / 3, usualLength, [&](std::size_t i, ByteBlock & block) {
        block.text("vn ");
        writeNumbers(block, mesh.normals.data() + 3 * i, ' ');
        block.put('\n');
    });
    sink.forEach(mesh.triangleCount(), usualLength, [&](std::size_t i, ByteBlock & block) {
        block.put('f');
        for (std::size_t corner = 0; corner < 3; ++corner) {
            std::int64_t const index = std::int64_t(1) + mesh.triangles[3 * i + corner];
            block.put(' ');
            block.number(index);
            if (!mesh.normals.empty()) {
                block.text("//");
                block.number(index);
            }
        }
        block.put('\n');
    });
}

void writeObj(PointCloudView const & cloud, ByteSink & sink)
{
    std::size_t const usualLength = 70;
    sink.forEach(cloud.size, usualLength, [&](std::size_t i, ByteBlock & block) {
        block.text("v ");
        writePosition(block, cloud, i, ' ');
        if (cloud.colors != nullptr)
            writeShares(block, cloud.colors + 3 * i);
        if (cloud.normals != nullptr) {
            block.text("\nvn ");
            writeNumbers(block, cloud.normals + 3 * i, ' ');
        }
        block.put('\n');
    });
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
    std::size_t const usualLength = 70;
    sink.forEach(cloud.size, usualLength, [&](std::size_t i, ByteBlock & block) {
        writePosition(block, cloud, i, separator);
        if (cloud.normals != nullptr) {
            block.put(separator);
            writeNumbers(block, cloud.normals + 3 * i, separator);
        }
        for (std::size_t channel = 0; cloud.colors != nullptr && channel < 3; ++channel) {
            block.put(separator);
            block.number(std::int64_t(cloud.colors[3 * i + channel]));
        }
        if (cloud.boundary != nullptr) {
            block.put(separator);
            block.put(cloud.boundary[i] != 0 ? '1' : '0');
        }
        block.put('\n');
    });
}

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/MeshFormats.h>

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace QZmath
{

namespace
{

// Places of the numbers behind each other; each begins at a multiple of four bytes.
struct Layout
{
    std::uint64_t positions, normals, colors, density, triangles;

    explicit Layout(TriangleMesh const & mesh)
        : positions(4 * mesh.positions.size()), normals(4 * mesh.normals.size()),
          colors(8 * (mesh.colors.size() / 3)), density(4 * mesh.density.size()),
          triangles(4 * mesh.triangles.size())
    {}
    std::uint64_t sum() const { return positions + normals + colors + density + triangles; }
};

template <class T>
std::string numeral(T value)
{
    char digits[32];
    return std::string(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr);
}

std::string triple(std::array<double, 3> const & values)
{
    return "[" + numeral(values[0]) + "," + numeral(values[1]) + "," + numeral(values[2]) + "]";
}

// A name as part of an address.
std::string percentEncoded(std::string_view name)
{
    static char const digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (char const letter : name) {
        bool const isPlain = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                             (letter >= '0' && letter <= '9') || letter == '.' || letter == '-' ||
                             letter == '_';
        auto const byte = static_cast<unsigned char>(letter);
        encoded += isPlain ? std::string(1, letter) : std::string{'%', digits[byte >> 4], digits[byte & 15u]};
    }
    return encoded;
}

// The bounds of the positions, which the format demands.
std::string bounds(TriangleMesh const & mesh)
{
    std::array<float, 3> low{}, high{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        low[axis] = std::numeric_limits<float>::infinity();
        high[axis] = -low[axis];
    }
    for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
        float const value = mesh.positions[i];
        if (!std::isfinite(value))
            throw OutputError("the mesh has a position that is not finite, which glTF cannot hold");
        low[i % 3] = std::min(low[i % 3], value);
        high[i % 3] = std::max(high[i % 3], value);
    }
    return "\"min\":[" + numeral(low[0]) + "," + numeral(low[1]) + "," + numeral(low[2]) + "],\"max\":[" +
           numeral(high[0]) + "," + numeral(high[1]) + "," + numeral(high[2]) + "]";
}

// The parts of the JSON text that grow with the attributes.
class Parts
{
public:
    // One more array of numbers; returns its index.
    std::string add(std::uint64_t bytes, std::uint64_t count, char const * type, int component,
                    std::string const & further, int target)
    {
        std::string const index = std::to_string(m_count++);
        m_views += (m_views.empty() ? "" : ",") + std::string("{\"buffer\":0,\"byteOffset\":") +
                   std::to_string(m_bytes) + ",\"byteLength\":" + std::to_string(bytes) +
                   ",\"target\":" + std::to_string(target) + "}";
        m_accessors += (m_accessors.empty() ? "" : ",") + std::string("{\"bufferView\":") + index +
                       ",\"componentType\":" + std::to_string(component) +
                       ",\"count\":" + std::to_string(count) + ",\"type\":\"" + type + "\"" + further + "}";
        m_bytes += bytes;
        return index;
    }
    std::string const & views() const { return m_views; }
    std::string const & accessors() const { return m_accessors; }

private:
    int m_count = 0;
    std::uint64_t m_bytes = 0;
    std::string m_views, m_accessors;
};

// Nodes around the mesh. A viewer keeps their places in single precision, so the origin is divided: the outer
// node has what a float can hold of it, the inner one the rest.
std::string nodesOf(TriangleMesh const & mesh)
{
    if (!hasOrigin(mesh))
        return "[{\"mesh\":0}]";
    std::array<double, 3> outer{}, inner{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!(std::fabs(mesh.origin[axis]) < 1e30))
            throw OutputError("the mesh has an origin that glTF cannot hold");
        outer[axis] = static_cast<double>(static_cast<float>(mesh.origin[axis]));
        inner[axis] = static_cast<double>(static_cast<float>(mesh.origin[axis] - outer[axis]));
    }
    return "[{\"children\":[1],\"translation\":" + triple(outer) +
           "},{\"mesh\":0,\"translation\":" + triple(inner) + "}]";
}

std::string description(TriangleMesh const & mesh, std::string const & uri)
{
    int const floats = 5126, shorts = 5123, ints = 5125; // component types
    int const vertexData = 34962, indexData = 34963;     // targets
    Layout const layout(mesh);
    std::uint64_t const vertices = mesh.vertexCount();
    Parts parts;
    std::string attributes = "\"POSITION\":" + parts.add(layout.positions, vertices, "VEC3", floats,
                                                         "," + bounds(mesh), vertexData);
    if (!mesh.normals.empty())
        attributes += ",\"NORMAL\":" + parts.add(layout.normals, vertices, "VEC3", floats, "", vertexData);
    if (!mesh.colors.empty())
        attributes += ",\"COLOR_0\":" +
                      parts.add(layout.colors, vertices, "VEC4", shorts, ",\"normalized\":true", vertexData);
    if (!mesh.density.empty())
        attributes +=
            ",\"_DENSITY\":" + parts.add(layout.density, vertices, "SCALAR", floats, "", vertexData);
    std::string const indices =
        parts.add(layout.triangles, mesh.triangles.size(), "SCALAR", ints, "", indexData);
    return "{\"asset\":{\"version\":\"2.0\",\"generator\":\"QZmath\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}"
           "],"
           "\"nodes\":" +
           nodesOf(mesh) + ",\"meshes\":[{\"primitives\":[{\"attributes\":{" + attributes +
           "},\"indices\":" + indices +
           ",\"material\":0,\"mode\":4}]}],\"materials\":[{\"pbrMetallicRoughness\":{\"metallicFactor\":0,"
           "\"roughnessFactor\":0.8},\"doubleSided\":true}],\"buffers\":[{" +
           (uri.empty() ? "" : "\"uri\":\"" + uri + "\",") +
           "\"byteLength\":" + std::to_string(layout.sum()) + "}],\"bufferViews\":[" + parts.views() +
           "],\"accessors\":[" + parts.accessors() + "]}";
}

// Bytes in sRGB to 16 bits in linear light, which keeps them apart.
std::array<std::uint16_t, 256> linearLight()
{
    std::array<std::uint16_t, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        double const share = static_cast<double>(i) / 255;
        double const light = share <= 0.04045 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
        table[i] = static_cast<std::uint16_t>(std::lround(light * 65535));
    }
    return table;
}

// A format for surfaces: nothing in it may be empty.
void checkNotEmpty(TriangleMesh const & mesh)
{
    if (mesh.positions.empty() || mesh.triangles.empty())
        throw OutputError("the mesh is empty, which glTF does not allow; write it as .ply");
}

} // namespace

void writeGltfNumbers(TriangleMesh const & mesh, ByteSink & sink)
{
    sink.bytes(mesh.positions.data(), 4 * mesh.positions.size());
    sink.bytes(mesh.normals.data(), 4 * mesh.normals.size());
    std::array<std::uint16_t, 256> const light = linearLight();
    sink.forEach(mesh.colors.size() / 3, 8, [&](std::size_t i, ByteBlock & block) {
        std::uint8_t const * const bytes = mesh.colors.data() + 3 * i;
        std::uint16_t const color[4] = {light[bytes[0]], light[bytes[1]], light[bytes[2]], 65535};
        block.bytes(color, sizeof(color));
    });
    sink.bytes(mesh.density.data(), 4 * mesh.density.size());
    sink.bytes(mesh.triangles.data(), 4 * mesh.triangles.size());
}

void writeGltf(TriangleMesh const & mesh, std::string const & nameOfNumbers, ByteSink & sink)
{
    checkNotEmpty(mesh);
    sink.text(description(mesh, percentEncoded(nameOfNumbers)));
    sink.put('\n');
}

void writeGlb(TriangleMesh const & mesh, ByteSink & sink)
{
    checkNotEmpty(mesh);
    std::string text = description(mesh, "");
    text.resize((text.size() + 3) / 4 * 4, ' ');
    std::uint64_t const numbers = Layout(mesh).sum();
    std::uint64_t const total = 12 + 8 + text.size() + 8 + numbers;
    if (total > std::numeric_limits<std::uint32_t>::max())
        throw OutputError("the mesh takes " + std::to_string(total) +
                          " bytes, and a .glb holds 4294967295 at most; write it as .gltf or .ply");
    sink.text("glTF");
    sink.put(std::uint32_t(2));
    sink.put(static_cast<std::uint32_t>(total));
    sink.put(static_cast<std::uint32_t>(text.size()));
    sink.text("JSON");
    sink.text(text);
    sink.put(static_cast<std::uint32_t>(numbers));
    sink.text(std::string_view("BIN\0", 4));
    writeGltfNumbers(mesh, sink);
}

} // namespace QZmath

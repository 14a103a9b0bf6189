// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PointCloud.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <lzf.h>

/// Clouds as files of all forms, written by other means than the library's.
namespace qz_test
{

/// The sentence of the `InputError` that `read` throws, empty when there is none.
template <class Read>
std::string complaintOf(Read read)
{
    try {
        read();
    } catch (QZmath::InputError const & error) {
        return error.what();
    }
    return std::string();
}

struct Parts
{
    bool wide, normals, colors, boundary;
};

inline QZmath::PointCloud randomCloud(std::size_t size, Parts parts, unsigned seed)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    QZmath::PointCloud cloud;
    for (std::size_t i = 0; i < 3 * size; ++i) {
        if (parts.wide)
            cloud.positions64.push_back(5e6 + 100 * uniform(engine));
        else
            cloud.positions.push_back(static_cast<float>(100 * uniform(engine)));
        if (parts.normals)
            cloud.normals.push_back(static_cast<float>(uniform(engine)));
        if (parts.colors)
            cloud.colors.push_back(static_cast<std::uint8_t>(engine() % 256));
    }
    for (std::size_t i = 0; parts.boundary && i < size; ++i)
        cloud.boundary.push_back(engine() % 3 == 0);
    return cloud;
}

/// Numbers as text or as bytes of either order.
class Body
{
public:
    explicit Body(std::string const & encoding)
        : m_isText(encoding == "ascii"), m_isReversed(encoding == "binary_big_endian")
    {}
    template <class T>
    void add(T value)
    {
        std::ostringstream text;
        text << std::setprecision(sizeof(T) == 8 ? 17 : 9) << +value << (bytes.size() % 3 ? "  " : "\t");
        char raw[sizeof(T)];
        std::memcpy(raw, &value, sizeof(T));
        if (m_isReversed)
            std::reverse(raw, raw + sizeof(T));
        bytes += m_isText ? text.str() : std::string(raw, sizeof(T));
    }
    void endLine(bool isForeign) { bytes += !m_isText ? "" : isForeign ? "\r\n" : "\n"; }

    std::string bytes;

private:
    bool m_isText, m_isReversed;
};

/// A number of a point and the type that it is written as.
struct Column
{
    std::string name, type;
    double (*value)(QZmath::PointCloud const &, std::size_t point);
};

template <int Axis>
double positionOf(QZmath::PointCloud const & cloud, std::size_t i)
{
    return cloud.positions.empty() ? cloud.positions64[3 * i + Axis]
                                   : static_cast<double>(cloud.positions[3 * i + Axis]);
}
template <int Axis>
double normalOf(QZmath::PointCloud const & cloud, std::size_t i)
{
    return static_cast<double>(cloud.normals[3 * i + Axis]);
}
template <int Channel, int Scale>
double colorOf(QZmath::PointCloud const & cloud, std::size_t i)
{
    double const byte = cloud.colors[3 * i + Channel];
    return Scale == 0 ? byte / 255 : Scale * byte;
}

inline void addNumber(Body & body, double value, std::string const & type)
{
    if (type == "double")
        body.add(value);
    else if (type == "float")
        body.add(static_cast<float>(value));
    else if (type == "ushort")
        body.add(static_cast<std::uint16_t>(value));
    else if (type == "int")
        body.add(static_cast<std::int32_t>(value));
    else
        body.add(static_cast<std::uint8_t>(value));
}

/// A PLY file with everything around the points that a reader has to skip: an element with a list before, a
/// list and foreign properties among the vertex's own, faces behind. Order and types depend on the seed.
inline std::string plyFile(QZmath::PointCloud const & cloud, std::string const & encoding, unsigned seed)
{
    std::mt19937 engine(seed);
    std::string const real = cloud.positions.empty() || engine() % 2 ? "double" : "float";
    std::vector<Column> columns = {
        {"x", real, positionOf<0>},
        {"y", real, positionOf<1>},
        {"z", real, positionOf<2>},
        {"quality", "float", [](QZmath::PointCloud const &, std::size_t) { return 0.5; }},
        {"weights", "list", nullptr}};
    if (!cloud.normals.empty())
        for (Column const & column : {Column{"nx", "float", normalOf<0>}, Column{"ny", "double", normalOf<1>},
                                      Column{"nz", "float", normalOf<2>}})
            columns.push_back(column);
    std::array<std::array<Column, 3>, 3> const colors = {{{{{"red", "uchar", colorOf<0, 1>},
                                                            {"green", "uchar", colorOf<1, 1>},
                                                            {"blue", "uchar", colorOf<2, 1>}}},
                                                          {{{"r", "ushort", colorOf<0, 257>},
                                                            {"g", "ushort", colorOf<1, 257>},
                                                            {"b", "ushort", colorOf<2, 257>}}},
                                                          {{{"diffuse_red", "float", colorOf<0, 0>},
                                                            {"diffuse_green", "float", colorOf<1, 0>},
                                                            {"diffuse_blue", "float", colorOf<2, 0>}}}}};
    if (!cloud.colors.empty())
        for (Column const & column : colors[engine() % 3])
            columns.push_back(column);
    if (!cloud.boundary.empty())
        columns.push_back(
            {"boundary", engine() % 2 ? "uchar" : "int",
             [](QZmath::PointCloud const & c, std::size_t i) { return static_cast<double>(c.boundary[i]); }});
    std::shuffle(columns.begin(), columns.end(), engine);
    std::ostringstream header;
    header << "ply\nformat " << encoding << " 1.0\ncomment made for a test\nobj_info none\n"
           << "element camera 2\nproperty list uchar int views\nproperty float gain\n"
           << "element vertex " << cloud.size() << "\n";
    for (Column const & column : columns)
        header << "property " << (column.value ? column.type : "list ushort float") << ' ' << column.name
               << '\n';
    header << "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    Body body(encoding);
    for (int camera = 0; camera < 2; ++camera) {
        body.add(std::uint8_t(3 * camera));
        for (int view = 0; view < 3 * camera; ++view)
            body.add(std::int32_t(view));
        body.add(0.5f);
        body.endLine(false);
    }
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        for (Column const & column : columns) {
            if (column.value) {
                addNumber(body, column.value(cloud, i), column.type);
                continue;
            }
            body.add(std::uint16_t(i % 3));
            for (std::size_t weight = 0; weight < i % 3; ++weight)
                body.add(0.25f);
        }
        body.endLine(i % 2);
    }
    body.add(std::uint8_t(0));
    body.endLine(false);
    return header.str() + body.bytes;
}

/// A PCD file with a foreign field of three numbers, its fields in an order that depends on the seed.
inline std::string pcdFile(QZmath::PointCloud const & cloud, std::string const & encoding, unsigned seed)
{
    std::mt19937 engine(seed);
    std::string const real = cloud.positions.empty() || engine() % 2 ? "double" : "float";
    std::vector<Column> columns = {{"x", real, positionOf<0>},
                                   {"y", real, positionOf<1>},
                                   {"z", real, positionOf<2>},
                                   {"histogram", "ushort", nullptr}};
    if (!cloud.normals.empty())
        for (Column const & column :
             {Column{"normal_x", "float", normalOf<0>}, Column{"normal_y", "float", normalOf<1>},
              Column{"normal_z", "float", normalOf<2>}})
            columns.push_back(column);
    auto const packed = [](QZmath::PointCloud const & c, std::size_t i) {
        return 65536.0 * c.colors[3 * i] + 256.0 * c.colors[3 * i + 1] + c.colors[3 * i + 2];
    };
    if (!cloud.colors.empty())
        columns.push_back({engine() % 2 ? "rgb" : "rgba", "int", packed});
    if (!cloud.boundary.empty())
        columns.push_back({"boundary", "uchar", [](QZmath::PointCloud const & c, std::size_t i) {
                               return static_cast<double>(c.boundary[i]);
                           }});
    std::shuffle(columns.begin(), columns.end(), engine);
    std::ostringstream header;
    header << "# .PCD v0.7 - made for a test\nVERSION 0.7\n";
    auto const line = [&](char const * keyword, auto const & word) {
        header << keyword;
        for (Column const & column : columns)
            header << ' ' << word(column);
        header << '\n';
    };
    line("FIELDS", [](Column const & c) { return c.name; });
    line("SIZE", [](Column const & c) {
        return c.type == "double" ? 8 : c.type == "ushort" ? 2 : c.type == "uchar" ? 1 : 4;
    });
    line("TYPE", [](Column const & c) { return c.type == "double" || c.type == "float" ? 'F' : 'U'; });
    line("COUNT", [](Column const & c) { return c.value ? 1 : 3; });
    header << "WIDTH " << cloud.size() << "\nHEIGHT 1\nVIEWPOINT 1 2 3 1 0 0 0\nPOINTS " << cloud.size()
           << "\nDATA " << encoding << '\n';
    Body body(encoding);
    auto const add = [&](Column const & column, std::size_t i) {
        if (column.value)
            addNumber(body, column.value(cloud, i), column.type);
        for (int k = 0; !column.value && k < 3; ++k)
            body.add(std::uint16_t(k));
    };
    if (encoding != "binary_compressed") {
        for (std::size_t i = 0; i < cloud.size(); ++i) {
            for (Column const & column : columns)
                add(column, i);
            body.endLine(i % 2);
        }
        return header.str() + body.bytes;
    }
    for (Column const & column : columns)
        for (std::size_t i = 0; i < cloud.size(); ++i)
            add(column, i);
    auto const size = static_cast<unsigned>(body.bytes.size());
    std::string compressed(2 * size + 16, '\0');
    unsigned const length = lzf_compress(body.bytes.data(), size, compressed.data(), 2 * size + 16);
    Body sizes("binary");
    sizes.add(std::uint32_t(length));
    sizes.add(std::uint32_t(size));
    return header.str() + sizes.bytes + compressed.substr(0, length);
}

/// A LAS file of one of the formats 0 to 10: positions in steps of 0.001, colours of 16 bits, and every tenth
/// point once more as one that is withheld. Some bytes stand before the points and behind each.
inline std::string lasFile(QZmath::PointCloud const & cloud, unsigned format)
{
    static constexpr std::size_t lengths[] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
    static constexpr std::size_t colors[] = {0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};
    std::size_t const minor = format < 4 ? 2 : format < 6 ? 3 : 4;
    std::size_t const headerLength = minor == 2 ? 227 : minor == 3 ? 235 : 375;
    std::size_t const length = lengths[format] + 3;
    std::string bytes(headerLength + 54, '\0');
    auto const put = [&](std::size_t place, auto value) {
        std::memcpy(bytes.data() + place, &value, sizeof(value));
    };
    std::uint32_t points = 0;
    for (std::size_t i = 0; i < cloud.size(); ++i)
        for (int copy = 0; copy < (i % 10 == 0 ? 2 : 1); ++copy) {
            std::size_t const start = bytes.size();
            bytes.resize(start + length, '\x11');
            for (std::size_t axis = 0; axis < 3; ++axis) {
                put(start + 4 * axis,
                    static_cast<std::int32_t>(std::lround((cloud.positions64[3 * i + axis] - 5e6) / 0.001)));
                if (colors[format] != 0 && !cloud.colors.empty())
                    put(start + colors[format] + 2 * axis, std::uint16_t(257 * cloud.colors[3 * i + axis]));
            }
            put(start + 15, std::uint8_t(copy == 0 ? 1 : format < 6 ? 0x82 : 0x04));
            ++points;
        }
    bytes.replace(0, 4, "LASF");
    put(24, std::uint8_t(1));
    put(25, std::uint8_t(minor));
    put(94, std::uint16_t(headerLength));
    put(96, std::uint32_t(headerLength + 54));
    put(104, std::uint8_t(format));
    put(105, std::uint16_t(length));
    put(107, minor == 4 ? 0u : points);
    if (minor == 4)
        put(247, std::uint64_t(points));
    for (std::size_t axis = 0; axis < 3; ++axis) {
        put(131 + 8 * axis, 0.001);
        put(155 + 8 * axis, 5e6);
    }
    return bytes;
}

/// A text file with a comment that names its columns.
inline std::string textFile(QZmath::PointCloud const & cloud, std::string const & separator)
{
    std::ostringstream text;
    text << "\xef\xbb\xbf// x y z" << (cloud.normals.empty() ? "" : " Nx Ny Nz")
         << (cloud.colors.empty() ? "" : " R G B") << (cloud.boundary.empty() ? "" : " boundary") << "\n\n";
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        text << std::setprecision(cloud.positions.empty() ? 17 : 9) << positionOf<0>(cloud, i) << separator
             << positionOf<1>(cloud, i) << separator << positionOf<2>(cloud, i) << std::setprecision(9);
        for (std::size_t axis = 0; axis < 3 && !cloud.normals.empty(); ++axis)
            text << separator << cloud.normals[3 * i + axis];
        for (std::size_t channel = 0; channel < 3 && !cloud.colors.empty(); ++channel)
            text << separator << int(cloud.colors[3 * i + channel]);
        if (!cloud.boundary.empty())
            text << separator << int(cloud.boundary[i]);
        text << (i % 4 ? "\n" : " # odd one\r\n");
    }
    return text.str();
}

} // namespace qz_test

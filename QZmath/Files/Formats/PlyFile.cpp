// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/CloudColumns.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Streams/Words.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace QZmath
{

namespace
{

enum class Scalar
{
    int8,
    uint8,
    int16,
    uint16,
    int32,
    uint32,
    float32,
    float64
};

std::size_t sizeOf(Scalar type)
{
    static std::size_t const sizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
    return sizes[static_cast<int>(type)];
}

Scalar scalarNamed(std::string_view name)
{
    static constexpr std::array<std::string_view, 8> oldNames = {"char", "uchar", "short", "ushort",
                                                                 "int",  "uint",  "float", "double"};
    static constexpr std::array<std::string_view, 8> newNames = {"int8",  "uint8",  "int16",   "uint16",
                                                                 "int32", "uint32", "float32", "float64"};
    for (std::size_t i = 0; i < oldNames.size(); ++i)
        if (name == oldNames[i] || name == newNames[i])
            return static_cast<Scalar>(i);
    throw InputError("the header has a property of the unknown type \"" + quotable(name) + "\"");
}

enum class Encoding
{
    ascii,
    littleEndian,
    bigEndian
};

template <class T>
double decodeAs(char const * bytes, bool reversed)
{
    char copy[sizeof(T)];
    if (reversed)
        std::reverse_copy(bytes, bytes + sizeof(T), copy);
    else
        std::memcpy(copy, bytes, sizeof(T));
    T value;
    std::memcpy(&value, copy, sizeof(T));
    return static_cast<double>(value);
}

double decode(char const * bytes, Scalar type, bool reversed)
{
    switch (type) {
    case Scalar::int8:
        return decodeAs<std::int8_t>(bytes, reversed);
    case Scalar::uint8:
        return decodeAs<std::uint8_t>(bytes, reversed);
    case Scalar::int16:
        return decodeAs<std::int16_t>(bytes, reversed);
    case Scalar::uint16:
        return decodeAs<std::uint16_t>(bytes, reversed);
    case Scalar::int32:
        return decodeAs<std::int32_t>(bytes, reversed);
    case Scalar::uint32:
        return decodeAs<std::uint32_t>(bytes, reversed);
    case Scalar::float32:
        return decodeAs<float>(bytes, reversed);
    case Scalar::float64:
        break;
    }
    return decodeAs<double>(bytes, reversed);
}

// What the properties of a vertex are to us, in the order of their places in a row.
enum Role : int
{
    none = -1,
    position = 0,
    normal = 3,
    color = 6,
    boundary = 9,
    density = 10,
    roles = 11
};

int roleOf(std::string_view name)
{
    static constexpr std::pair<std::string_view, int> names[] = {{"x", position},
                                                                 {"y", position + 1},
                                                                 {"z", position + 2},
                                                                 {"nx", normal},
                                                                 {"ny", normal + 1},
                                                                 {"nz", normal + 2},
                                                                 {"normal_x", normal},
                                                                 {"normal_y", normal + 1},
                                                                 {"normal_z", normal + 2},
                                                                 {"red", color},
                                                                 {"green", color + 1},
                                                                 {"blue", color + 2},
                                                                 {"diffuse_red", color},
                                                                 {"diffuse_green", color + 1},
                                                                 {"diffuse_blue", color + 2},
                                                                 {"r", color},
                                                                 {"g", color + 1},
                                                                 {"b", color + 2},
                                                                 {"boundary", boundary},
                                                                 {"density", density}};
    for (auto const & [known, role] : names)
        if (name == known)
            return role;
    return none;
}

struct Row
{
    std::array<double, roles> values{};
    bool isFloatEnough = true;   // for the digits of the position, in ascii
    std::vector<double> corners; // of the list that says what a face is made of
};

struct Property
{
    Scalar type = Scalar::uint8;
    bool isList = false;
    Scalar countType = Scalar::uint8; // of a list
    int role = none;
    bool isCorners = false; // the list of a face's vertices
};

struct Element
{
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;

    bool has(int role) const
    {
        return std::any_of(properties.begin(), properties.end(),
                           [&](Property const & p) { return p.role == role; });
    }
    bool hasThree(int role) const { return has(role) && has(role + 1) && has(role + 2); }

    bool hasLists() const
    {
        return std::any_of(properties.begin(), properties.end(), [](Property const & p) { return p.isList; });
    }

    // Bytes of one instance; of its shortest form if it has lists.
    std::uint64_t leastSize(Encoding encoding) const
    {
        if (encoding == Encoding::ascii)
            return std::max<std::uint64_t>(1, 2 * properties.size()); // a digit and a separator each
        std::uint64_t size = 0;
        for (Property const & property : properties)
            size += sizeOf(property.isList ? property.countType : property.type);
        return size;
    }
};

struct Header
{
    Encoding encoding = Encoding::ascii;
    std::vector<Element> elements;
};

Header readHeader(ByteSource & source)
{
    // Far above any real file; keeps the work on a hostile header small.
    std::size_t const mostProperties = 4096;
    std::size_t const mostElements = 256;
    std::uint64_t const longestHeader = 1 << 20;

    std::string_view line;
    if (!source.readLine(line) || takeWord(line) != "ply")
        throw InputError("the input is not a PLY file");

    Header header;
    bool formatKnown = false;
    std::size_t propertyNumber = 0;
    for (;;) {
        if (source.position() > longestHeader)
            throw InputError("the header is longer than " + std::to_string(longestHeader) + " bytes");
        if (!source.readLine(line))
            throw InputError("the input is truncated inside the header");
        std::string_view const keyword = takeWord(line);
        if (keyword == "end_header")
            break;
        if (keyword == "format") {
            std::string_view const name = takeWord(line);
            formatKnown = true;
            if (name == "ascii")
                header.encoding = Encoding::ascii;
            else if (name == "binary_little_endian")
                header.encoding = Encoding::littleEndian;
            else if (name == "binary_big_endian")
                header.encoding = Encoding::bigEndian;
            else
                formatKnown = false;
        } else if (keyword == "element") {
            Element element;
            element.name = std::string(takeWord(line));
            long long count = 0;
            if (!parseNumber(takeWord(line), count) || count < 0)
                throw InputError("the header has an element without a count");
            element.count = static_cast<std::uint64_t>(count);
            if (header.elements.size() == mostElements)
                throw InputError("the header has more than " + std::to_string(mostElements) + " elements");
            header.elements.push_back(std::move(element));
        } else if (keyword == "property") {
            if (header.elements.empty())
                throw InputError("the header has a property before the first element");
            if (++propertyNumber > mostProperties)
                throw InputError("the header has more than " + std::to_string(mostProperties) +
                                 " properties");
            Property property;
            std::string_view type = takeWord(line);
            property.isList = type == "list";
            if (property.isList) {
                property.countType = scalarNamed(takeWord(line));
                if (property.countType == Scalar::float32 || property.countType == Scalar::float64)
                    throw InputError("the header has a list whose length is not a whole number");
                type = takeWord(line);
            }
            property.type = scalarNamed(type);
            std::string_view const name = takeWord(line);
            property.role = property.isList ? none : roleOf(name);
            property.isCorners = property.isList && (name == "vertex_indices" || name == "vertex_index");
            header.elements.back().properties.push_back(property);
        } else if (!keyword.empty() && keyword != "comment" && keyword != "obj_info") {
            throw InputError("the header has the unknown keyword \"" + quotable(keyword) + "\"");
        }
    }
    if (!formatKnown)
        throw InputError("the header names no known format");
    return header;
}

ColorColumn::Range colorRangeOf(Element const & vertices)
{
    for (Property const & property : vertices.properties)
        if (property.role == color)
            return property.type == Scalar::uint8 ? ColorColumn::Range::bytes
                   : property.type == Scalar::float32 || property.type == Scalar::float64
                       ? ColorColumn::Range::share
                       : ColorColumn::Range::whole;
    return ColorColumn::Range::bytes;
}

[[noreturn]] void throwTruncated(Element const & element, std::uint64_t found)
{
    throw InputError("the input is truncated: the header promises " + std::to_string(element.count) +
                     " instances of \"" + quotable(element.name) + "\", the file ends after " +
                     std::to_string(found));
}

// Reads the instances of one element, one after the other.
class ElementReader
{
public:
    ElementReader(ByteSource & source, Element const & element, Encoding encoding)
        : m_source(source), m_element(element), m_encoding(encoding),
          m_reversed(encoding == Encoding::bigEndian) // the host is little-endian
    {
        std::size_t offset = 0;
        for (Property const & property : element.properties) {
            if (property.role >= 0)
                m_fields.push_back({offset, property.type, property.role});
            offset += sizeOf(property.type);
        }
        m_stride = offset;
        m_fixed = encoding != Encoding::ascii && !element.hasLists() && m_stride <= ByteSource::st_window;
    }

    // False when the source ends first.
    bool readInto(Row & row)
    {
        if (m_fixed)
            return readFixed(row);
        return m_encoding == Encoding::ascii ? readLine(row) : readWithLists(row);
    }

private:
    struct Field
    {
        std::size_t offset;
        Scalar type;
        int role;
    };

    bool readFixed(Row & row)
    {
        std::string_view const bytes = m_source.peek(m_stride);
        if (bytes.size() < m_stride)
            return false;
        for (Field const & field : m_fields)
            row.values[static_cast<std::size_t>(field.role)] =
                decode(bytes.data() + field.offset, field.type, m_reversed);
        m_source.skip(m_stride);
        return true;
    }

    bool readScalar(Scalar type, double & value)
    {
        std::string_view const bytes = m_source.peek(sizeOf(type));
        if (bytes.size() < sizeOf(type))
            return false;
        value = decode(bytes.data(), type, m_reversed);
        m_source.skip(bytes.size());
        return true;
    }

    bool readWithLists(Row & row)
    {
        for (Property const & property : m_element.properties) {
            double value = 0.0;
            if (!readScalar(property.isList ? property.countType : property.type, value))
                return false;
            if (property.isList) {
                if (value < 0)
                    throwNegative();
                if (!readList(property, static_cast<std::uint64_t>(value), row))
                    return false;
            } else if (property.role >= 0) {
                row.values[static_cast<std::size_t>(property.role)] = value;
            }
        }
        return true;
    }

    bool readList(Property const & property, std::uint64_t count, Row & row)
    {
        std::size_t const size = sizeOf(property.type);
        if (property.isCorners) {
            row.corners.clear();
            for (std::uint64_t i = 0; i < count; ++i) {
                double value = 0.0;
                if (!readScalar(property.type, value))
                    return false;
                row.corners.push_back(value);
            }
            return true;
        }
        std::uint64_t const end = m_source.position() + count * size;
        m_source.skip(count * size);
        return m_source.position() == end;
    }

    bool readLine(Row & row)
    {
        std::string_view line;
        std::string_view rest;
        do { // blank lines carry no instance
            if (!m_source.readLine(line))
                return false;
            rest = line;
        } while (takeWord(rest).empty() && !m_element.properties.empty());
        for (Property const & property : m_element.properties) {
            double value = 0.0;
            std::string_view const word = takeWord(line);
            if (!parseNumber(word, value))
                throwBadLine();
            if (property.isList) {
                if (value < 0)
                    throwNegative();
                row.corners.clear();
                for (double left = value; left >= 1.0; left -= 1.0) {
                    double corner = 0.0;
                    std::string_view const item = takeWord(line);
                    if (item.empty() || (property.isCorners && !parseNumber(item, corner)))
                        throwBadLine();
                    if (property.isCorners)
                        row.corners.push_back(corner);
                }
            } else if (property.role >= 0) {
                row.values[static_cast<std::size_t>(property.role)] = value;
                if (property.role < normal && !isFloatEnough(word, value))
                    row.isFloatEnough = false;
            }
        }
        return true;
    }

    [[noreturn]] void throwNegative() const
    {
        throw InputError("a list of the element \"" + quotable(m_element.name) + "\" has a negative length");
    }

    [[noreturn]] void throwBadLine() const
    {
        throw InputError("line " + std::to_string(m_source.lineNumber()) +
                         (m_source.peek(1).empty() ? ", the last of a truncated file," : "") +
                         " does not hold the numbers that the header promises");
    }

    ByteSource & m_source;
    Element const & m_element;
    Encoding m_encoding;
    bool m_reversed;
    bool m_fixed;
    std::size_t m_stride;
    std::vector<Field> m_fields;
};

void skipElement(ByteSource & source, Element const & element, Encoding encoding, ReadingProgress & reading)
{
    ElementReader reader(source, element, encoding);
    Row ignored;
    for (std::uint64_t i = 0; i < element.count; ++i) {
        if (!reader.readInto(ignored))
            throwTruncated(element, i);
        reading.update();
    }
}

void readVertices(ByteSource & source, Element const & element, Encoding encoding, ReadingProgress & reading,
                  VertexData & data)
{
    if (!element.hasThree(position))
        throw InputError("the vertices have no properties x, y and z");
    bool const hasNormals = element.hasThree(normal);
    bool const hasColors = element.hasThree(color);
    bool const hasMarks = element.has(boundary);
    bool const hasDensity = element.has(density);
    if (element.count > static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
        throw InputError("the input has more than 2147483647 points");

    PointCloud & cloud = data.points;
    std::size_t const room = source.worthReserving(element.count);
    PositionColumn positions(encoding == Encoding::ascii ? PositionColumn::Origin::text
                                                         : PositionColumn::Origin::numbers);
    positions.reserve(room);
    ColorColumn colors(colorRangeOf(element));
    if (hasColors)
        colors.reserve(room);
    if (hasNormals)
        cloud.normals.reserve(3 * room);
    if (hasMarks)
        cloud.boundary.reserve(room);
    ElementReader reader(source, element, encoding);
    Row row;
    for (std::uint64_t i = 0; i < element.count; ++i) {
        row.isFloatEnough = true;
        if (!reader.readInto(row))
            throwTruncated(element, i);
        positions.add(row.values.data(), row.isFloatEnough);
        if (hasNormals)
            for (std::size_t axis = 0; axis < 3; ++axis)
                cloud.normals.push_back(static_cast<float>(row.values[normal + axis]));
        if (hasColors)
            colors.add(row.values.data() + color);
        if (hasMarks)
            cloud.boundary.push_back(row.values[boundary] != 0.0);
        if (hasDensity)
            data.density.push_back(static_cast<float>(row.values[density]));
        reading.update();
    }
    positions.moveTo(cloud);
    if (hasColors)
        cloud.colors = colors.finish();
}

void readFaces(ByteSource & source, Element const & element, Encoding encoding, ReadingProgress & reading,
               VertexData & data)
{
    ElementReader reader(source, element, encoding);
    Row row;
    data.triangles.reserve(3 * source.worthReserving(element.count));
    for (std::uint64_t i = 0; i < element.count; ++i) {
        row.corners.clear();
        if (!reader.readInto(row))
            throwTruncated(element, i);
        for (double const corner : row.corners)
            if (!(corner >= 0 && corner <= std::numeric_limits<std::int32_t>::max()))
                throw InputError("the face at index " + std::to_string(i) +
                                 ", counted from 0, has the vertex " + std::to_string(corner) +
                                 ", which there is not");
        for (std::size_t corner = 2; corner < row.corners.size(); ++corner)
            for (std::size_t const used : {std::size_t(0), corner - 1, corner})
                data.triangles.push_back(static_cast<std::int32_t>(row.corners[used]));
        reading.update();
    }
}

} // namespace

VertexData readPly(ByteSource & source, ReadingProgress & reading, Wanted wanted)
{
    Header const header = readHeader(source);
    VertexData data;
    bool hasVertices = false;
    for (Element const & element : header.elements) {
        // Before any memory is taken, the count must fit into what is left of the source.
        std::uint64_t const leastSize = element.leastSize(header.encoding);
        if (!source.mayHold(element.count, leastSize))
            throwTruncated(element, source.remaining() / leastSize);
        if (element.name == "vertex" && !hasVertices) {
            hasVertices = true;
            readVertices(source, element, header.encoding, reading, data);
            if (wanted == Wanted::points)
                return data; // what follows, faces for instance, does not matter
        } else if (element.name == "face" && wanted == Wanted::mesh) {
            readFaces(source, element, header.encoding, reading, data);
        } else if (leastSize > 0) {
            skipElement(source, element, header.encoding, reading);
        }
    }
    if (!hasVertices)
        throw InputError("the header has no vertices");
    return data;
}

} // namespace QZmath

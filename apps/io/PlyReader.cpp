// SPDX-License-Identifier: Apache-2.0
#include <apps/io/CloudReaderDetail.h>
#include <apps/io/InputError.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace qz_io
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
    throw InputError("the header has a property of the unknown type \"" + std::string(name.substr(0, 40)) +
                     "\"");
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

// What a property of a vertex is to us: an index of `Row`, or nothing.
int roleOf(std::string_view name)
{
    static constexpr std::array<std::string_view, 7> names = {"x", "y", "z", "nx", "ny", "nz", "boundary"};
    auto const found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? -1 : static_cast<int>(found - names.begin());
}

// x y z nx ny nz and the boundary mark of one vertex.
using Row = std::array<double, 7>;

struct Property
{
    Scalar type = Scalar::uint8;
    bool isList = false;
    Scalar countType = Scalar::uint8; // of a list
    int role = -1;
};

struct Element
{
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;

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
            property.role = property.isList ? -1 : roleOf(takeWord(line));
            header.elements.back().properties.push_back(property);
        } else if (!keyword.empty() && keyword != "comment" && keyword != "obj_info") {
            throw InputError("the header has the unknown keyword \"" + std::string(keyword.substr(0, 40)) +
                             "\"");
        }
    }
    if (!formatKnown)
        throw InputError("the header names no known format");
    return header;
}

[[noreturn]] void throwTruncated(Element const & element, std::uint64_t found)
{
    throw InputError("the input is truncated: the header promises " + std::to_string(element.count) +
                     " instances of \"" + element.name.substr(0, 40) + "\", the file ends after " +
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
            row[static_cast<std::size_t>(field.role)] =
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
                double const bytes = value * static_cast<double>(sizeOf(property.type));
                if (!(bytes >= 0.0) || bytes > static_cast<double>(m_source.remaining()))
                    return false;
                m_source.skip(static_cast<std::uint64_t>(bytes));
            } else if (property.role >= 0) {
                row[static_cast<std::size_t>(property.role)] = value;
            }
        }
        return true;
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
            if (!parseNumber(takeWord(line), value))
                throwBadLine();
            if (property.isList) {
                for (double left = value; left >= 1.0; left -= 1.0)
                    if (takeWord(line).empty())
                        throwBadLine();
            } else if (property.role >= 0) {
                row[static_cast<std::size_t>(property.role)] = value;
            }
        }
        return true;
    }

    [[noreturn]] void throwBadLine() const
    {
        throw InputError("line " + std::to_string(m_source.lineNumber()) +
                         (m_source.remaining() == 0 ? ", the last of a truncated file," : "") +
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
    if (encoding != Encoding::ascii && !element.hasLists()) {
        source.skip(element.count * element.leastSize(encoding)); // checked against the size before
        return;
    }
    ElementReader reader(source, element, encoding);
    Row ignored{};
    for (std::uint64_t i = 0; i < element.count; ++i) {
        if (!reader.readInto(ignored))
            throwTruncated(element, i);
        reading.update();
    }
}

} // namespace

PointCloud readPly(ByteSource & source, CProgressCounter * progress, InputNormals wanted)
{
    Header const header = readHeader(source);
    ReadingProgress reading(source, progress);
    for (Element const & element : header.elements) {
        // Before any memory is taken, the count must fit into what is left of the source.
        std::uint64_t const leastSize = element.leastSize(header.encoding);
        if (leastSize > 0 && element.count > (source.remaining() + 1) / leastSize)
            throwTruncated(element, source.remaining() / leastSize);
        if (element.name != "vertex") {
            if (leastSize > 0)
                skipElement(source, element, header.encoding, reading);
            continue;
        }

        unsigned present = 0;
        for (Property const & property : element.properties)
            if (property.role >= 0)
                present |= 1u << property.role;
        if ((present & 7u) != 7u)
            throw InputError("the vertices have no properties x, y and z");
        bool const hasNormals = (present & 0x38u) == 0x38u;
        if (!hasNormals && wanted == InputNormals::required)
            throw InputError("the input has no normals: the vertices lack properties nx, ny and nz");
        if (element.count > static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
            throw InputError("the input has more than 2147483647 points");

        PointCloud cloud;
        auto const count = static_cast<std::size_t>(element.count);
        cloud.coords.reserve(3 * count);
        if (hasNormals)
            cloud.normals.reserve(3 * count);
        bool const marked = (present & 0x40u) != 0;
        if (marked)
            cloud.boundary.reserve(count);
        ElementReader reader(source, element, header.encoding);
        for (std::uint64_t i = 0; i < element.count; ++i) {
            Row row{};
            if (!reader.readInto(row))
                throwTruncated(element, i);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                cloud.coords.push_back(static_cast<float>(row[axis]));
                if (hasNormals)
                    cloud.normals.push_back(static_cast<float>(row[3 + axis]));
            }
            if (marked)
                cloud.boundary.push_back(row[6] != 0.0);
            reading.update();
        }
        return cloud; // what follows, faces for instance, does not matter
    }
    throw InputError("the header has no vertices");
}

} // namespace qz_io

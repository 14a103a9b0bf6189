// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/CloudColumns.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Formats/PointShare.h>
#include <QZmath/Files/Streams/SourceBlocks.h>
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
    throw InputError(truncatedElement(element.name, element.count, found));
}

// What a property of instances of equal size is to us.
struct Field
{
    std::size_t offset;
    Scalar type;
    int role;
};

// Where the properties of the instances lie that have no lists and are not text.
struct Layout
{
    std::vector<Field> fields;
    std::size_t stride = 0;
    bool isFixed = false; // or they are not of this kind
    bool isReversed = false;

    Layout(Element const & element, Encoding encoding)
        : isReversed(encoding == Encoding::bigEndian) // the host is little-endian
    {
        for (Property const & property : element.properties) {
            if (property.role >= 0)
                fields.push_back({stride, property.type, property.role});
            stride += sizeOf(property.type);
        }
        isFixed = encoding != Encoding::ascii && !element.hasLists() && stride <= ByteSource::st_window;
    }

    void readInto(Row & row, char const * bytes) const
    {
        for (Field const & field : fields)
            row.values[static_cast<std::size_t>(field.role)] =
                decode(bytes + field.offset, field.type, isReversed);
    }
};

// Reads the instances of one element, one after the other.
class ElementReader
{
public:
    ElementReader(ByteSource & source, Element const & element, Encoding encoding)
        : m_source(source), m_element(element), m_encoding(encoding), m_layout(element, encoding)
    {}

    // False when the source ends first.
    bool readInto(Row & row)
    {
        if (m_layout.isFixed)
            return readFixed(row);
        return m_encoding == Encoding::ascii ? readLine(row) : readWithLists(row);
    }

private:
    bool readFixed(Row & row)
    {
        std::string_view const bytes = m_source.peek(m_layout.stride);
        if (bytes.size() < m_layout.stride)
            return false;
        m_layout.readInto(row, bytes.data());
        m_source.skip(m_layout.stride);
        return true;
    }

    bool readScalar(Scalar type, double & value)
    {
        std::string_view const bytes = m_source.peek(sizeOf(type));
        if (bytes.size() < sizeOf(type))
            return false;
        value = decode(bytes.data(), type, m_layout.isReversed);
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
    Layout m_layout;
};

// The numbers of one property of many instances, as numbers of another type.
template <class T, class Target, class Convert>
void decodeColumnAs(std::string_view bytes, Field const & field, Layout const & layout, Target * target,
                    std::size_t step, Convert const & convert)
{
    for (std::size_t place = field.offset; place < bytes.size(); place += layout.stride, target += step)
        *target = convert(decodeAs<T>(bytes.data() + place, layout.isReversed));
}

template <class Target, class Convert>
void decodeColumn(std::string_view bytes, Field const & field, Layout const & layout, Target * target,
                  std::size_t step, Convert const & convert)
{
    switch (field.type) {
    case Scalar::int8:
        return decodeColumnAs<std::int8_t>(bytes, field, layout, target, step, convert);
    case Scalar::uint8:
        return decodeColumnAs<std::uint8_t>(bytes, field, layout, target, step, convert);
    case Scalar::int16:
        return decodeColumnAs<std::int16_t>(bytes, field, layout, target, step, convert);
    case Scalar::uint16:
        return decodeColumnAs<std::uint16_t>(bytes, field, layout, target, step, convert);
    case Scalar::int32:
        return decodeColumnAs<std::int32_t>(bytes, field, layout, target, step, convert);
    case Scalar::uint32:
        return decodeColumnAs<std::uint32_t>(bytes, field, layout, target, step, convert);
    case Scalar::float32:
        return decodeColumnAs<float>(bytes, field, layout, target, step, convert);
    case Scalar::float64:
        return decodeColumnAs<double>(bytes, field, layout, target, step, convert);
    }
}

// What is wanted of the vertices.
class VertexColumns
{
public:
    VertexColumns(Element const & element, Encoding encoding)
        : m_hasNormals(element.hasThree(normal)), m_hasColors(element.hasThree(color)),
          m_hasMarks(element.has(boundary)), m_hasDensity(element.has(density)),
          m_isPlain(areNumbersPlain(element)),
          m_positions(encoding == Encoding::ascii ? PositionColumn::Origin::text
                                                  : PositionColumn::Origin::numbers),
          m_colors(colorRangeOf(element))
    {}

    void reserve(std::size_t room)
    {
        m_positions.reserve(room);
        if (m_hasColors)
            m_colors.reserve(room);
        if (m_hasNormals)
            m_normals.reserve(3 * room);
        if (m_hasMarks)
            m_marks.reserve(room);
    }
    std::size_t size() const { return m_positions.size(); }

    void add(Row const & row)
    {
        m_positions.add(row.values.data(), row.isFloatEnough);
        if (m_hasNormals)
            for (std::size_t axis = 0; axis < 3; ++axis)
                m_normals.push_back(static_cast<float>(row.values[normal + axis]));
        if (m_hasColors)
            m_colors.add(row.values.data() + color);
        if (m_hasMarks)
            m_marks.push_back(row.values[boundary] != 0.0);
        if (m_hasDensity)
            m_density.push_back(static_cast<float>(row.values[density]));
    }

    // Instances of equal size.
    void add(std::string_view bytes, Layout const & layout)
    {
        if (m_isPlain)
            return addColumns(bytes, layout);
        Row row;
        for (std::size_t place = 0; place < bytes.size(); place += layout.stride) {
            layout.readInto(row, bytes.data() + place);
            add(row);
        }
    }

    void append(VertexColumns const & other)
    {
        auto const appendTo = [](auto & all, auto const & part) {
            all.insert(all.end(), part.begin(), part.end());
        };
        m_positions.append(other.m_positions);
        m_colors.append(other.m_colors);
        appendTo(m_normals, other.m_normals);
        appendTo(m_marks, other.m_marks);
        appendTo(m_density, other.m_density);
    }
    void clear()
    {
        m_positions.clear();
        m_colors.clear();
        m_normals.clear();
        m_marks.clear();
        m_density.clear();
    }

    void moveTo(VertexData & data, PointShare * share)
    {
        if (share != nullptr) {
            share->foundColor = m_colors.greatest();
            m_colors.expect(share->greatestColor);
        }
        m_positions.moveTo(data.points);
        if (m_hasColors)
            data.points.colors = m_colors.finish();
        data.points.normals = std::move(m_normals);
        data.points.boundary = std::move(m_marks);
        data.density = std::move(m_density);
    }

private:
    // Positions that floats hold as they are, and colours of bytes: then a column is read after the other.
    static bool areNumbersPlain(Element const & element)
    {
        return std::all_of(
            element.properties.begin(), element.properties.end(), [](Property const & property) {
                bool const isFloat = property.type != Scalar::int32 && property.type != Scalar::uint32 &&
                                     property.type != Scalar::float64;
                bool const isPosition = property.role >= position && property.role < normal;
                bool const isColor = property.role >= color && property.role < boundary;
                return isPosition ? isFloat : !isColor || property.type == Scalar::uint8;
            });
    }

    void addColumns(std::string_view bytes, Layout const & layout)
    {
        auto const asFloat = [](double value) { return static_cast<float>(value); };
        auto const asByte = [](double value) { return static_cast<std::uint8_t>(value); };
        auto const asMark = [](double value) { return static_cast<std::uint8_t>(value != 0.0); };
        std::size_t const count = bytes.size() / layout.stride;
        float * const places = m_positions.addFloats(count);
        m_normals.resize(m_normals.size() + (m_hasNormals ? 3 * count : 0));
        float * const normals = m_normals.data() + m_normals.size() - (m_hasNormals ? 3 * count : 0);
        std::uint8_t * const colors = m_hasColors ? m_colors.addBytes(count) : nullptr;
        m_marks.resize(m_marks.size() + (m_hasMarks ? count : 0));
        m_density.resize(m_density.size() + (m_hasDensity ? count : 0));
        for (Field const & field : layout.fields) {
            if (field.role < normal)
                decodeColumn(bytes, field, layout, places + field.role, 3, asFloat);
            else if (field.role < color && m_hasNormals)
                decodeColumn(bytes, field, layout, normals + (field.role - normal), 3, asFloat);
            else if (field.role >= color && field.role < boundary && m_hasColors)
                decodeColumn(bytes, field, layout, colors + (field.role - color), 3, asByte);
            else if (field.role == boundary)
                decodeColumn(bytes, field, layout, m_marks.data() + m_marks.size() - count, 1, asMark);
            else if (field.role == density)
                decodeColumn(bytes, field, layout, m_density.data() + m_density.size() - count, 1, asFloat);
        }
    }

    bool m_hasNormals, m_hasColors, m_hasMarks, m_hasDensity, m_isPlain;
    PositionColumn m_positions;
    ColorColumn m_colors;
    std::vector<float> m_normals, m_density;
    std::vector<std::uint8_t> m_marks;
};

void skipElement(ByteSource & source, Element const & element, Encoding encoding, ReadingProgress & reading)
{
    Layout const layout(element, encoding);
    if (layout.isFixed && source.isSizeKnown() && element.count <= source.remaining() / layout.stride)
        return source.skip(element.count * layout.stride);
    ElementReader reader(source, element, encoding);
    Row ignored;
    for (std::uint64_t i = 0; i < element.count; ++i) {
        if (!reader.readInto(ignored))
            throwTruncated(element, i);
        reading.update();
    }
}

void readVertices(ByteSource & source, Element const & element, Encoding encoding, ReadingProgress & reading,
                  VertexData & data, PointShare * share)
{
    if (!element.hasThree(position))
        throw InputError("the vertices have no properties x, y and z");
    Layout const layout(element, encoding);
    RowRange rows{0, element.count};
    if (share != nullptr && layout.isFixed) {
        rows = rowsOf(*share, source.position(), layout.stride, element.count);
        source.skip(rows.first * layout.stride);
    } else if (share != nullptr) {
        double const all = static_cast<double>(source.remaining());
        source.cutLines(share->begin, share->end, share->countsLines);
        share->promise = PointShare::Promise::vertices;
        share->promised = static_cast<std::int64_t>(element.count);
        rows.count = static_cast<std::uint64_t>(static_cast<double>(element.count) *
                                                static_cast<double>(source.remaining()) / std::max(all, 1.0));
    }
    if (rows.count > static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
        throw InputError("the input has more than 2147483647 points");

    VertexColumns const none(element, encoding);
    VertexColumns columns = none;
    columns.reserve(source.worthReserving(rows.count));
    SourceBlocks blocks(source);
    if (layout.isFixed) {
        auto const readBlock = [&](std::string_view bytes, VertexColumns & part) { part.add(bytes, layout); };
        std::uint64_t const found =
            blocks.readEqual(rows.count, layout.stride, columns, none, readBlock, [&] { reading.update(); });
        if (found < rows.count)
            throwTruncated(element, rows.first + found);
        return columns.moveTo(data, share);
    }

    ElementReader reader(source, element, encoding);
    Row row;
    auto const readBy = [&](std::uint64_t end) {
        while (columns.size() < element.count && source.position() < end) {
            row.isFloatEnough = true;
            if (!reader.readInto(row)) {
                if (share != nullptr)
                    return false;
                throwTruncated(element, columns.size());
            }
            columns.add(row);
            reading.update();
        }
        return columns.size() < element.count;
    };
    auto const readBlock = [&](ByteSource & block, VertexColumns & part) {
        ElementReader blockReader(block, element, encoding);
        Row blockRow;
        while (blockReader.readInto(blockRow)) {
            part.add(blockRow);
            blockRow.isFloatEnough = true;
        }
    };
    auto const append = [&](VertexColumns const & part) {
        // A block that goes beyond the vertices is read up to them.
        if (columns.size() + part.size() >= element.count)
            return false;
        columns.append(part);
        reading.update();
        return true;
    };
    if (encoding != Encoding::ascii || blocks.readLines(none, readBlock, append, readBy))
        readBy(std::numeric_limits<std::uint64_t>::max());
    columns.moveTo(data, share);
}

// Whether a range of bytes tells which vertices are there: in rows of one size it does, of text when nothing
// else is in the file.
bool canBeCut(Header const & header)
{
    bool isAlone = true;
    Element const * vertices = nullptr;
    for (Element const & element : header.elements) {
        if (element.name == "vertex" && vertices == nullptr)
            vertices = &element;
        else
            isAlone = isAlone && element.count == 0;
    }
    return vertices != nullptr &&
           (Layout(*vertices, header.encoding).isFixed || (header.encoding == Encoding::ascii && isAlone));
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

VertexData readPly(ByteSource & source, ReadingProgress & reading, Wanted wanted, PointShare * share)
{
    Header const header = readHeader(source);
    VertexData data;
    if (share != nullptr) {
        share->isCut = canBeCut(header);
        if (!share->isCut && share->begin > 0)
            return data;
        if (!share->isCut)
            share = nullptr;
    }
    bool hasVertices = false;
    for (Element const & element : header.elements) {
        // Before any memory is taken, the count must fit into what is left of the source.
        std::uint64_t const leastSize = element.leastSize(header.encoding);
        if (!source.mayHold(element.count, leastSize))
            throwTruncated(element, source.remaining() / leastSize);
        if (element.name == "vertex" && !hasVertices) {
            hasVertices = true;
            readVertices(source, element, header.encoding, reading, data, share);
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

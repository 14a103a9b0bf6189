// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/CloudColumns.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Streams/SourceBlocks.h>
#include <QZmath/Files/Streams/Words.h>

#include <lzf.h>

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

// What a field is to us: the place in a row.
enum Role : int
{
    none = -1,
    position = 0,
    normal = 3,
    boundary = 6,
    color = 7, // red, green and blue in the bytes of one number
    roles = 8
};

int roleOf(std::string_view name)
{
    static constexpr std::pair<std::string_view, int> names[] = {
        {"x", position},        {"y", position + 1},          {"z", position + 2},
        {"normal_x", normal},   {"normal_y", normal + 1},     {"normal_z", normal + 2},
        {"nx", normal},         {"ny", normal + 1},           {"nz", normal + 2},
        {"boundary", boundary}, {"boundary_point", boundary}, {"rgb", color},
        {"rgba", color}};
    for (auto const & [known, role] : names)
        if (name == known)
            return role;
    return none;
}

struct Field
{
    std::size_t size = 4;
    char type = 'F'; // signed, unsigned, floating: I, U, F
    std::size_t count = 1;
    int role = none;
    std::size_t offset = 0; // in a point
};

struct Header
{
    std::vector<Field> fields;
    std::size_t stride = 0; // bytes of a point
    std::uint64_t width = 0, height = 1, points = 0;
    std::optional<std::array<double, 3>> viewpoint;
    std::string encoding;

    bool has(int role) const
    {
        return std::any_of(fields.begin(), fields.end(), [&](Field const & f) { return f.role == role; });
    }
    bool hasThree(int role) const { return has(role) && has(role + 1) && has(role + 2); }
};

std::uint64_t takeCount(std::string_view line, char const * keyword)
{
    long long count = 0;
    if (!parseNumber(takeWord(line), count) || count < 0)
        throw InputError(std::string("the header has no number behind ") + keyword);
    return static_cast<std::uint64_t>(count);
}

void readFieldLine(std::string_view keyword, std::string_view line, std::vector<Field> & fields)
{
    std::size_t const mostFields = 1000;
    if (keyword == "FIELDS" || keyword == "COLUMNS") {
        fields.clear();
        for (std::string_view name = takeWord(line); !name.empty(); name = takeWord(line)) {
            Field field;
            field.role = roleOf(name);
            bool const isTwice =
                field.role != none && std::any_of(fields.begin(), fields.end(),
                                                  [&](Field const & f) { return f.role == field.role; });
            if (isTwice || fields.size() == mostFields)
                throw InputError("the header has " + (isTwice ? "the field \"" + quotable(name) + "\" twice"
                                                              : "more than 1000 fields"));
            fields.push_back(field);
        }
        return;
    }
    for (Field & field : fields) {
        std::string_view const word = takeWord(line);
        long long number = 0;
        if (keyword == "TYPE") {
            if (word != "I" && word != "U" && word != "F")
                throw InputError("the header has the unknown type \"" + quotable(word) + "\"");
            field.type = word.front();
            continue;
        }
        long long const most = keyword == "SIZE" ? 8 : 1 << 16;
        if (!parseNumber(word, number) || number < 1 || number > most)
            throw InputError("the header has \"" + quotable(word) + "\" behind " + quotable(keyword));
        (keyword == "SIZE" ? field.size : field.count) = static_cast<std::size_t>(number);
    }
}

Header readHeader(ByteSource & source)
{
    std::uint64_t const longestHeader = 1 << 20;
    Header header;
    bool hasPoints = false;
    std::string_view line;
    while (header.encoding.empty()) {
        if (!source.readLine(line) || source.position() > longestHeader)
            throw InputError("the input is truncated inside the header, or no PCD file");
        std::string_view const keyword = takeWord(line);
        if (keyword.empty() || keyword.front() == '#' || keyword == "VERSION") {
            continue;
        } else if (keyword == "FIELDS" || keyword == "COLUMNS" || keyword == "SIZE" || keyword == "TYPE" ||
                   keyword == "COUNT") {
            readFieldLine(keyword, line, header.fields);
        } else if (keyword == "WIDTH") {
            header.width = takeCount(line, "WIDTH");
        } else if (keyword == "HEIGHT") {
            header.height = takeCount(line, "HEIGHT");
        } else if (keyword == "POINTS") {
            header.points = takeCount(line, "POINTS");
            hasPoints = true;
        } else if (keyword == "VIEWPOINT") {
            std::array<double, 3> place{};
            bool isPlace = true;
            for (double & coordinate : place)
                isPlace = parseNumber(takeWord(line), coordinate) && std::isfinite(coordinate) && isPlace;
            if (isPlace &&
                place != std::array<double, 3>{}) // nothing but zeros is written where it is not known
                header.viewpoint = place;
        } else if (keyword == "DATA") {
            header.encoding = std::string(takeWord(line).substr(0, 40));
        } else {
            throw InputError("the header has the unknown keyword \"" + quotable(keyword) + "\"");
        }
    }
    bool const isTooMany =
        header.height != 0 && header.width > std::numeric_limits<std::uint64_t>::max() / header.height;
    if (!hasPoints && !isTooMany)
        header.points = header.width * header.height;
    if (isTooMany || header.points > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
        throw InputError("the input has more than 2147483647 points");
    for (Field & field : header.fields) {
        bool const isKnown = field.size == 1 || field.size == 2 || field.size == 4 || field.size == 8;
        if (!isKnown || (field.type == 'F' && field.size < 4))
            throw InputError("the header has a field of type " + std::string(1, field.type) + " and " +
                             std::to_string(field.size) + " bytes, which there is not");
        if (field.role != none && field.count != 1)
            throw InputError("the header has a coordinate, normal or colour with a count other than 1");
        if (field.role == color && field.size < 4)
            throw InputError("the header has a colour of fewer than four bytes");
        field.offset = header.stride;
        header.stride += field.size * field.count;
    }
    if (!header.hasThree(position))
        throw InputError("the points have no fields x, y and z");
    if (header.stride > ByteSource::st_window)
        throw InputError("the points are longer than " + std::to_string(ByteSource::st_window) +
                         " bytes each");
    return header;
}

template <class T>
double decodeAs(char const * bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof(T)); // the files are little-endian, as the host
    return static_cast<double>(value);
}

double decode(char const * bytes, Field const & field)
{
    if (field.role == color) // whatever its type says, the bytes count
        return decodeAs<std::uint32_t>(bytes);
    switch (field.size) {
    case 1:
        return field.type == 'I' ? decodeAs<std::int8_t>(bytes) : decodeAs<std::uint8_t>(bytes);
    case 2:
        return field.type == 'I' ? decodeAs<std::int16_t>(bytes) : decodeAs<std::uint16_t>(bytes);
    case 4:
        return field.type == 'F'   ? decodeAs<float>(bytes)
               : field.type == 'I' ? decodeAs<std::int32_t>(bytes)
                                   : decodeAs<std::uint32_t>(bytes);
    default:
        return field.type == 'F'   ? decodeAs<double>(bytes)
               : field.type == 'I' ? decodeAs<std::int64_t>(bytes)
                                   : decodeAs<std::uint64_t>(bytes);
    }
}

// Takes rows and makes points of them.
class Points
{
public:
    explicit Points(Header const & header)
        : m_hasNormals(header.hasThree(normal)), m_hasColors(header.has(color)),
          m_hasMarks(header.has(boundary)),
          m_positions(header.encoding == "ascii" ? PositionColumn::Origin::text
                                                 : PositionColumn::Origin::numbers)
    {
        m_cloud.viewpoint = header.viewpoint;
    }

    void reserve(std::size_t room)
    {
        m_positions.reserve(room);
        if (m_hasNormals)
            m_cloud.normals.reserve(3 * room);
        if (m_hasColors)
            m_cloud.colors.reserve(3 * room);
    }

    void add(std::array<double, roles> const & row, bool isFloatEnough)
    {
        if (std::isnan(row[0]) || std::isnan(row[1]) || std::isnan(row[2])) {
            ++m_leftOut;
            return;
        }
        m_positions.add(row.data(), isFloatEnough);
        if (m_hasNormals)
            for (std::size_t axis = 0; axis < 3; ++axis) // an estimate that failed is no number
                m_cloud.normals.push_back(
                    std::isnan(row[normal + axis]) ? 0 : static_cast<float>(row[normal + axis]));
        if (m_hasColors) {
            auto const packed = static_cast<std::uint32_t>(row[color]);
            for (int shift : {16, 8, 0})
                m_cloud.colors.push_back(static_cast<std::uint8_t>(packed >> shift & 255u));
        }
        if (m_hasMarks)
            m_cloud.boundary.push_back(row[boundary] != 0);
    }

    // Those of the same header, behind its own.
    void append(Points const & other)
    {
        m_positions.append(other.m_positions);
        appendTo(m_cloud.normals, other.m_cloud.normals);
        appendTo(m_cloud.colors, other.m_cloud.colors);
        appendTo(m_cloud.boundary, other.m_cloud.boundary);
        m_leftOut += other.m_leftOut;
    }
    void clear()
    {
        m_positions.clear();
        m_cloud.normals.clear();
        m_cloud.colors.clear();
        m_cloud.boundary.clear();
        m_leftOut = 0;
    }

    std::uint64_t rows() const { return m_positions.size() + m_leftOut; }

    PointCloud finish()
    {
        m_positions.moveTo(m_cloud);
        if (m_leftOut > 0)
            m_cloud.notes.push_back(std::to_string(m_leftOut) + (m_leftOut == 1 ? " point" : " points") +
                                    " without coordinates " + (m_leftOut == 1 ? "is" : "are") + " left out");
        return std::move(m_cloud);
    }

private:
    template <class Value>
    static void appendTo(std::vector<Value> & all, std::vector<Value> const & more)
    {
        all.insert(all.end(), more.begin(), more.end());
    }

    bool m_hasNormals, m_hasColors, m_hasMarks;
    PositionColumn m_positions;
    PointCloud m_cloud;
    std::size_t m_leftOut = 0;
};

[[noreturn]] void throwTruncated(Header const & header, std::uint64_t found)
{
    throw InputError("the input is truncated: the header promises " + std::to_string(header.points) +
                     " points, the file ends after " + std::to_string(found));
}

void addLine(std::string_view line, Header const & header, ByteSource const & source, Points & points)
{
    std::string_view rest = line;
    if (takeWord(rest).empty())
        return;
    std::array<double, roles> row{};
    bool isFloatEnough = true;
    for (Field const & field : header.fields)
        for (std::size_t k = 0; k < field.count; ++k) {
            std::string_view const word = takeWord(line);
            double value = 0;
            if (word.empty() || (field.role != none && !parseNumber(word, value)))
                throw InputError("line " + std::to_string(source.lineNumber()) +
                                 " does not hold the numbers that the header promises");
            if (field.role == none)
                continue;
            if (field.role < normal && !QZmath::isFloatEnough(word, value))
                isFloatEnough = false;
            if (field.role == color) {
                float const asFloat = static_cast<float>(value);
                std::uint32_t packed = 0;
                if (field.type == 'F')
                    std::memcpy(&packed, &asFloat, sizeof(packed));
                else if (std::fabs(value) <= std::numeric_limits<std::uint32_t>::max())
                    packed = static_cast<std::uint32_t>(static_cast<std::int64_t>(value));
                value = packed;
            }
            row[static_cast<std::size_t>(field.role)] = value;
        }
    points.add(row, isFloatEnough);
}

void readAscii(ByteSource & source, Header const & header, ReadingProgress & reading, Points & points)
{
    std::string_view line;
    auto const readBy = [&](std::uint64_t end) {
        while (points.rows() < header.points && source.position() < end) {
            if (!source.readLine(line))
                throwTruncated(header, points.rows());
            addLine(line, header, source, points);
            reading.update();
        }
        return points.rows() < header.points;
    };
    auto const readBlock = [&](ByteSource & block, Points & part) {
        for (std::string_view blockLine; block.readLine(blockLine);)
            addLine(blockLine, header, block, part);
    };
    auto const append = [&](Points const & part) {
        if (points.rows() + part.rows() > header.points) // something else follows the points
            return false;
        points.append(part);
        reading.update();
        return true;
    };
    if (SourceBlocks(source).readLines(Points(header), readBlock, append, readBy))
        readBy(std::numeric_limits<std::uint64_t>::max());
}

void readBinary(ByteSource & source, Header const & header, ReadingProgress & reading, Points & points)
{
    auto const readBlock = [&](std::string_view bytes, Points & part) {
        for (; !bytes.empty(); bytes.remove_prefix(header.stride)) {
            std::array<double, roles> row{};
            for (Field const & field : header.fields)
                if (field.role != none)
                    row[static_cast<std::size_t>(field.role)] = decode(bytes.data() + field.offset, field);
            part.add(row, true);
        }
    };
    std::uint64_t const found = SourceBlocks(source).readEqual(
        header.points, header.stride, points, Points(header), readBlock, [&] { reading.update(); });
    if (found < header.points)
        throwTruncated(header, found);
}

// The points compressed as one block, in which each field stands for itself.
void readCompressed(ByteSource & source, Header const & header, Points & points)
{
    std::uint32_t sizes[2] = {0, 0}; // compressed, expanded
    std::string_view const bytes = source.peek(sizeof(sizes));
    if (bytes.size() < sizeof(sizes))
        throwTruncated(header, 0);
    std::memcpy(sizes, bytes.data(), sizeof(sizes));
    source.skip(sizeof(sizes));
    if (sizes[1] != header.points * header.stride)
        throw InputError("the compressed points are of " + std::to_string(sizes[1]) +
                         " bytes, and the header promises " + std::to_string(header.points * header.stride));
    // Three bytes expand to 264 at most.
    std::uint64_t const mostExpansion = 88;
    std::vector<char> compressed;
    if (source.mayHold(sizes[0], 1))
        source.read(sizes[0], compressed);
    if (compressed.size() < sizes[0])
        throwTruncated(header, 0);
    bool const isPossible = sizes[1] <= mostExpansion * (sizes[0] + std::uint64_t(1));
    std::vector<char> expanded(isPossible ? sizes[1] : 0);
    if (!isPossible ||
        (sizes[1] > 0 && lzf_decompress(compressed.data(), sizes[0], expanded.data(), sizes[1]) != sizes[1]))
        throw InputError("the compressed points are damaged");
    std::vector<char>().swap(compressed);
    for (std::size_t i = 0; i < header.points; ++i) {
        std::array<double, roles> row{};
        for (Field const & field : header.fields)
            if (field.role != none)
                row[static_cast<std::size_t>(field.role)] =
                    decode(expanded.data() + field.offset * header.points + i * field.size, field);
        points.add(row, true);
    }
}

} // namespace

PointCloud readPcd(ByteSource & source, ReadingProgress & reading)
{
    Header const header = readHeader(source);
    bool const isAscii = header.encoding == "ascii";
    bool const isCompressed = header.encoding == "binary_compressed";
    if (!isAscii && !isCompressed && header.encoding != "binary")
        throw InputError("the points are encoded as \"" + quotable(header.encoding) +
                         "\"; known are ascii, binary and binary_compressed");
    std::uint64_t const each = isAscii ? 2 * header.fields.size() : header.stride;
    if (!isCompressed && !source.mayHold(header.points, each))
        throwTruncated(header, source.remaining() / each);
    if (isCompressed && !source.mayHold(header.points * header.stride / 88, 1))
        throwTruncated(header, 0);
    Points points(header);
    points.reserve(source.worthReserving(header.points));
    if (isAscii)
        readAscii(source, header, reading, points);
    else if (isCompressed)
        readCompressed(source, header, points);
    else
        readBinary(source, header, reading, points);
    return points.finish();
}

} // namespace QZmath

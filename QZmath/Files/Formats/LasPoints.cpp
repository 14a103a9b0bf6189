// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/CloudColumns.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Formats/PointShare.h>
#include <QZmath/Files/Streams/SourceBlocks.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace QZmath
{

namespace
{

// A point record by its format: its least length and where its colour stands.
struct Record
{
    std::size_t length;
    std::size_t color; // 0: it has none
};
constexpr Record st_records[] = {{20, 0}, {28, 0},  {26, 20}, {34, 28}, {57, 0}, {63, 28},
                                 {30, 0}, {36, 30}, {38, 30}, {59, 0},  {67, 30}};
constexpr unsigned st_formats = sizeof(st_records) / sizeof(st_records[0]);

template <class T>
T at(std::string_view bytes, std::size_t offset)
{
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof(T)); // the files are little-endian, as the host
    return value;
}

struct Header
{
    std::uint32_t pointsOffset = 0;
    unsigned format = 0;
    std::size_t length = 0; // of a record
    std::uint64_t points = 0;
    double scale[3], offset[3];
};

Header readHeader(ByteSource & source)
{
    std::size_t const oldLength = 227; // up to LAS 1.2
    std::size_t const newLength = 375; // LAS 1.4
    std::string_view const bytes = source.peek(newLength);
    if (bytes.substr(0, 4) != "LASF")
        throw InputError("the input is not a LAS file");
    if (bytes.size() < oldLength)
        throw InputError("the input is truncated inside the header");
    unsigned const major = at<std::uint8_t>(bytes, 24);
    unsigned const minor = at<std::uint8_t>(bytes, 25);
    if (major != 1 || minor > 4)
        throw InputError("the input is of LAS " + std::to_string(major) + "." + std::to_string(minor) +
                         "; known are 1.0 to 1.4");
    Header header;
    header.pointsOffset = at<std::uint32_t>(bytes, 96);
    header.format = at<std::uint8_t>(bytes, 104);
    if ((header.format & 0xc0u) != 0)
        throw InputError("the points are compressed, as in LAZ: write them as LAS first, for instance by "
                         "\"pdal translate scan.laz scan.las\"");
    if (header.format >= st_formats)
        throw InputError("the points are of the format " + std::to_string(header.format) +
                         "; known are 0 to 10");
    header.length = at<std::uint16_t>(bytes, 105);
    if (header.length < st_records[header.format].length)
        throw InputError("the points have " + std::to_string(header.length) + " bytes each, and format " +
                         std::to_string(header.format) + " needs " +
                         std::to_string(st_records[header.format].length));
    header.points = at<std::uint32_t>(bytes, 107);
    if (minor == 4) {
        if (bytes.size() < newLength)
            throw InputError("the input is truncated inside the header");
        std::uint64_t const points = at<std::uint64_t>(bytes, 247);
        header.points = points != 0 ? points : header.points;
    }
    if (header.pointsOffset < (minor == 4 ? newLength : oldLength))
        throw InputError("the header says that the points begin inside it");
    for (std::size_t axis = 0; axis < 3; ++axis) {
        header.scale[axis] = at<double>(bytes, 131 + 8 * axis);
        header.offset[axis] = at<double>(bytes, 155 + 8 * axis);
        if (!std::isfinite(header.scale[axis]) || header.scale[axis] == 0 ||
            !std::isfinite(header.offset[axis]))
            throw InputError("the header has a scale or offset that is no number to reckon with");
    }
    return header;
}

[[noreturn]] void throwTruncated(Header const & header, std::uint64_t found)
{
    throw InputError("the input is truncated: the header promises " + std::to_string(header.points) +
                     " points, the file ends after " + std::to_string(found));
}

struct LasColumns
{
    PositionColumn positions{PositionColumn::Origin::wide};
    ColorColumn colors{ColorColumn::Range::whole};
    std::size_t withheld = 0;

    void append(LasColumns const & other)
    {
        positions.append(other.positions);
        colors.append(other.colors);
        withheld += other.withheld;
    }
    void clear()
    {
        positions.clear();
        colors.clear();
        withheld = 0;
    }
};

// The mark of a point that is to count as deleted.
bool isWithheld(std::string_view bytes, unsigned format)
{
    unsigned const flags = at<std::uint8_t>(bytes, 15);
    return (flags & (format < 6 ? 0x80u : 0x04u)) != 0;
}

} // namespace

std::string noteOnWithheld(std::size_t points)
{
    return std::to_string(points) + (points == 1 ? " point" : " points") + " with the mark \"withheld\" " +
           (points == 1 ? "is" : "are") + " left out";
}

PointCloud readLas(ByteSource & source, ReadingProgress & reading, PointShare * share)
{
    Header const header = readHeader(source);
    auto const refuseBeyond = [](std::uint64_t points) {
        if (points > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
            throw InputError("the input has more than 2147483647 points");
    };
    if (share == nullptr)
        refuseBeyond(header.points);
    source.skip(header.pointsOffset);
    if (!source.mayHold(header.points, header.length))
        throwTruncated(header, source.remaining() / header.length);
    RowRange rows{0, header.points};
    if (share != nullptr) {
        share->isCut = true;
        rows = rowsOf(*share, header.pointsOffset, header.length, header.points);
        refuseBeyond(rows.count);
        source.skip(rows.first * header.length);
    }
    std::size_t const colorPlace = st_records[header.format].color;
    std::size_t const room = source.worthReserving(rows.count);
    LasColumns columns;
    columns.positions.reserve(room);
    if (colorPlace != 0)
        columns.colors.reserve(room);
    auto const readBlock = [&](std::string_view block, LasColumns & part) {
        for (std::size_t begin = 0; begin < block.size(); begin += header.length) {
            std::string_view const bytes = block.substr(begin, header.length);
            if (isWithheld(bytes, header.format)) {
                ++part.withheld;
                continue;
            }
            double position[3], color[3];
            for (std::size_t axis = 0; axis < 3; ++axis) {
                position[axis] = at<std::int32_t>(bytes, 4 * axis) * header.scale[axis] + header.offset[axis];
                color[axis] = colorPlace != 0 ? at<std::uint16_t>(bytes, colorPlace + 2 * axis) : 0;
            }
            part.positions.add(position, false);
            if (colorPlace != 0)
                part.colors.add(color);
        }
    };
    std::uint64_t const found = SourceBlocks(source).readEqual(
        rows.count, header.length, columns, LasColumns(), readBlock, [&] { reading.update(); });
    if (found < rows.count)
        throwTruncated(header, rows.first + found);
    PointCloud cloud;
    columns.positions.moveTo(cloud);
    if (share != nullptr) {
        share->withheld = columns.withheld;
        share->foundColor = columns.colors.greatest();
        columns.colors.expect(share->greatestColor);
    }
    if (columns.colors.isAny()) // where nobody has measured any, they are 0
        cloud.colors = columns.colors.finish();
    if (columns.withheld > 0 && share == nullptr)
        cloud.notes.push_back(noteOnWithheld(columns.withheld));
    return cloud;
}

} // namespace QZmath

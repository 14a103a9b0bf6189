// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PointReader.h>

#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Formats/PointShare.h>
#include <QZmath/Files/Formats/TextColumns.h>
#include <QZmath/Files/Streams/ByteSource.h>
#include <QZmath/Files/Streams/FileEnding.h>
#include <QZmath/Files/Streams/Words.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace QZmath
{

namespace
{

char const st_laz[] =
    "LAZ is not read: write it as LAS first, for instance by \"pdal translate scan.laz scan.las\"";
char const st_e57[] = "E57 is not read: write it as LAS or PLY first, for instance by \"pdal translate "
                      "scan.e57 scan.las\"";

bool startsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

// By the first bytes; text is what nothing else is.
PointFormat formatOf(ByteSource & source)
{
    std::string_view bytes = source.peek(4096);
    if (startsWith(bytes, "LASF"))
        return PointFormat::las;
    if (startsWith(bytes, "ply\n") || startsWith(bytes, "ply\r") || startsWith(bytes, "ply "))
        return PointFormat::ply;
    if (startsWith(bytes, "ASTM-E57"))
        throw InputError(st_e57);
    if (startsWith(bytes, "glTF"))
        throw InputError(
            "the input is a glTF mesh, not a point cloud; known are PLY, OBJ, PCD, LAS and text");
    if (startsWith(bytes, "\xef\xbb\xbf"))
        bytes.remove_prefix(3);
    if (bytes.find('\0') != std::string_view::npos && !startsWith(bytes, "# .PCD"))
        throw InputError("the format of the input is not known; known are PLY, OBJ, PCD, LAS and text");
    while (!bytes.empty()) {
        std::size_t const end = std::min(bytes.find_first_of("\r\n"), bytes.size());
        std::string_view line = bytes.substr(0, end);
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
        if (startsWith(line, "# .PCD"))
            return PointFormat::pcd;
        std::string_view const word = takeWord(line);
        if (word.empty() || word.front() == '#')
            continue;
        if (word == "VERSION" || word == "FIELDS" || word == "COLUMNS")
            return PointFormat::pcd;
        for (char const * keyword : {"v", "vn", "vt", "vp", "o", "g", "s", "f", "mtllib", "usemtl"})
            if (word == keyword)
                return PointFormat::obj;
        break;
    }
    return PointFormat::text;
}

PointCloud readFrom(ByteSource & source, PointFormat format, bool intensityFirst, ReadOptions const & options,
                    CProgressCounter * progress, PointShare * share = nullptr)
{
    checkColumns(options.columns);
    if (format == PointFormat::automatic)
        format = formatOf(source);
    ReadingProgress reading(source, progress);
    bool const isElsewhere = share != nullptr && share->begin > 0; // of what cannot be cut
    PointCloud cloud;
    switch (format) {
    case PointFormat::ply:
        cloud = readPly(source, reading, Wanted::points, share).points;
        break;
    case PointFormat::obj:
        if (isElsewhere)
            return cloud;
        cloud = readObj(source, reading, Wanted::points).points;
        break;
    case PointFormat::pcd:
        if (isElsewhere)
            return cloud;
        cloud = readPcd(source, reading);
        break;
    case PointFormat::las:
        cloud = readLas(source, reading, share);
        break;
    case PointFormat::text:
    case PointFormat::automatic:
        cloud = readText(source, reading, options.columns, intensityFirst, share);
    }
    if (cloud.size() == 0 && share == nullptr)
        throw InputError("the input has no points");
    if (progress != nullptr)
        progress->SetPosFloat(1.0);
    return cloud;
}

std::optional<PointFormat> knownFormatOf(std::string const & path)
{
    std::string const ending = fileEnding(path);
    if (ending == ".ply")
        return PointFormat::ply;
    if (ending == ".obj")
        return PointFormat::obj;
    if (ending == ".pcd")
        return PointFormat::pcd;
    if (ending == ".las")
        return PointFormat::las;
    for (char const * known : {".xyz", ".xyzn", ".asc", ".txt", ".csv", ".pts"})
        if (ending == known)
            return PointFormat::text;
    return std::nullopt;
}

} // namespace

PointFormat pointFormatOf(std::string const & path)
{
    if (path == "-")
        return PointFormat::automatic;
    if (std::optional<PointFormat> const format = knownFormatOf(path))
        return *format;
    std::string const ending = fileEnding(path);
    if (ending == ".laz" || ending == ".e57")
        throw InputError(quotable(path) + ": " + (ending == ".laz" ? st_laz : st_e57));
    throw InputError(
        "unknown input format \"" + quotable(ending) + "\" of " + quotable(path) +
        "; known are .ply, .obj, .pcd, .las, and as text .xyz, .xyzn, .asc, .txt, .csv and .pts");
}

namespace
{

PointCloud readFile(std::string const & path, ReadOptions const & options, CProgressCounter * progress,
                    PointShare * share)
{
    ByteSource source(path); // that the file is missing matters more than that its format is unknown
    PointFormat format = options.format;
    if (format == PointFormat::automatic) // a pipe may have any name
        format =
            source.isSizeKnown() ? pointFormatOf(path) : knownFormatOf(path).value_or(PointFormat::automatic);
    if (!source.isSizeKnown() || path == "-")
        share = nullptr;
    try {
        return readFrom(source, format, fileEnding(path) == ".pts", options, progress, share);
    } catch (InputError const & error) {
        throw InputError((path == "-" ? "standard input" : quotable(path)) + ": " + error.what());
    }
}

std::uint64_t ceilOfQuotient(std::uint64_t number, std::uint64_t divisor)
{
    return number / divisor + (number % divisor != 0 ? 1 : 0);
}

} // namespace

PointCloud readPoints(std::string const & path, ReadOptions const & options, CProgressCounter * progress)
{
    return readFile(path, options, progress, nullptr);
}

PointCloud readPointShare(std::string const & path, ReadOptions const & options, PointShare & share,
                          CProgressCounter * progress)
{
    try {
        return readFile(path, options, progress, &share);
    } catch (InputError const &) {
        // A line has its number in the file, and that it is the last one shows only when no end is set.
        PointShare toEnd = share;
        toEnd.end = std::numeric_limits<std::uint64_t>::max();
        toEnd.countsLines = true;
        if (share.isCut)
            readFile(path, options, progress, &toEnd);
        throw;
    }
}

bool isDecidedByOthers(PointShare const & share, float greatestColor, unsigned columnMarks)
{
    auto const kind = [](float number) { return number <= 0 ? 0 : number <= 1 ? 1 : number <= 255 ? 2 : 3; };
    return share.isCut && (share.isUnsure || kind(share.foundColor) != kind(greatestColor) ||
                           share.foundMarks != columnMarks);
}

void settleShare(std::string const & path, PointShare const & share, PointCloud & cloud,
                 std::int64_t pointsBefore, std::int64_t points, std::int64_t promised)
{
    auto const count = static_cast<std::size_t>(points);
    if (points == 0 && promised == 0)
        throw InputError(quotable(path) + ": the input has no points");
    if (points < promised)
        throw InputError(quotable(path) + ": " +
                         (share.promise == PointShare::Promise::lines
                              ? truncatedLines(promised, count)
                              : truncatedElement("vertex", static_cast<std::uint64_t>(promised), count)));
    if (share.promise != PointShare::Promise::vertices)
        return;
    auto const room = static_cast<std::size_t>(std::max<std::int64_t>(0, promised - pointsBefore));
    if (cloud.size() <= room)
        return;
    auto const keep = [room](auto & values, std::size_t width) {
        values.resize(std::min(values.size(), width * room));
    };
    keep(cloud.positions, 3);
    keep(cloud.positions64, 3);
    keep(cloud.normals, 3);
    keep(cloud.colors, 3);
    keep(cloud.boundary, 1);
}

std::string truncatedElement(std::string const & name, std::uint64_t promised, std::uint64_t found)
{
    return "the input is truncated: the header promises " + std::to_string(promised) + " instances of \"" +
           quotable(name) + "\", the file ends after " + std::to_string(found);
}

std::string truncatedLines(std::int64_t promised, std::size_t found)
{
    return "the input is truncated: " + std::to_string(promised) + " points are promised and " +
           std::to_string(found) + " are there; without the line of their number it is read as it is";
}

RowRange rowsOf(PointShare const & share, std::uint64_t place, std::uint64_t size, std::uint64_t count)
{
    auto const rowAt = [&](std::uint64_t byte) {
        return byte <= place ? 0 : std::min(count, ceilOfQuotient(byte - place, size));
    };
    std::uint64_t const first = rowAt(share.begin);
    return {first, rowAt(share.end) - first};
}

PointCloud readPoints(std::istream & stream, ReadOptions const & options, CProgressCounter * progress)
{
    ByteSource source(stream);
    return readFrom(source, options.format, false, options, progress);
}

PointCloud readPointsFromMemory(void const * bytes, std::size_t size, ReadOptions const & options,
                                CProgressCounter * progress)
{
    ByteSource source(static_cast<char const *>(bytes), size);
    return readFrom(source, options.format, false, options, progress);
}

} // namespace QZmath

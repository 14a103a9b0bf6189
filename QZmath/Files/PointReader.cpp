// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PointReader.h>

#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Formats/TextColumns.h>
#include <QZmath/Files/Streams/ByteSource.h>
#include <QZmath/Files/Streams/FileEnding.h>
#include <QZmath/Files/Streams/Words.h>

#include <algorithm>
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
                    CProgressCounter * progress)
{
    checkColumns(options.columns);
    if (format == PointFormat::automatic)
        format = formatOf(source);
    ReadingProgress reading(source, progress);
    PointCloud cloud;
    switch (format) {
    case PointFormat::ply:
        cloud = readPly(source, reading, Wanted::points).points;
        break;
    case PointFormat::obj:
        cloud = readObj(source, reading, Wanted::points).points;
        break;
    case PointFormat::pcd:
        cloud = readPcd(source, reading);
        break;
    case PointFormat::las:
        cloud = readLas(source, reading);
        break;
    case PointFormat::text:
    case PointFormat::automatic:
        cloud = readText(source, reading, options.columns, intensityFirst);
    }
    if (cloud.size() == 0)
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

PointCloud readPoints(std::string const & path, ReadOptions const & options, CProgressCounter * progress)
{
    ByteSource source(path); // that the file is missing matters more than that its format is unknown
    PointFormat format = options.format;
    if (format == PointFormat::automatic) // a pipe may have any name
        format =
            source.isSizeKnown() ? pointFormatOf(path) : knownFormatOf(path).value_or(PointFormat::automatic);
    try {
        return readFrom(source, format, fileEnding(path) == ".pts", options, progress);
    } catch (InputError const & error) {
        throw InputError((path == "-" ? "standard input" : quotable(path)) + ": " + error.what());
    }
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

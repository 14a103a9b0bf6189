// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Formats/CloudColumns.h>
#include <QZmath/Files/Formats/PointFormats.h>
#include <QZmath/Files/Formats/PointShare.h>
#include <QZmath/Files/Formats/TextColumns.h>
#include <QZmath/Files/Streams/SourceBlocks.h>
#include <QZmath/Files/Streams/Words.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace QZmath
{

namespace
{

std::size_t const st_mostColumns = 1000;

std::string counted(std::size_t count, char const * what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// Lines of a text file without comments, each cut into its columns.
class TextLines
{
public:
    explicit TextLines(ByteSource & source) : m_source(source)
    {
        std::string_view const mark = "\xef\xbb\xbf";
        if (source.peek(mark.size()) == mark)
            source.skip(mark.size());
    }

    // Of a block from the middle of a file.
    TextLines(ByteSource & block, TextLines const & file)
        : m_source(block), m_isSeparatorKept(true), m_separator(file.m_separator)
    {}

    // False at the end. Lines without anything but a comment have no columns.
    bool next()
    {
        std::string_view line;
        if (!m_source.readLine(line))
            return false;
        m_comment = std::string_view();
        std::size_t start = 0;
        while (start < line.size() && line[start] != '#' &&
               (line[start] != '/' || start + 1 == line.size() || line[start + 1] != '/'))
            ++start;
        if (start < line.size()) {
            m_comment = line.substr(std::min(line.find_first_not_of("#/ \t", start), line.size()));
            line = line.substr(0, start);
        }
        cut(line, words);
        return true;
    }

    // The words of the comment in the line, if there is one.
    std::vector<std::string_view> commentWords() const
    {
        std::vector<std::string_view> found;
        cut(m_comment, found);
        return found;
    }

    // To be called when `words` holds a point for the first time: what separates numbers stays what it is.
    void keepSeparator() { m_isSeparatorKept = true; }

    std::string atLine() const { return "line " + std::to_string(m_source.lineNumber()); }
    std::string notNumber(std::size_t column) const
    {
        bool const hasComma = words[column].find(',') != std::string_view::npos;
        return atLine() + ", column " + std::to_string(column + 1) + " is not a number: \"" +
               quotable(words[column]) + "\"; " +
               (hasComma ? "decimals need a point" : "choose the columns with --columns");
    }

    std::vector<std::string_view> words;

private:
    static bool isBlank(char letter) { return letter == ' ' || letter == '\t'; }

    // Blanks separate, and so does a semicolon, or a comma where there are no semicolons. Two of these with
    // nothing between them have an empty column there; one at the end of the line has nothing behind it.
    void cut(std::string_view line, std::vector<std::string_view> & columns) const
    {
        columns.clear();
        if (!m_isSeparatorKept)
            m_separator = line.find(';') != std::string_view::npos   ? ';'
                          : line.find(',') != std::string_view::npos ? ','
                                                                     : ' ';
        std::size_t place = 0;
        auto const skipBlanks = [&] {
            while (place < line.size() && isBlank(line[place]))
                ++place;
        };
        for (skipBlanks(); place < line.size(); skipBlanks()) {
            std::size_t const start = place;
            while (place < line.size() && !isBlank(line[place]) && line[place] != m_separator)
                ++place;
            columns.push_back(line.substr(start, place - start));
            skipBlanks();
            if (place < line.size() && line[place] == m_separator)
                ++place;
            if (columns.size() > st_mostColumns)
                throw InputError(atLine() + " has more than " + std::to_string(st_mostColumns) + " columns");
        }
    }

    ByteSource & m_source;
    std::string_view m_comment;
    bool m_isSeparatorKept = false;
    mutable char m_separator = ' ';
};

// Three columns whose meaning shows when all of their values are known.
struct Triple
{
    std::vector<float> values;
    bool isWhole = true; // integers from 0 to 255
    bool isAboveOne = false;
    bool isShare = true; // from 0 to 1
    std::size_t ofUnitLength = 0;

    void add(double const * triple)
    {
        double square = 0;
        for (int i = 0; i < 3; ++i) {
            double const value = triple[i];
            values.push_back(static_cast<float>(value));
            isWhole = isWhole && value >= 0 && value <= 255 && value == std::floor(value);
            isAboveOne = isAboveOne || value > 1;
            isShare = isShare && value >= 0 && value <= 1;
            square += value * value;
        }
        ofUnitLength += std::fabs(square - 1) < 0.02;
    }
    void append(Triple const & other)
    {
        values.insert(values.end(), other.values.begin(), other.values.end());
        isWhole = isWhole && other.isWhole;
        isAboveOne = isAboveOne || other.isAboveOne;
        isShare = isShare && other.isShare;
        ofUnitLength += other.ofUnitLength;
    }
    void clear()
    {
        values.clear();
        isWhole = isShare = true;
        isAboveOne = false;
        ofUnitLength = 0;
    }
    bool isColor() const { return isWhole && isAboveOne; }
    // What decides on that, in bits that those of other ranges of a file can be added to.
    unsigned marks() const { return (isWhole ? 0U : 1U) | (isAboveOne ? 2U : 0U); }
    void expect(unsigned others)
    {
        isWhole = isWhole && (others & 1U) == 0;
        isAboveOne = isAboveOne || (others & 2U) != 0;
    }
    // Normals may have any length, but most have 1.
    bool isMostlyOfUnitLength() const { return 2 * ofUnitLength >= values.size() / 3; }
    bool isPerhapsColor() const { return isShare && !isMostlyOfUnitLength(); }
    std::vector<std::uint8_t> colors() const
    {
        std::vector<std::uint8_t> bytes(values.size());
        std::transform(values.begin(), values.end(), bytes.begin(),
                       [](float value) { return static_cast<std::uint8_t>(value); });
        return bytes;
    }
};

// The points of a file whose columns somebody has named.
class NamedPoints
{
public:
    NamedPoints(TextColumns columns) : m_columns(std::move(columns)), m_wanted(m_columns.wanted()) {}

    void add(TextLines const & lines)
    {
        if (lines.words.size() < m_wanted)
            throw InputError(lines.atLine() + " has " + counted(lines.words.size(), "column") +
                             ", fewer than the " + std::to_string(m_wanted) + " of \"" + m_columns.text() +
                             "\": choose them with --columns");
        std::array<double, TextColumns::roles> row{};
        bool isFloatEnough = true;
        for (std::size_t i = 0; i < m_wanted; ++i) {
            int const role = m_columns.roleOf[i];
            if (role == TextColumns::none)
                continue;
            double & value = row[static_cast<std::size_t>(role)];
            if (!parseNumber(lines.words[i], value))
                throw InputError(lines.notNumber(i));
            if (role < TextColumns::normal && !QZmath::isFloatEnough(lines.words[i], value))
                isFloatEnough = false;
        }
        m_positions.add(row.data(), isFloatEnough);
        if (m_columns.has(TextColumns::normal))
            for (std::size_t axis = 0; axis < 3; ++axis)
                m_cloud.normals.push_back(static_cast<float>(row[TextColumns::normal + axis]));
        if (m_columns.has(TextColumns::color))
            m_colors.add(row.data() + TextColumns::color);
        if (m_columns.has(TextColumns::boundary))
            m_cloud.boundary.push_back(row[TextColumns::boundary] != 0);
    }

    std::size_t size() const { return m_positions.size(); }

    void reserve(std::size_t points)
    {
        m_positions.reserve(points);
        m_cloud.normals.reserve(m_cloud.normals.empty() ? 0 : 3 * points);
    }
    // Those of the same columns, behind its own.
    void append(NamedPoints const & other)
    {
        PointCloud const & cloud = other.m_cloud;
        m_positions.append(other.m_positions);
        m_colors.append(other.m_colors);
        m_cloud.normals.insert(m_cloud.normals.end(), cloud.normals.begin(), cloud.normals.end());
        m_cloud.boundary.insert(m_cloud.boundary.end(), cloud.boundary.begin(), cloud.boundary.end());
    }
    void clear()
    {
        m_positions.clear();
        m_colors.clear();
        m_cloud.normals.clear();
        m_cloud.boundary.clear();
    }

    PointCloud finish(PointShare * share)
    {
        m_positions.moveTo(m_cloud);
        if (share != nullptr) {
            share->foundColor = m_colors.greatest();
            share->foundMarks = m_colors.isBroken() ? 1U : 0U;
            m_colors.expect(share->greatestColor, share->columnMarks != 0);
        }
        if (m_columns.has(TextColumns::color))
            m_cloud.colors = m_colors.finish();
        return std::move(m_cloud);
    }

private:
    TextColumns m_columns;
    std::size_t m_wanted;
    PointCloud m_cloud;
    PositionColumn m_positions{PositionColumn::Origin::text};
    ColorColumn m_colors{ColorColumn::Range::unknown};
};

// The points of a file whose columns nobody has named. They are told by their number and, since a single line
// does not show whether three numbers are a normal or a colour, by all of their values.
class GuessedPoints
{
public:
    GuessedPoints(TextLines const & lines, bool intensityFirst)
        : m_columns(lines.words.size()), m_intensityFirst(intensityFirst)
    {
        if (m_columns < 3)
            throw InputError(lines.atLine() + " has " + counted(m_columns, "column") +
                             ", and a point needs three: x, y and z");
        if (m_columns != 3 && m_columns != 4 && m_columns != 6 && m_columns != 7 && m_columns != 9)
            throw InputError(
                lines.atLine() + " has " + counted(m_columns, "column") +
                ", whose meaning is not clear: choose them with --columns, such as x,y,z,_,nx,ny,nz");
    }

    void add(TextLines const & lines)
    {
        if (lines.words.size() != m_columns)
            throw InputError(lines.atLine() + " has " + counted(lines.words.size(), "column") +
                             " instead of " + std::to_string(m_columns) +
                             ": choose the columns with --columns");
        double row[9];
        bool isFloatEnough = true;
        for (std::size_t i = 0; i < m_columns; ++i) {
            std::string_view const word = lines.words[i];
            if (!parseNumber(word, row[i]))
                throw InputError(lines.notNumber(i));
            if (i < 3 && !QZmath::isFloatEnough(word, row[i]))
                isFloatEnough = false;
        }
        m_positions.add(row, isFloatEnough);
        if (m_columns >= 6)
            m_second.add(row + 3);
        if (m_columns == 7)
            m_shifted.add(row + 4);
        if (m_columns == 9)
            m_shifted.add(row + 6);
    }

    std::size_t size() const { return m_positions.size(); }

    void reserve(std::size_t points)
    {
        m_positions.reserve(points);
        m_second.values.reserve(m_columns >= 6 ? 3 * points : 0);
    }
    // Those of as many columns, behind its own.
    void append(GuessedPoints const & other)
    {
        m_positions.append(other.m_positions);
        m_second.append(other.m_second);
        m_shifted.append(other.m_shifted);
    }
    void clear()
    {
        m_positions.clear();
        m_second.clear();
        m_shifted.clear();
    }

    PointCloud finish(PointShare * share)
    {
        if (share != nullptr) {
            share->foundMarks = m_second.marks() | m_shifted.marks() << 2;
            m_second.expect(share->columnMarks & 3U);
            m_shifted.expect(share->columnMarks >> 2);
        }
        PointCloud cloud;
        m_positions.moveTo(cloud);
        if (m_columns == 4)
            cloud.notes.push_back("the fourth column is taken for an intensity and is not used; choose the "
                                  "columns with --columns where it is something else");
        if (m_columns == 6)
            takeSecond(cloud);
        if (m_columns == 7)
            finishSeven(cloud);
        if (m_columns == 9)
            finishNine(cloud, share);
        return cloud;
    }

private:
    void takeSecond(PointCloud & cloud)
    {
        if (m_second.isColor()) {
            cloud.colors = m_second.colors();
            cloud.notes.push_back(
                "columns 4 to 6 are taken for colours, since they are whole numbers from 0 to "
                "255; normals are named by --columns x,y,z,nx,ny,nz");
            return;
        }
        if (m_second.isPerhapsColor())
            cloud.notes.push_back("columns 4 to 6 are taken for normals, though they lie between 0 and 1 and "
                                  "few are of length 1; colours are named by --columns x,y,z,r,g,b");
        cloud.normals = std::move(m_second.values);
    }

    void finishSeven(PointCloud & cloud)
    {
        if (m_second.isMostlyOfUnitLength() || !m_shifted.isColor()) {
            takeSecond(cloud);
            cloud.notes.push_back("the seventh column is taken for an intensity and is not used; a mark of "
                                  "boundaries is named by --columns x,y,z,nx,ny,nz,boundary");
        } else if (m_intensityFirst || !m_second.isColor()) {
            cloud.colors = m_shifted.colors();
            cloud.notes.push_back(
                "the columns are taken for x,y,z,intensity,r,g,b; choose them with --columns "
                "where they are something else");
        } else {
            cloud.notes.push_back(
                "columns 4 to 7 may be colours before or behind an intensity and are not used; "
                "choose them with --columns, such as x,y,z,r,g,b,intensity");
        }
    }

    void finishNine(PointCloud & cloud, PointShare * share)
    {
        bool const isColorFirst = m_second.isColor();
        if (isColorFirst == m_shifted.isColor() && share != nullptr && !share->isSettled) {
            share->isUnsure = true;
            return;
        }
        if (isColorFirst == m_shifted.isColor())
            throw InputError(
                "nine columns of which not three are whole numbers from 0 to 255, for colours: choose "
                "the columns with --columns, such as x,y,z,nx,ny,nz,r,g,b");
        Triple & color = isColorFirst ? m_second : m_shifted;
        Triple & normal = isColorFirst ? m_shifted : m_second;
        cloud.colors = color.colors();
        cloud.normals = std::move(normal.values);
    }

    std::size_t m_columns;
    bool m_intensityFirst;
    PositionColumn m_positions{PositionColumn::Origin::text};
    Triple m_second, m_shifted; // columns 4 to 6; and 5 to 7 of seven, 7 to 9 of nine
};

// The number of points that begins a file or a block of it, if the line is one.
bool isCount(std::vector<std::string_view> const & words, long long & count)
{
    return words.size() == 1 && parseNumber(words[0], count) && count >= 0;
}

// Whether a line is a point rather than one of names: its x is a number, or else its first column.
bool isPoint(std::vector<std::string_view> const & words, TextColumns const & columns)
{
    auto const x = static_cast<std::size_t>(
        std::find(columns.roleOf.begin(), columns.roleOf.end(), TextColumns::position) -
        columns.roleOf.begin());
    double ignored = 0;
    return parseNumber(words[x < words.size() ? x : 0], ignored);
}

// Reads the lines from the first point on, which `lines` holds. `points` is still empty.
template <class TPoints>
PointCloud readLines(ByteSource & source, TextLines & lines, TPoints & points, long long promised,
                     ReadingProgress & reading, PointShare * share)
{
    bool const isCounted = promised >= 0;
    auto const most = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
    TPoints const none = points;
    std::size_t room = 0;
    lines.keepSeparator();
    auto const isComplete = [&] { return points.size() == static_cast<std::size_t>(promised); };
    auto const addLine = [&] {
        reading.update();
        if (lines.words.empty())
            return;
        long long more = 0;
        if (isCounted && (share != nullptr || isComplete()) && isCount(lines.words, more)) {
            promised = more < std::numeric_limits<long long>::max() - promised ? promised + more : promised;
            return; // another block
        }
        points.add(lines);
        if (points.size() > most)
            throw InputError("the input has more than 2147483647 points");
    };
    auto const readBy = [&](std::uint64_t end) {
        while (source.position() < end && lines.next())
            addLine();
        return true;
    };
    auto const readBlock = [&](ByteSource & block, TPoints & part) {
        for (TextLines blockLines(block, lines); blockLines.next();)
            if (!blockLines.words.empty())
                part.add(blockLines); // refuses the line of a count too
    };
    auto const append = [&](TPoints const & part) {
        if (points.size() + part.size() > most)
            return false;
        points.append(part);
        if (points.size() > room) // a guess, with something to spare
            points.reserve(room = std::min(source.expected(points.size() + points.size() / 32), most));
        reading.update();
        return true;
    };
    long long const before = promised;
    if (share == nullptr || (share->begin == 0 && share->end > 0))
        addLine();
    if (share != nullptr) {
        share->isCut = true;
        source.cutLines(share->begin, share->end, share->countsLines);
    }
    SourceBlocks(source).readLines(none, readBlock, append, readBy);
    readBy(std::numeric_limits<std::uint64_t>::max());
    if (isCounted && share != nullptr) {
        share->promise = PointShare::Promise::lines;
        share->promised = promised - (share->begin == 0 ? 0 : before);
    } else if (isCounted && points.size() < static_cast<std::size_t>(promised)) {
        throw InputError(truncatedLines(promised, points.size()));
    }
    return points.finish(share);
}

} // namespace

PointCloud readText(ByteSource & source, ReadingProgress & reading, std::string const & columnNames,
                    bool intensityFirst, PointShare * share)
{
    int const mostHeaderLines = 100;
    TextLines lines(source);
    TextColumns header;
    long long promised = -1;
    std::string firstRefused;
    int refused = 0;
    while (lines.next()) {
        reading.update();
        std::vector<std::string_view> const & words = lines.words;
        if (words.empty()) {
            TextColumns const named = TextColumns::fromHeader(lines.commentWords(), true);
            if (!named.roleOf.empty())
                header = named;
            continue;
        }
        if (isCount(words, promised))
            continue;
        if (!columnNames.empty() || header.fits(words.size())) {
            TextColumns const columns = columnNames.empty() ? header : TextColumns::fromNames(columnNames);
            if (isPoint(words, columns)) {
                NamedPoints points(columns);
                return readLines(source, lines, points, promised, reading, share);
            }
        } else if (double ignored = 0; parseNumber(words[0], ignored)) {
            GuessedPoints points(lines, intensityFirst);
            return readLines(source, lines, points, promised, reading, share);
        }
        if (refused == 0)
            firstRefused = lines.notNumber(0);
        TextColumns const named = TextColumns::fromHeader(words, false);
        if (!named.roleOf.empty())
            header = named;
        if (++refused > mostHeaderLines)
            break;
    }
    if (refused > 0)
        throw InputError(firstRefused + ", and no point follows");
    throw InputError("the input has no points");
}

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/io/CloudReader.h>

#include <string_view>

class CProgressCounter;

namespace qz_io
{

PointCloud readPly(ByteSource & source, CProgressCounter * progress, InputNormals normals);
PointCloud readObj(ByteSource & source, CProgressCounter * progress, InputNormals normals);
PointCloud readText(ByteSource & source, CProgressCounter * progress, InputNormals normals);

/// Reports the share of the source that has been read, each time 64 KiB more are.
class ReadingProgress
{
public:
    ReadingProgress(ByteSource const & source, CProgressCounter * counter)
        : m_source(source), m_counter(counter)
    {}
    void update()
    {
        if (m_counter && m_source.position() >= m_next)
            report();
    }

private:
    void report();

    ByteSource const & m_source;
    CProgressCounter * m_counter;
    std::uint64_t m_next = 0;
};

/// Takes the first word off a line, empty when there is none. Blanks and tabulators separate words.
inline std::string_view takeWord(std::string_view & line)
{
    std::size_t begin = 0;
    while (begin < line.size() && (line[begin] == ' ' || line[begin] == '\t'))
        ++begin;
    std::size_t end = begin;
    while (end < line.size() && line[end] != ' ' && line[end] != '\t')
        ++end;
    std::string_view const word = line.substr(begin, end - begin);
    line.remove_prefix(end);
    return word;
}

/// Reads a whole word as a number, independently of the locale; "nan" and "inf" are numbers, and so is what
/// overflows, as an infinity. False when the word is anything else.
bool parseNumber(std::string_view word, double & value);
bool parseNumber(std::string_view word, long long & value);

} // namespace qz_io

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace QZmath
{

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

/// Whether the `float` nearest to the value of a word gives its digits back: the two differ by at most half a
/// unit of the word's last digit. True for whatever was printed from a `float` with enough digits.
bool isFloatEnough(std::string_view word, double value);

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#include <QZsys/Messages.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

namespace VsUt
{

namespace
{

std::size_t const st_longestQuotation = 80; // characters

// Bytes of the UTF-8 character at the beginning of a text, and its code; 0 when there is none.
std::size_t characterLength(std::string_view text, std::uint32_t & code)
{
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    std::uint32_t const first = byte(0);
    std::size_t const length = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : 4;
    if (length > text.size() || (length == 4 && first >> 3 != 30))
        return 0;
    code = length == 1 ? first : first & (0x7fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (byte(i) >> 6 != 2)
            return 0;
        code = code << 6 | (byte(i) & 0x3fu);
    }
    static std::uint32_t const least[] = {0, 0, 0x80, 0x800, 0x10000};
    bool const isSurrogate = code >= 0xd800 && code < 0xe000;
    return code < least[length] || code > 0x10ffff || isSurrogate ? 0 : length;
}

bool isHarmless(std::uint32_t code)
{
    bool const isControl = code < 0x20 || (code >= 0x7f && code < 0xa0);
    bool const turnsDirection = code == 0x61c || code == 0x200e || code == 0x200f ||
                                (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
    return !isControl && !turnsDirection;
}

// The characters of a text, each as it is or escaped.
std::vector<std::string> escapedCharacters(std::string_view text)
{
    std::vector<std::string> characters;
    while (!text.empty()) {
        std::uint32_t code = 0;
        std::size_t const length = characterLength(text, code);
        if (length > 0 && isHarmless(code)) {
            characters.emplace_back(text.substr(0, length));
            text.remove_prefix(length);
            continue;
        }
        static char const digits[] = "0123456789abcdef";
        auto const byte = static_cast<unsigned char>(text[0]);
        characters.push_back({'\\', 'x', digits[byte >> 4], digits[byte & 15u]});
        text.remove_prefix(1);
    }
    return characters;
}

} // namespace

std::string escaped(std::string_view text)
{
    std::vector<std::string> const characters = escapedCharacters(text);
    return std::accumulate(characters.begin(), characters.end(), std::string());
}

std::string quotable(std::string_view text)
{
    // The ends are enough of a hostile text: a character has at most four bytes.
    std::size_t const most = 4 * st_longestQuotation;
    std::string ends;
    if (text.size() > 2 * most) {
        ends.append(text.substr(0, most)).append(text.substr(text.size() - most));
        text = ends;
    }
    std::vector<std::string> const characters = escapedCharacters(text);
    auto const widthOf = [](std::string const & character) -> std::size_t {
        return character.size() == 4 && character[0] == '\\' ? 4 : 1;
    };
    std::size_t width = 0;
    for (std::string const & character : characters)
        width += widthOf(character);
    std::size_t const dots = 3;
    std::size_t const atStart = 30; // the end of a path says more than its beginning
    std::size_t const atEnd = st_longestQuotation - atStart - dots;
    std::string quotation;
    std::size_t before = 0;
    bool isCut = false;
    for (std::string const & character : characters) {
        std::size_t const behind = before + widthOf(character);
        if (width <= st_longestQuotation || behind <= atStart || width - before <= atEnd) {
            quotation += character;
        } else if (!isCut) {
            isCut = true;
            quotation += "...";
        }
        before = behind;
    }
    return quotation;
}

std::string systemReason(int error)
{
    std::string const reason = error == 0 ? std::string() : std::strerror(error);
    return reason.empty() ? "the system gives no reason" : reason;
}

} // namespace VsUt

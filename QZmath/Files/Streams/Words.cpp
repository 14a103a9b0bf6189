// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Streams/Words.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>
#include <system_error>

namespace QZmath
{

bool parseNumber(std::string_view word, double & value)
{
    if (!word.empty() && word.front() == '+')
        word.remove_prefix(1);
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error == std::errc::invalid_argument || end != word.data() + word.size())
        return false;
    if (error == std::errc::result_out_of_range) // rare: lets the C library decide between 0 and an infinity
        value = std::strtod(std::string(word).c_str(), nullptr);
    return true;
}

bool parseNumber(std::string_view word, long long & value)
{
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    return error == std::errc() && end == word.data() + word.size();
}

bool isFloatEnough(std::string_view word, double value)
{
    double const magnitude = std::fabs(value);
    std::size_t const shortest = 7; // six digits and a point survive in the normal range
    if (word.size() <= shortest && magnitude < 1e30 && (magnitude > 1e-30 || value == 0))
        return true;
    double const difference = std::fabs(static_cast<double>(static_cast<float>(value)) - value);
    if (difference == 0 || !(magnitude <= 1e300)) // no number, or an infinity, in both forms
        return true;
    // The unit of the last digit, by the place of the point and the exponent.
    std::size_t const mark = word.find_first_of("eE");
    std::string_view const digits = word.substr(0, mark);
    long long exponent = 0;
    if (mark != std::string_view::npos) {
        std::string_view text = word.substr(mark + 1);
        if (!text.empty() && text.front() == '+')
            text.remove_prefix(1);
        if (!parseNumber(text, exponent))
            exponent = 0; // beyond all range: the value is 0
    }
    std::size_t const point = digits.find('.');
    if (point != std::string_view::npos)
        exponent -= static_cast<long long>(digits.size() - point - 1);
    static constexpr double powers[] = {1e0,  1e-1, 1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,
                                        1e-8, 1e-9, 1e-10, 1e-11, 1e-12, 1e-13, 1e-14, 1e-15};
    double const unit =
        exponent <= 0 && exponent > -16 ? powers[-exponent] : std::pow(10.0, static_cast<double>(exponent));
    return difference <= 0.5000001 * unit;
}

} // namespace QZmath

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Page/Base64.h>

namespace QZmath::Viewing
{

void appendBase64(std::string & text, unsigned char const * bytes, std::size_t count)
{
    char const * const letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t at = text.size();
    text.resize(at + (count + 2) / 3 * 4, '=');
    for (std::size_t i = 0; i < count; i += 3, at += 4) {
        std::size_t const number = count - i < 3 ? count - i : 3;
        unsigned bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < number ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k <= number; ++k)
            text[at + k] = letters[bits >> (18 - 6 * k) & 63];
    }
}

} // namespace QZmath::Viewing

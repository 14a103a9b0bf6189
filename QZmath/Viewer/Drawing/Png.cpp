// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Drawing/Png.h>

#include <zlib.h>

#include <array>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>

namespace QZmath::Viewing
{

namespace
{

std::string bigEndian(std::uint32_t number)
{
    std::string bytes(4, '\0');
    for (unsigned k = 0; k < 4; ++k)
        bytes[k] = static_cast<char>(number >> (24 - 8 * k) & 255);
    return bytes;
}

void addChunk(std::string & file, char const * type, std::string_view content)
{
    std::string const body = type + std::string(content);
    file += bigEndian(static_cast<std::uint32_t>(content.size())) + body;
    uLong const sum = crc32_z(0, reinterpret_cast<Bytef const *>(body.data()), body.size());
    file += bigEndian(static_cast<std::uint32_t>(sum));
}

// What neighbours say about a byte: left, above, and above left of it.
int paeth(int left, int above, int corner)
{
    int const guess = left + above - corner;
    int const a = std::abs(guess - left), b = std::abs(guess - above), c = std::abs(guess - corner);
    return a <= b && a <= c ? left : b <= c ? above : corner;
}

} // namespace

std::string pngOf(Picture const & picture)
{
    // Each row as differences to what is left, above or both, whichever is smallest in sum.
    std::size_t const length = 3 * static_cast<std::size_t>(picture.width);
    std::vector<std::uint8_t> rows;
    rows.reserve((length + 1) * static_cast<std::size_t>(picture.height));
    std::vector<std::uint8_t> const none(length, 0);
    std::array<std::vector<std::uint8_t>, 3> tries;
    std::array<std::uint8_t, 3> const filters = {1, 2, 4};
    for (std::size_t y = 0; y < static_cast<std::size_t>(picture.height); ++y) {
        std::uint8_t const * const row = &picture.bytes[y * length];
        std::uint8_t const * const upper = y > 0 ? row - length : none.data();
        std::size_t best = 0;
        long bestSum = -1;
        for (std::size_t t = 0; t < tries.size(); ++t) {
            tries[t].resize(length);
            long sum = 0;
            for (std::size_t i = 0; i < length; ++i) {
                int const left = i >= 3 ? row[i - 3] : 0, corner = i >= 3 ? upper[i - 3] : 0;
                int const guess = t == 0 ? left : t == 1 ? upper[i] : paeth(left, upper[i], corner);
                tries[t][i] = static_cast<std::uint8_t>(row[i] - guess);
                sum += std::abs(static_cast<std::int8_t>(tries[t][i]));
            }
            if (bestSum < 0 || sum < bestSum) {
                bestSum = sum;
                best = t;
            }
        }
        rows.push_back(filters[best]);
        rows.insert(rows.end(), tries[best].begin(), tries[best].end());
    }
    uLongf size = compressBound(static_cast<uLong>(rows.size()));
    std::string packed(size, '\0');
    if (compress2(reinterpret_cast<Bytef *>(packed.data()), &size, rows.data(),
                  static_cast<uLong>(rows.size()), 6) != Z_OK)
        throw std::bad_alloc();
    std::string file = "\x89PNG\r\n\x1a\n";
    std::string const form("\x08\x02\x00\x00\x00", 5); // 8 bits, three colours, nothing special
    addChunk(file, "IHDR",
             bigEndian(static_cast<std::uint32_t>(picture.width)) +
                 bigEndian(static_cast<std::uint32_t>(picture.height)) + form);
    addChunk(file, "sRGB", std::string_view("\0", 1));
    addChunk(file, "IDAT", std::string_view(packed).substr(0, size));
    addChunk(file, "IEND", "");
    return file;
}

} // namespace QZmath::Viewing

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Files/PointReader.h>
#include <fuzz/Input.h>
#include <tests/support/PointShares.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

using QZmath::PointCloud;

// A file in memory that has a path.
class MemoryFile
{
public:
    MemoryFile(std::uint8_t const * data, std::size_t size) : m_file(memfd_create("points", MFD_CLOEXEC))
    {
        qz_fuzz::require(m_file >= 0 && write(m_file, data, size) == static_cast<ssize_t>(size),
                         "a file in memory");
    }
    ~MemoryFile() { close(m_file); }
    MemoryFile(MemoryFile const &) = delete;
    MemoryFile & operator=(MemoryFile const &) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(m_file); }

private:
    int m_file;
};

template <class Read>
std::optional<PointCloud> cloudOf(Read const & read)
{
    try {
        return read();
    } catch (QZmath::InputError const & error) {
        qz_fuzz::require(*error.what() != '\0', "a sentence on what is wrong");
        return std::nullopt;
    }
}

} // namespace

// The first bytes are the format, how many ranges a file is read in, and where they begin; the rest is the
// file. Whatever it is, the ranges together give what it gives as a whole, or an `InputError`.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::size_t const headSize = 8;
    if (size < headSize)
        return 0;
    qz_fuzz::Input head(data, headSize);
    QZmath::PointFormat const formats[] = {QZmath::PointFormat::ply, QZmath::PointFormat::text,
                                           QZmath::PointFormat::las};
    QZmath::ReadOptions options;
    options.format = formats[head.upTo(2)];
    std::vector<std::uint64_t> bounds(1 + static_cast<std::size_t>(head.upTo(3)), 0);
    for (std::size_t n = 1; n < bounds.size(); ++n) {
        std::uint16_t place = 0;
        head.raw(place);
        bounds[n] = 1 + place % size; // the first range has the first byte
    }
    std::sort(bounds.begin(), bounds.end());
    bounds.push_back(std::numeric_limits<std::uint64_t>::max());

    MemoryFile const file(data + headSize, size - headSize);
    auto const whole = cloudOf([&] { return QZmath::readPoints(file.path(), options); });
    auto const shares = cloudOf([&] { return qz_test::readInShares(file.path(), bounds, options); });
    if (!whole || !shares)
        return 0;
    qz_fuzz::require(
        qz_fuzz::Bits(whole->positions, whole->positions64, whole->normals, whole->colors) ==
            qz_fuzz::Bits(shares->positions, shares->positions64, shares->normals, shares->colors),
        "ranges give the points of the whole");
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PointReader.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

// Whatever the bytes are, reading them ends in a cloud of consistent sizes or in an `InputError`, from memory
// as from a stream. For text, the first line is what the columns are said to be.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::string bytes(reinterpret_cast<char const *>(data), size);
    QZmath::ReadOptions options;
    options.format = QZmath::PointFormat::QZ_FUZZED_FORMAT;
    if (options.format == QZmath::PointFormat::text) {
        std::size_t const end = bytes.find('\n');
        options.columns = bytes.substr(0, end);
        bytes.erase(0, end == std::string::npos ? end : end + 1);
    }
    auto const read = [&](bool fromStream) -> std::size_t {
        try {
            std::istringstream stream(bytes);
            QZmath::PointCloud const cloud =
                fromStream ? QZmath::readPoints(stream, options)
                           : QZmath::readPointsFromMemory(bytes.data(), bytes.size(), options);
            std::size_t const points = cloud.size();
            auto const fits = [&](std::size_t count, std::size_t each) {
                return count == 0 || count == each * points;
            };
            if (points == 0 || cloud.positions.empty() == cloud.positions64.empty() ||
                !fits(cloud.positions.size(), 3) || !fits(cloud.positions64.size(), 3) ||
                !fits(cloud.normals.size(), 3) || !fits(cloud.colors.size(), 3) ||
                !fits(cloud.boundary.size(), 1))
                std::abort();
            return points;
        } catch (QZmath::InputError const & error) {
            if (*error.what() == '\0')
                std::abort();
        }
        return 0;
    };
    if (read(false) != read(true))
        std::abort();
    return 0;
}

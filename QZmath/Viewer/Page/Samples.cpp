// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Page/Samples.h>

#include <algorithm>
#include <cmath>

namespace QZmath::Viewing
{

namespace
{

struct Record
{
    std::uint64_t key; // the bits of the three numbers by turns
    std::size_t sample;
    std::array<std::uint16_t, 4> place;
};

std::uint64_t spread(std::uint64_t bits)
{
    bits = (bits | bits << 32) & 0x1f00000000ffff;
    bits = (bits | bits << 16) & 0x1f0000ff0000ff;
    bits = (bits | bits << 8) & 0x100f00f00f00f00f;
    bits = (bits | bits << 4) & 0x10c30c30c30c30c3;
    return (bits | bits << 2) & 0x1249249249249249;
}

} // namespace

ThinnedSamples thinnedSamples(PointCloudView const & samples, SceneMesh const & mesh, std::size_t mostSamples)
{
    ThinnedSamples result;
    if (mostSamples == 0 || samples.size == 0)
        return result;
    double const rim = 0.1 * mesh.scale;
    for (std::size_t k = 0; k < 3; ++k)
        result.low[k] = mesh.low[k] - rim;
    result.step = (mesh.scale + 2 * rim) / 65535;
    std::size_t const mostLooked = std::max(mostSamples, std::size_t(4000000));
    std::size_t const stride = (samples.size + mostLooked - 1) / mostLooked;
    std::vector<Record> records;
    records.reserve(samples.size / stride + 1);
    for (std::size_t i = 0; i < samples.size; i += stride) {
        Record record{0, i, {}};
        bool isInside = true;
        for (std::size_t k = 0; k < 3; ++k) {
            double const place = samples.positions64 != nullptr ? samples.positions64[3 * i + k]
                                                                : double(samples.positions[3 * i + k]);
            double const number = std::round((place - mesh.origin[k] - result.low[k]) / result.step);
            isInside = isInside && number >= 0 && number <= 65535; // false for NaN
            if (isInside) {
                record.place[k] = static_cast<std::uint16_t>(number);
                record.key |= spread(record.place[k]) << k;
            }
        }
        if (isInside)
            records.push_back(record);
    }
    std::sort(records.begin(), records.end(), [](Record const & a, Record const & b) {
        return a.key != b.key ? a.key < b.key : a.sample < b.sample;
    });
    std::size_t const count = std::min(mostSamples, records.size());
    result.places.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        auto const at = static_cast<std::size_t>(double(i) * double(records.size()) / double(count));
        Record const & record = records[std::min(at, records.size() - 1)];
        result.places.push_back(record.place);
        if (samples.colors != nullptr) {
            std::uint8_t const * const color = samples.colors + 3 * record.sample;
            result.colors.push_back({color[0], color[1], color[2], 0});
        }
    }
    return result;
}

} // namespace QZmath::Viewing

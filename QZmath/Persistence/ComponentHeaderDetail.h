// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Persistence/ComponentFilters.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace VsF
{

/// The 128 bytes before the data of a component, see ComponentFilters.h.
struct ComponentHeader
{
    static constexpr std::size_t length = 128;
    static constexpr std::size_t sizeOffset = 10;
    static constexpr std::size_t versionOffset = 18;
    static constexpr std::size_t blockMarkOffset = 22;
    static constexpr std::size_t reservedOffset = 52;
    static constexpr std::int64_t maxDataSize =
        std::numeric_limits<std::int64_t>::max() - static_cast<std::int64_t>(length);

    std::array<unsigned char, length> bytes{};

    ComponentHeader() = default;
    /// That of a component whose size is not known yet. Throws `CVescaException` when the block mark of the
    /// filter does not fit.
    explicit ComponentHeader(IComponentFilter const & filter);

    template <class Unsigned>
    void store(std::size_t offset, Unsigned value)
    {
        for (std::size_t k = 0; k < sizeof(Unsigned); ++k)
            bytes[offset + k] = static_cast<unsigned char>(value >> (8 * k));
    }
    template <class Unsigned>
    Unsigned load(std::size_t offset) const
    {
        Unsigned value = 0;
        for (std::size_t k = 0; k < sizeof(Unsigned); ++k)
            value |= Unsigned{bytes[offset + k]} << (8 * k);
        return value;
    }

    bool hasMark() const;
    void setMark();
    std::int64_t size() const { return static_cast<std::int64_t>(load<std::uint64_t>(sizeOffset)); }
    bool hasSize() const { return size() >= 0 && size() <= maxDataSize; }
    std::int32_t version() const { return static_cast<std::int32_t>(load<std::uint32_t>(versionOffset)); }
    /// All 30 characters when no zero byte ends them, which then is no filter's.
    std::string blockMark() const;

    /// Name and version for a message.
    std::string describe() const;
    /// What is wrong where there is no mark or no size.
    std::string whyUnknown() const;
};

} // namespace VsF

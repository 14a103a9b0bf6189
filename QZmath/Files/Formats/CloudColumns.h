// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PointCloud.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace QZmath
{

/// Positions on their way into a cloud: in `float` as long as that loses nothing.
class PositionColumn
{
public:
    enum class Origin
    {
        numbers, ///< a number that is no `float` makes all `double`
        text,    ///< a word whose digits no `float` gives back does
        wide     ///< always `double`
    };

    explicit PositionColumn(Origin origin) : m_origin(origin), m_isWide(origin == Origin::wide) {}

    void reserve(std::size_t points);
    /// `isFloatEnough` counts for text only.
    void add(double const * position, bool isFloatEnough);
    /// Room for positions that are floats, of which all have to be filled in; for `numbers` only.
    float * addFloats(std::size_t points);
    /// Adds those of another column of the same origin behind its own.
    void append(PositionColumn const & other);
    void clear();
    std::size_t size() const { return (m_floats.empty() ? m_doubles.size() : m_floats.size()) / 3; }
    void moveTo(PointCloud & cloud);

private:
    void widen();

    Origin m_origin;
    bool m_isWide;
    std::vector<float> m_floats; ///< Exactly one of the two has something.
    std::vector<double> m_doubles;
};

/// Colours on their way into a cloud. Bytes are kept as they are. Other numbers are taken for shares of 1,
/// bytes or 16-bit numbers by the greatest one, when all are known.
class ColorColumn
{
public:
    enum class Range
    {
        bytes,
        whole,   ///< integers: 0 to 255 or 0 to 65535
        share,   ///< from 0 to 1, unless one is greater
        unknown, ///< from 0 to 1 when none is greater and one is broken
    };

    explicit ColorColumn(Range range) : m_range(range) {}

    void reserve(std::size_t points);
    void add(double const * color);
    /// Room for colours of bytes, of which all have to be filled in; for `Range::bytes` only. They count as
    /// black for `isAny`.
    std::uint8_t * addBytes(std::size_t points);
    void append(ColorColumn const & other);
    void clear();
    /// True when some colour is not black.
    bool isAny() const { return m_range == Range::bytes ? m_greatestByte > 0 : m_greatest > 0; }
    std::vector<std::uint8_t> finish();
    /// Greatest number, on which the scale depends; 0 of bytes, which have theirs.
    float greatest() const { return m_greatest; }
    bool isBroken() const { return m_isBroken; }
    /// Counts a number that is elsewhere in the file, and whether one there is broken.
    void expect(float number, bool isBroken = false)
    {
        m_greatest = number > m_greatest ? number : m_greatest;
        m_isBroken = m_isBroken || isBroken;
    }

private:
    Range m_range;
    bool m_isBroken = false;
    float m_greatest = 0;
    std::uint8_t m_greatestByte = 0;
    std::vector<std::uint8_t> m_bytes;
    std::vector<float> m_numbers;
};

} // namespace QZmath

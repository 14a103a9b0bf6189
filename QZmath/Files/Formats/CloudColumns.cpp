// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Formats/CloudColumns.h>

#include <algorithm>
#include <cmath>

namespace QZmath
{

void PositionColumn::reserve(std::size_t points)
{
    if (m_origin == Origin::numbers)
        m_floats.reserve(3 * points);
    else
        m_doubles.reserve(3 * points);
}

void PositionColumn::add(double const * position, bool isFloatEnough)
{
    if (m_origin == Origin::numbers && !m_isWide) {
        float const narrow[3] = {static_cast<float>(position[0]), static_cast<float>(position[1]),
                                 static_cast<float>(position[2])};
        bool isExact = true;
        for (int axis = 0; axis < 3; ++axis)
            isExact = isExact &&
                      (static_cast<double>(narrow[axis]) == position[axis] || std::isnan(position[axis]));
        if (isExact) {
            m_floats.insert(m_floats.end(), narrow, narrow + 3);
            return;
        }
        widen();
    }
    m_isWide = m_isWide || !isFloatEnough;
    m_doubles.insert(m_doubles.end(), position, position + 3);
}

float * PositionColumn::addFloats(std::size_t points)
{
    m_floats.resize(m_floats.size() + 3 * points);
    return m_floats.data() + (m_floats.size() - 3 * points);
}

void PositionColumn::append(PositionColumn const & other)
{
    if (m_origin == Origin::numbers && other.m_isWide && !m_isWide)
        widen();
    m_isWide = m_isWide || other.m_isWide;
    if (m_origin == Origin::numbers && !m_isWide)
        m_floats.insert(m_floats.end(), other.m_floats.begin(), other.m_floats.end());
    else if (other.m_floats.empty())
        m_doubles.insert(m_doubles.end(), other.m_doubles.begin(), other.m_doubles.end());
    else
        m_doubles.insert(m_doubles.end(), other.m_floats.begin(), other.m_floats.end());
}

void PositionColumn::clear()
{
    m_floats.clear();
    m_doubles.clear();
    m_isWide = m_origin == Origin::wide;
}

void PositionColumn::widen()
{
    m_isWide = true;
    m_doubles.reserve(m_floats.capacity());
    m_doubles.assign(m_floats.begin(), m_floats.end());
    std::vector<float>().swap(m_floats);
}

void PositionColumn::moveTo(PointCloud & cloud)
{
    if (!m_isWide && m_origin == Origin::text) {
        m_floats.reserve(m_doubles.size());
        for (double const value : m_doubles)
            m_floats.push_back(static_cast<float>(value));
        std::vector<double>().swap(m_doubles);
    }
    cloud.positions = std::move(m_floats);
    cloud.positions64 = std::move(m_doubles);
}

void ColorColumn::reserve(std::size_t points)
{
    if (m_range == Range::bytes)
        m_bytes.reserve(3 * points);
    else
        m_numbers.reserve(3 * points);
}

void ColorColumn::add(double const * color)
{
    for (int channel = 0; channel < 3; ++channel) {
        double const value = color[channel] > 0 ? std::min(color[channel], 1e9) : 0.0;
        if (m_range == Range::bytes) {
            m_bytes.push_back(static_cast<std::uint8_t>(std::min(value, 255.0)));
            m_greatestByte = std::max(m_greatestByte, m_bytes.back());
            continue;
        }
        m_numbers.push_back(static_cast<float>(value));
        m_greatest = std::max(m_greatest, m_numbers.back());
        m_isBroken = m_isBroken || value != std::floor(value);
    }
}

std::uint8_t * ColorColumn::addBytes(std::size_t points)
{
    m_bytes.resize(m_bytes.size() + 3 * points);
    return m_bytes.data() + (m_bytes.size() - 3 * points);
}

void ColorColumn::append(ColorColumn const & other)
{
    m_isBroken = m_isBroken || other.m_isBroken;
    m_greatest = std::max(m_greatest, other.m_greatest);
    m_greatestByte = std::max(m_greatestByte, other.m_greatestByte);
    m_bytes.insert(m_bytes.end(), other.m_bytes.begin(), other.m_bytes.end());
    m_numbers.insert(m_numbers.end(), other.m_numbers.begin(), other.m_numbers.end());
}

void ColorColumn::clear()
{
    m_isBroken = false;
    m_greatest = 0;
    m_greatestByte = 0;
    m_bytes.clear();
    m_numbers.clear();
}

std::vector<std::uint8_t> ColorColumn::finish()
{
    bool const isShare =
        m_greatest <= 1 && (m_range == Range::share || (m_range == Range::unknown && m_isBroken));
    float const scale = isShare ? 255.0f : m_greatest > 255 ? 1.0f / 257.0f : 1.0f;
    m_bytes.reserve(m_numbers.size());
    for (float const number : m_numbers)
        m_bytes.push_back(static_cast<std::uint8_t>(std::min(255.0f, std::floor(number * scale + 0.5f))));
    std::vector<float>().swap(m_numbers);
    return std::move(m_bytes);
}

} // namespace QZmath

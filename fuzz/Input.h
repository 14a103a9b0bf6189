// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <utility>
#include <vector>

/// What the fuzz targets share: values that are drawn from the bytes of an input, ordinary and hostile ones
/// mixed, and the properties that hold for whatever was drawn. When the bytes are used up, zeros follow.
namespace qz_fuzz
{

[[noreturn]] inline void failed(char const * property)
{
    std::fprintf(stderr, "broken: %s\n", property);
    std::abort();
}

inline void require(bool holds, char const * property)
{
    if (!holds)
        failed(property);
}

class Input
{
public:
    Input(std::uint8_t const * data, std::size_t size) : m_next(data), m_end(data + size) {}

    bool isUsedUp() const { return m_next == m_end; }
    int byte() { return isUsedUp() ? 0 : *m_next++; }
    bool flag() { return byte() % 2 == 1; }
    /// 0 to `most`, at most 255.
    int upTo(int most) { return byte() % (most + 1); }

    /// Mostly small, at times the ends of the range.
    int integer()
    {
        int const ends[] = {std::numeric_limits<int>::min(), std::numeric_limits<int>::max(),
                            std::numeric_limits<int>::max() - 1, -1};
        int const code = byte();
        return code < 240 ? code % 40 - 8 : ends[code % 4];
    }

    /// Eighths of small numbers, numbers with all their digits, and what breaks arithmetic.
    double number()
    {
        using Limits = std::numeric_limits<double>;
        double const hostile[] = {Limits::quiet_NaN(),
                                  Limits::infinity(),
                                  -Limits::infinity(),
                                  Limits::max(),
                                  -Limits::max(),
                                  Limits::min(),
                                  Limits::denorm_min(),
                                  -0.0,
                                  1e38,
                                  -1e38,
                                  1e-38,
                                  3.5e38,
                                  1e-45,
                                  1e150,
                                  -1e-160,
                                  1e19,
                                  -4e9,
                                  2147483648.0,
                                  1 + Limits::epsilon(),
                                  1e9,
                                  1e30};
        int const code = byte();
        if (code < 176)
            return (code - 80) / 8.0;
        if (code < 224) {
            std::int32_t digits = 0;
            raw(digits);
            return std::ldexp(double(digits), code - 224);
        }
        if (code == 224) {
            double bits = 0;
            raw(bits);
            return bits;
        }
        return hostile[std::size_t(code - 225) % (sizeof(hostile) / sizeof(*hostile))];
    }
    /// Small, with all digits; never hostile.
    double ordinary()
    {
        std::int16_t digits = 0;
        raw(digits);
        return digits / 4096.0;
    }

    template <class Value>
    void raw(Value & value)
    {
        std::size_t const count = std::min(sizeof(value), static_cast<std::size_t>(m_end - m_next));
        if (count > 0)
            std::memcpy(&value, m_next, count);
        m_next += count;
    }

    std::vector<float> floats(std::size_t count)
    {
        std::vector<float> result;
        for (std::size_t k = 0; k < count; ++k)
            result.push_back(float(number()));
        return result;
    }
    REmath::Point3D_d point()
    {
        double const x = number(), y = number(), z = number();
        return {x, y, z};
    }

    /// Up to `most` points, from few bytes: on a line, circle, plane, sphere, lattice or anywhere, at any
    /// scale and place, with noise, outliers and repetitions, and points of their own among them.
    std::vector<REmath::Point3D_d> points(int most)
    {
        int const shape = byte(), count = upTo(most), habit = byte();
        double const scale = (habit & 1) != 0 ? number() : 1.0, noise = (habit & 2) != 0 ? ordinary() : 0.0;
        REmath::Point3D_d const centre = (habit & 4) != 0 ? point() : REmath::Point3D_d();
        int const outliers = (habit & 8) != 0 ? byte() : 0, repeated = (habit & 16) != 0 ? byte() : 0;
        int const own = (habit & 32) != 0 ? upTo(count) : shape % 8 == 0 ? count : 0;
        m_random = static_cast<std::uint64_t>(habit) * 977 + static_cast<std::uint64_t>(shape / 8) + 1;
        std::vector<REmath::Point3D_d> result;
        for (int k = 0; k < count; ++k) {
            if (k > 0 && random() * 256 < repeated)
                result.push_back(result[static_cast<std::size_t>(random() * k)]);
            else if (k < own)
                result.push_back(point());
            else if (random() * 256 < outliers)
                result.push_back(place(randomPoint() * 4.0, scale, centre));
            else
                result.push_back(place(onShape(shape % 8, k) + randomPoint() * noise, scale, centre));
        }
        return result;
    }

private:
    // 0 to 1, by a generator of its own (S. Vigna's xorshift64*), so that few bytes make many points.
    double random()
    {
        m_random ^= m_random >> 12;
        m_random ^= m_random << 25;
        m_random ^= m_random >> 27;
        return static_cast<double>((m_random * 0x2545F4914F6CDD1DULL) >> 11) * 0x1p-53;
    }
    REmath::Point3D_d randomPoint()
    {
        double const x = random(), y = random(), z = random();
        return {2 * x - 1, 2 * y - 1, 2 * z - 1};
    }
    static REmath::Point3D_d place(REmath::Point3D_d const & p, double scale,
                                   REmath::Point3D_d const & centre)
    {
        return {p.x() * scale + centre.x(), p.y() * scale + centre.y(), p.z() * scale + centre.z()};
    }
    REmath::Point3D_d onShape(int shape, int k)
    {
        double const turn = 6.283185307179586 * random(), along = 2 * random() - 1;
        switch (shape) {
        case 1:
            return REmath::Point3D_d(1.0, 2.0, -0.5) * along;
        case 2:
            return {std::cos(turn), std::sin(turn), 0.0};
        case 3:
            return {along, 2 * random() - 1, 0.25 * along};
        case 4: {
            double const ring = std::sqrt(1 - along * along);
            return {ring * std::cos(turn), ring * std::sin(turn), along};
        }
        case 5:
            return {double(k % 4), double(k / 4 % 4), double(k / 16)};
        case 6: // an open chain of two lines and an arc
            return k < 20   ? REmath::Point3D_d(-0.1 * k, 1.0, 0.0)
                   : k < 40 ? REmath::Point3D_d(std::sin(0.1 * (k - 20)), std::cos(0.1 * (k - 20)), 0.0)
                            : REmath::Point3D_d(1.0, -0.05 * (k - 40), 0.0);
        default:
            return randomPoint();
        }
    }

    std::uint8_t const * m_next;
    std::uint8_t const * m_end;
    std::uint64_t m_random = 1;
};

inline std::vector<REmath::Point3D> inSinglePrecision(std::vector<REmath::Point3D_d> const & points)
{
    std::vector<REmath::Point3D> result;
    for (REmath::Point3D_d const & p : points)
        result.emplace_back(p.x(), p.y(), p.z());
    return result;
}

template <class Point>
bool isFinite(Point const & p)
{
    return std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z());
}

inline double dot(REmath::Point3D_d const & a, REmath::Point3D_d const & b)
{
    return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}

/// Finite, and as long as 1 within the rounding of a few operations.
inline bool isUnit(REmath::Point3D_d const & p, double tolerance = 1e-9)
{
    return isFinite(p) && std::fabs(dot(p, p) - 1) < tolerance;
}

/// Whether every edge of a mesh has two triangles. They are of its vertices, and on different sides of it.
template <class Index>
bool isClosedMesh(std::vector<Index> const & triangles, std::size_t vertices)
{
    std::map<std::pair<Index, Index>, int> edges;
    for (std::size_t corner = 0; corner < triangles.size(); ++corner) {
        Index const from = triangles[corner], to = triangles[corner % 3 == 2 ? corner - 2 : corner + 1];
        require(from >= 0 && static_cast<std::size_t>(from) < vertices && from != to,
                "a triangle has three vertices of the mesh");
        require(++edges[{from, to}] == 1, "an edge has one triangle on each side");
    }
    return std::all_of(edges.begin(), edges.end(), [&edges](auto const & edge) {
        return edges.count({edge.first.second, edge.first.first}) > 0;
    });
}

/// A result as bits, to be compared with that of a second call.
class Bits
{
public:
    template <class... Values>
    explicit Bits(Values const &... values)
    {
        (add(values), ...);
    }
    bool operator==(Bits const & other) const { return m_bytes == other.m_bytes; }

private:
    template <class Value>
    void add(Value const & value)
    {
        auto const * const bytes = reinterpret_cast<unsigned char const *>(&value);
        m_bytes.insert(m_bytes.end(), bytes, bytes + sizeof(value));
    }
    template <class Value>
    void add(std::vector<Value> const & values)
    {
        for (Value const & value : values)
            add(value);
    }

    std::vector<unsigned char> m_bytes;
};

} // namespace qz_fuzz

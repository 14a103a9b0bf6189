// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Fitting/Consensus/Shapes.h>

#include <cstdint>
#include <limits>
#include <utility>

namespace REmath::Detail
{

/// The generator SplitMix64 (G. Steele, D. Lea, C. Flood: Fast splittable
/// pseudorandom number generators, 2014).
class SampleRandom
{
public:
    explicit SampleRandom(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t next()
    {
        m_state += 0x9E3779B97F4A7C15U;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBU;
        return mixed ^ mixed >> 31;
    }

    /// Of 0 to count - 1, for counts below 2^32, where the unevenness of the product does not matter.
    std::size_t below(std::size_t count) { return static_cast<std::size_t>((next() >> 32) * count >> 32); }

private:
    std::uint64_t m_state;
};

/// At most `mostSamples` of many points in random order, in coordinates about the median of the points and in
/// units of a power of two in which most of them lie within 2.
class SampleSet
{
public:
    static constexpr std::size_t mostSamples = 512;
    /// As many of the samples tell where the points are.
    static constexpr std::size_t extentSamples = 256;

    /// False when more than four fifths of the points coincide, or when coordinates are out of range.
    template <class Points>
    bool draw(Points const & points, SampleRandom & random)
    {
        std::size_t const count = points.size();
        std::vector<Point3D_d> samples(count < mostSamples ? count : mostSamples);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            // One out of each of as many stretches of the same length.
            std::size_t const first = stretch(i, samples.size(), count);
            samples[i] = points[first + random.below(stretch(i + 1, samples.size(), count) - first)];
        }
        for (std::size_t i = samples.size(); i-- > 1;)
            std::swap(samples[i], samples[random.below(i + 1)]);
        return place(samples);
    }

    /// Takes some of the samples of another set, in its units and with its rounding, as a set of their own.
    bool take(std::vector<Point3D_d> const & some, SampleSet const & from);

    std::size_t size() const { return m_size; }
    Point3D_d sample(std::size_t i) const { return {m_x[i], m_y[i], m_z[i]}; }
    /// Coordinates of all samples and, up to a multiple of 4, of samples that are near nothing (NaN).
    double const * x() const { return m_x.data(); }
    double const * y() const { return m_y.data(); }
    double const * z() const { return m_z.data(); }
    Extents const & extents() const { return m_extents; }

    Point3D_d toUnits(Point3D_d const & point) const { return (point - m_reference) * m_scale; }
    Point3D_d fromUnits(Point3D_d const & point) const { return point / m_scale + m_reference; }
    double scale() const { return m_scale; }
    /// Distances below are rounding of the coordinates, in units.
    double rounding() const { return m_rounding; }

private:
    static std::size_t stretch(std::size_t i, std::size_t stretches, std::size_t count)
    {
        return count / stretches * i + count % stretches * i / stretches;
    }
    bool place(std::vector<Point3D_d> & samples);
    void hold(std::vector<Point3D_d> const & samples);
    bool measureExtents();

    std::size_t m_size = 0;
    std::vector<double> m_x, m_y, m_z;
    Point3D_d m_reference;
    double m_scale = 1;
    double m_rounding = 0;
    Extents m_extents{};
};

} // namespace REmath::Detail

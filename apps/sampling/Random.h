// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace qz_sampling
{

/// Random numbers that are the same for a seed on every platform, unlike the standard distributions. The
/// generator is SplitMix64 (Steele, Lea, Flood: Fast splittable pseudorandom number generators, 2014). Its
/// state is a counter, so that any place of the sequence is as near as the next one.
class Random
{
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t next()
    {
        m_state += st_step;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBU;
        return mixed ^ mixed >> 31;
    }

    /// A multiple of 2^-53 in [0, 1).
    double uniform() { return static_cast<double>(next() >> 11) * 0x1p-53; }
    double uniform(double low, double high) { return low + (high - low) * uniform(); }

    /// Standard normal deviate: the sum of twelve uniform ones has mean 6, variance 1 and tails up to 6.
    /// Needs no transcendental function, whose last bits differ between mathematical libraries.
    double normal()
    {
        double sum = -6;
        for (int term = 0; term < 12; ++term)
            sum += uniform();
        return sum;
    }

    /// The generator as it is when so many numbers more have been drawn.
    Random ahead(std::uint64_t draws) const { return Random(m_state + draws * st_step); }
    /// How many numbers have been drawn since the generator was as `earlier` is.
    std::uint64_t drawsSince(Random const & earlier) const
    {
        return (m_state - earlier.m_state) * st_inverseStep;
    }

private:
    static constexpr std::uint64_t st_step = 0x9E3779B97F4A7C15U;
    static constexpr std::uint64_t st_inverseStep = 0xF1DE83E19937733DU; // modulo 2^64
    static_assert(st_step * st_inverseStep == 1);

    std::uint64_t m_state;
};

} // namespace qz_sampling

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Ranks/Partition.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace QZmath::Distributed
{

namespace
{

// Spreads the lowest 21 bits of a number, two zeros between each.
std::uint64_t spread(std::uint64_t bits)
{
    bits &= 0x1fffffU;
    bits = (bits | bits << 32) & UINT64_C(0x1f00000000ffff);
    bits = (bits | bits << 16) & UINT64_C(0x1f0000ff0000ff);
    bits = (bits | bits << 8) & UINT64_C(0x100f00f00f00f00f);
    bits = (bits | bits << 4) & UINT64_C(0x10c30c30c30c30c3);
    return (bits | bits << 2) & UINT64_C(0x1249249249249249);
}

std::uint64_t gather(std::uint64_t bits)
{
    bits &= UINT64_C(0x1249249249249249);
    bits = (bits | bits >> 2) & UINT64_C(0x10c30c30c30c30c3);
    bits = (bits | bits >> 4) & UINT64_C(0x100f00f00f00f00f);
    bits = (bits | bits >> 8) & UINT64_C(0x1f0000ff0000ff);
    bits = (bits | bits >> 16) & UINT64_C(0x1f00000000ffff);
    return (bits | bits >> 32) & 0x1fffffU;
}

} // namespace

Partition::Partition(int unitDepth, std::vector<std::uint64_t> firstKeys)
    : m_unitDepth(unitDepth), m_firstKeys(std::move(firstKeys))
{}

std::uint64_t Partition::keyOf(std::array<int, 3> const & unit) const
{
    int const last = (1 << m_unitDepth) - 1;
    auto const bits = [last](int coord) {
        return spread(static_cast<std::uint64_t>(std::clamp(coord, 0, last)));
    };
    return bits(unit[0]) << 2 | bits(unit[1]) << 1 | bits(unit[2]);
}

std::array<int, 3> Partition::unitOf(std::uint64_t key)
{
    return {static_cast<int>(gather(key >> 2)), static_cast<int>(gather(key >> 1)),
            static_cast<int>(gather(key))};
}

int Partition::ownerOfKey(std::uint64_t key) const
{
    return static_cast<int>(std::upper_bound(m_firstKeys.begin(), m_firstKeys.end(), key) -
                            m_firstKeys.begin());
}

std::vector<std::uint64_t> Partition::split(std::vector<std::uint64_t> const & keys,
                                            std::vector<double> const & weights, int ranks)
{
    double total = 0.0;
    for (double const weight : weights)
        total += weight;
    std::vector<std::uint64_t> firstKeys;
    double before = 0.0; // of the keys up to `next`
    std::size_t next = 0;
    for (int rank = 1; rank < ranks; ++rank) {
        // A key goes to the side on which its middle lies.
        double const bound = total * rank / ranks;
        while (next < keys.size() && before + 0.5 * weights[next] <= bound)
            before += weights[next++];
        firstKeys.push_back(next < keys.size() ? keys[next] : ~std::uint64_t{0});
    }
    return firstKeys;
}

} // namespace QZmath::Distributed

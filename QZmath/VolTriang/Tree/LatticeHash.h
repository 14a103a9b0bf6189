// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Lattice.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VolTr
{

/// Open-addressing hash table from lattice points to their indices in an array that the caller keeps; the
/// table holds the indices only, 4 bytes a slot at a load of at most one half.
class CLatticeHash
{
public:
    CLatticeHash() : m_slots(1024, -1), m_count(0) {}

    static std::uint64_t hashOf(CInt3 const & place, int depth)
    {
        std::uint64_t hash = static_cast<std::uint32_t>(place.x()) * UINT64_C(0x9E3779B97F4A7C15);
        hash = (hash ^ (hash >> 29)) + static_cast<std::uint32_t>(place.y());
        hash *= UINT64_C(0xBF58476D1CE4E5B9);
        hash = (hash ^ (hash >> 32)) + static_cast<std::uint32_t>(place.z());
        hash *= UINT64_C(0x94D049BB133111EB);
        hash = (hash ^ (hash >> 31)) + static_cast<std::uint32_t>(depth);
        hash *= UINT64_C(0xD6E8FEB86659FD93);
        return hash ^ (hash >> 32);
    }

    /// Asks for the memory that `find` will read, so that several look-ups wait for it at the same time.
    void prefetch(std::uint64_t hash) const { __builtin_prefetch(&m_slots[hash & (m_slots.size() - 1)]); }
    /// The index at which `find` will look first, or -1.
    int first(std::uint64_t hash) const { return m_slots[hash & (m_slots.size() - 1)]; }

    /// The index of the element that `equals(index)` accepts, or -1.
    template <class Equals>
    int find(std::uint64_t hash, Equals equals) const
    {
        std::size_t const mask = m_slots.size() - 1;
        for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
            int const index = m_slots[slot];
            if (index < 0 || equals(index))
                return index;
        }
    }

    /// Adds an element that `find` did not find; elements get the indices 0, 1, 2 and so on.
    /// `hashOfIndex(index)` gives the hash of any element when the table grows, in the order of the elements.
    template <class HashOfIndex>
    void insert(std::uint64_t hash, int index, HashOfIndex hashOfIndex)
    {
        if (2 * (m_count + 1) > m_slots.size()) {
            m_slots.assign(2 * m_slots.size(), -1);
            for (int element = 0; element < index; ++element)
                place(hashOfIndex(element), element);
        }
        place(hash, index);
        ++m_count;
    }

private:
    void place(std::uint64_t hash, int index)
    {
        std::size_t const mask = m_slots.size() - 1;
        std::size_t slot = hash & mask;
        while (m_slots[slot] >= 0)
            slot = (slot + 1) & mask;
        m_slots[slot] = index;
    }

    std::vector<int> m_slots; // a power of two of them, -1 where free
    std::size_t m_count;
};

} // namespace VolTr

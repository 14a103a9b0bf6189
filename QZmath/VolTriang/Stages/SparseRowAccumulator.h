// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace VolTr
{

/// Collects the elements of one row of a sparse matrix in any order and gives them back by ascending column.
///
/// A value array over all columns and a tree of bit sets, 64 bits a node, mark what is there, so a row costs
/// time linear in its elements and no comparison. Memory: 8 bytes and a little per column.
class SparseRowAccumulator
{
public:
    explicit SparseRowAccumulator(int columnsNumber)
        : m_values(static_cast<std::size_t>(std::max(columnsNumber, 0)))
    {
        std::size_t words = m_values.size();
        for (std::vector<std::uint64_t> & level : m_levels) {
            words = words / 64 + 1;
            level.assign(words, 0);
        }
    }

    /// Sets the value of a column (unchecked) that the row does not have yet.
    void insert(int column, double value)
    {
        std::size_t place = static_cast<std::size_t>(column);
        m_values[place] = value;
        ++m_count;
        for (std::vector<std::uint64_t> & level : m_levels) {
            std::uint64_t & word = level[place >> 6];
            std::uint64_t const bit = UINT64_C(1) << (place & 63);
            // A word that was in use is marked in the levels above already.
            bool const wasUsed = word != 0;
            word |= bit;
            if (wasUsed)
                return;
            place >>= 6;
        }
    }

    /// Hands the row over and is empty again.
    void moveTo(std::vector<int> & columns, std::vector<double> & values)
    {
        columns.resize(m_count);
        values.resize(m_count);
        m_count = 0;
        std::size_t taken = 0;
        for (std::size_t word = 0; word < m_levels.back().size(); ++word)
            take(m_levels.size() - 1, word, columns, values, taken);
    }

private:
    void take(std::size_t level, std::size_t word, std::vector<int> & columns, std::vector<double> & values,
              std::size_t & taken)
    {
        std::uint64_t bits = m_levels[level][word];
        m_levels[level][word] = 0;
        for (; bits != 0; bits &= bits - 1) {
            std::size_t const place = word << 6 | static_cast<std::size_t>(__builtin_ctzll(bits));
            if (level > 0) {
                take(level - 1, place, columns, values, taken);
            } else {
                columns[taken] = static_cast<int>(place);
                values[taken++] = m_values[place];
            }
        }
    }

    std::vector<double> m_values;
    std::array<std::vector<std::uint64_t>, 4> m_levels; // bit of a column, of a word of 64 columns, and so on
    std::size_t m_count = 0;
};

} // namespace VolTr

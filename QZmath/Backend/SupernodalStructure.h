// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/SparsePattern.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class CProgressCounter;

namespace QzBackend
{

/// Where the elements of a Cholesky factor stand: runs of columns that have (nearly) the same rows below the
/// diagonal form a supernode, which is stored as one dense block, column by column, with zeros in place of
/// what the structure lacks and unused elements above the diagonal.
struct SupernodalStructure
{
    std::vector<int> columnsBegin;        ///< first column of each supernode, and the end
    std::vector<std::int64_t> rowsBegin;  ///< into `rows`
    std::vector<std::int64_t> blockBegin; ///< into the elements of the factor
    std::vector<int> rows;                ///< of each supernode, ascending; its own columns first
    std::vector<int> supernodeOf;         ///< for each column
    std::vector<int> parent;              ///< supernode of the first row below the own columns, -1 for roots

    /// The supernodes that change a supernode, by rising number, and the place in their rows where its
    /// columns begin.
    std::vector<std::int64_t> sourcesBegin;
    std::vector<int> sources, sourceRow;

    double work = 0; ///< multiplications and additions of a factorisation

    int supernodes() const { return static_cast<int>(columnsBegin.size()) - 1; }
    int columnsOf(int supernode) const { return first(supernode + 1) - first(supernode); }
    int first(int supernode) const { return columnsBegin[static_cast<std::size_t>(supernode)]; }
    int heightOf(int supernode) const
    {
        std::size_t const number = static_cast<std::size_t>(supernode);
        return static_cast<int>(rowsBegin[number + 1] - rowsBegin[number]);
    }
    int const * rowsOf(int supernode) const
    {
        return rows.data() + rowsBegin[static_cast<std::size_t>(supernode)];
    }
};

/// Finds the structure of the factor of a matrix whose elements on and above the diagonal are read. `order`,
/// the order of elimination, is rearranged to an equivalent one in which each supernode's columns stand side
/// by side.
///
/// Supernodes are merged with their parents where that costs few zeros (Ashcraft and Grimes, ACM TOMS 15,
/// 1989): dense kernels on wide blocks are worth more than the multiplications by zeros cost. Throws
/// `std::bad_alloc` when memory is short and what `progress` (may be null) throws; it gets positions of 0
/// to 1.
SupernodalStructure analyzeSupernodes(SparsePattern const & pattern, std::vector<int> & order,
                                      CProgressCounter * progress);

} // namespace QzBackend

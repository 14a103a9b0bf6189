// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

namespace QzBackend
{

/// The elimination tree of a symmetric matrix and what can be read from it without the factor itself. Rows
/// are numbered in the order of elimination. The matrix comes as a visitor:
/// `visitEarlier(row, visit)` calls `visit(other)` for the elements of a row left of the diagonal,
/// `visitLater(row, visit)` for those right of it, each in any order.

/// The parent of each row, -1 for roots: the first row below the diagonal of its column in the factor. After
/// Liu, with compressed paths (ACM TOMS 12, 1986): time nearly linear in the elements.
template <class VisitEarlier>
std::vector<int> eliminationTree(int size, VisitEarlier const & visitEarlier)
{
    std::vector<int> parent(static_cast<std::size_t>(size), -1), ancestor(parent);
    for (int row = 0; row < size; ++row)
        visitEarlier(row, [&](int other) {
            while (other >= 0 && other < row) {
                int & above = ancestor[static_cast<std::size_t>(other)];
                int const next = above;
                above = row;
                if (next < 0)
                    parent[static_cast<std::size_t>(other)] = row;
                other = next;
            }
        });
    return parent;
}

/// The rows so that each subtree stands together and before its root; children with the lesser `weights`, of
/// 0 to the number of rows, come first, those of equal weight by number.
std::vector<int> postorder(std::vector<int> const & parent, std::vector<int> const & weights);

/// Finds how many elements each column of the factor has, the diagonal included. After Gilbert, Ng and Peyton
/// (SIAM J. Matrix Anal. Appl. 15, 1994): a column's elements are counted where the subtree of a row begins
/// and where its branches meet, so the time is nearly linear in the elements of the matrix.
class ColumnCounter
{
public:
    /// \param order   a postorder of the tree
    /// \param weights what each row counts for; null for 1
    ColumnCounter(std::vector<int> const & parent, std::vector<int> const & order,
                  std::vector<int> const * weights = nullptr);

    template <class VisitLater>
    std::vector<int> count(VisitLater const & visitLater)
    {
        for (int const row : m_order) {
            int const above = m_parent[static_cast<std::size_t>(row)];
            if (above >= 0)
                m_change[static_cast<std::size_t>(above)] -= weight(row);
            visitLater(row, [&](int other) { addLeaf(row, other); });
            if (above >= 0)
                m_ancestor[static_cast<std::size_t>(row)] = above;
        }
        return sums();
    }

private:
    int weight(int row) const { return m_weights ? (*m_weights)[static_cast<std::size_t>(row)] : 1; }
    void addLeaf(int row, int subtreeOf);
    std::vector<int> sums();

    std::vector<int> const & m_parent;
    std::vector<int> const & m_order;
    std::vector<int> const * const m_weights;
    std::vector<int> m_firstDescendant; ///< in the numbers of the postorder
    std::vector<int> m_change;          ///< of the count from the children to the row itself
    std::vector<int> m_ancestor;        ///< of finished subtrees, by compressed paths
    std::vector<int> m_latestFirst, m_latestLeaf;
};

} // namespace QzBackend

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/EliminationTree.h>

#include <QZmath/Backend/Place.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace QzBackend
{

std::vector<int> postorder(std::vector<int> const & parent, std::vector<int> const & weights)
{
    int const size = static_cast<int>(parent.size());
    std::vector<int> byWeight(parent.size());
    std::vector<int> place(parent.size() + 2, 0);
    for (int const weight : weights)
        ++place[at(weight) + 1];
    std::partial_sum(place.begin(), place.end(), place.begin());
    for (int row = 0; row < size; ++row)
        byWeight[at(place[at(weights[at(row)])]++)] = row;
    std::vector<int> firstChild(parent.size(), -1), nextSibling(parent.size(), -1);
    for (std::size_t number = parent.size(); number-- > 0;) {
        int const row = byWeight[number];
        if (int const above = parent[at(row)]; above >= 0) {
            nextSibling[at(row)] = firstChild[at(above)];
            firstChild[at(above)] = row;
        }
    }
    std::vector<int> order;
    order.reserve(parent.size());
    for (int root = 0; root < size; ++root) {
        if (parent[at(root)] >= 0)
            continue;
        // Down to the first leaf, then from each finished row to its sibling or up.
        for (int row = root; row >= 0;) {
            while (firstChild[at(row)] >= 0)
                row = firstChild[at(row)];
            for (;;) {
                order.push_back(row);
                if (row == root) {
                    row = -1;
                    break;
                }
                if (nextSibling[at(row)] >= 0) {
                    row = nextSibling[at(row)];
                    break;
                }
                row = parent[at(row)];
            }
        }
    }
    return order;
}

ColumnCounter::ColumnCounter(std::vector<int> const & parent, std::vector<int> const & order,
                             std::vector<int> const * weights)
    : m_parent(parent), m_order(order), m_weights(weights), m_firstDescendant(parent.size(), -1),
      m_change(parent.size(), 0), m_ancestor(parent.size()), m_latestFirst(parent.size(), -1),
      m_latestLeaf(parent.size(), -1)
{
    std::iota(m_ancestor.begin(), m_ancestor.end(), 0);
    for (std::size_t number = 0; number < order.size(); ++number) {
        int row = order[number];
        if (m_firstDescendant[at(row)] < 0)
            m_change[at(row)] = weight(row);
        for (; row >= 0 && m_firstDescendant[at(row)] < 0; row = parent[at(row)])
            m_firstDescendant[at(row)] = static_cast<int>(number);
    }
}

void ColumnCounter::addLeaf(int row, int subtreeOf)
{
    // A row with a descendant in the same subtree is no leaf of it.
    if (m_firstDescendant[at(row)] <= m_latestFirst[at(subtreeOf)])
        return;
    m_latestFirst[at(subtreeOf)] = m_firstDescendant[at(row)];
    int const previous = std::exchange(m_latestLeaf[at(subtreeOf)], row);
    m_change[at(row)] += weight(subtreeOf);
    if (previous < 0)
        return;
    int meeting = previous;
    while (m_ancestor[at(meeting)] != meeting)
        meeting = m_ancestor[at(meeting)];
    for (int below = previous; below != meeting;)
        below = std::exchange(m_ancestor[at(below)], meeting);
    m_change[at(meeting)] -= weight(subtreeOf);
}

std::vector<int> ColumnCounter::sums()
{
    for (int const row : m_order)
        if (int const above = m_parent[at(row)]; above >= 0)
            m_change[at(above)] += m_change[at(row)];
    return std::move(m_change);
}

} // namespace QzBackend

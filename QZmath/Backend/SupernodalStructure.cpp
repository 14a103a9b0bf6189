// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/SupernodalStructure.h>

#include <QZmath/Backend/EliminationTree.h>
#include <QZmath/Backend/Place.h>
#include <QZmath/Backend/RawArray.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <numeric>
#include <utility>

namespace QzBackend
{
namespace
{

// Supernodes of up to so many columns are merged when the zeros stay below this share of the block.
struct MergeRule
{
    int columns;
    double zeros;
};
constexpr MergeRule mergeRules[] = {{4, 2.0}, {16, 0.8}, {48, 0.1}, {std::numeric_limits<int>::max(), 0.05}};

// Lists of numbers, one behind the other.
struct Lists
{
    std::vector<std::int64_t> begin;
    RawArray<int> members;

    template <class Visit>
    void visit(int list, Visit const & call) const
    {
        for (std::int64_t place = begin[at(list)]; place < begin[at(list) + 1]; ++place)
            call(members[at(place)]);
    }
};

class Analysis
{
public:
    Analysis(SparsePattern const & pattern, std::vector<int> & order, CProgressCounter * progress)
        : m_pattern(pattern), m_order(order), m_progress(progress), m_size(pattern.size)
    {}
    SupernodalStructure run();

private:
    void report(int row, double from, double to) const
    {
        if (m_progress && row % 16 == 0)
            m_progress->SetPosFloat(from + (to - from) * row / m_size);
    }
    Lists earlierRows() const;
    Lists laterRows(Lists const & earlier) const;
    void findSupernodes(std::vector<int> const & parent, std::vector<int> const & counts);
    void findRows(Lists const & earlier, std::vector<int> const & number, std::vector<int> const & oldNumber);
    void findSources();

    SparsePattern const & m_pattern;
    std::vector<int> & m_order;
    CProgressCounter * const m_progress;
    int const m_size;
    SupernodalStructure m_result;
};

// For each row, in the order of elimination, the rows eliminated before that it has elements with.
Lists Analysis::earlierRows() const
{
    std::vector<int> position(at(m_size));
    for (int k = 0; k < m_size; ++k)
        position[at(m_order[at(k)])] = k;
    Lists earlier;
    earlier.begin.assign(at(m_size) + 1, 0);
    auto const visit = [&](double from, double to, auto const & call) {
        for (int row = 0; row < m_size; ++row) {
            report(row, from, to);
            m_pattern.visitUpper(row, [&](int upper, int other, int) {
                if (upper != other) {
                    auto const [early, late] = std::minmax(position[at(upper)], position[at(other)]);
                    call(early, late);
                }
            });
        }
    };
    visit(0.0, 0.1, [&](int, int late) { ++earlier.begin[at(late) + 1]; });
    std::partial_sum(earlier.begin.begin(), earlier.begin.end(), earlier.begin.begin());
    earlier.members = touchedArray<int>(at(earlier.begin.back()), [&] { report(0, 0.1, 0.1); });
    std::vector<std::int64_t> place(earlier.begin.begin(), earlier.begin.end() - 1);
    visit(0.1, 0.35, [&](int early, int late) { earlier.members[at(place[at(late)]++)] = early; });
    return earlier;
}

Lists Analysis::laterRows(Lists const & earlier) const
{
    Lists later;
    later.begin.assign(at(m_size) + 1, 0);
    for (int row = 0; row < m_size; ++row) {
        report(row, 0.5, 0.55);
        earlier.visit(row, [&](int other) { ++later.begin[at(other) + 1]; });
    }
    std::partial_sum(later.begin.begin(), later.begin.end(), later.begin.begin());
    later.members = touchedArray<int>(earlier.members.size(), [&] { report(0, 0.55, 0.55); });
    std::vector<std::int64_t> place(later.begin.begin(), later.begin.end() - 1);
    for (int row = 0; row < m_size; ++row) {
        report(row, 0.55, 0.7);
        earlier.visit(row, [&](int other) { later.members[at(place[at(other)]++)] = row; });
    }
    return later;
}

// From the tree in postorder and the elements of each column: where each supernode begins, and its height.
void Analysis::findSupernodes(std::vector<int> const & parent, std::vector<int> const & counts)
{
    std::vector<int> children(at(m_size), 0);
    for (int const above : parent)
        if (above >= 0)
            ++children[at(above)];
    std::vector<int> begins;
    for (int column = 0; column < m_size; ++column)
        if (column == 0 || parent[at(column) - 1] != column || children[at(column)] != 1 ||
            counts[at(column) - 1] != counts[at(column)] + 1)
            begins.push_back(column);
    // From the last to the first: each one is joined with the group behind it if that holds its parent.
    struct Group
    {
        int begin, end, height;
        double zeros;
    };
    std::vector<Group> groups;
    for (std::size_t number = begins.size(); number-- > 0;) {
        int const begin = begins[number];
        int const end = number + 1 < begins.size() ? begins[number + 1] : m_size;
        int const height = counts[at(begin)];
        if (!groups.empty() && parent[at(end) - 1] >= 0 && parent[at(end) - 1] < groups.back().end) {
            Group & behind = groups.back();
            double const own = end - begin, columns = behind.end - begin;
            double const zeros = behind.zeros + own * (own + behind.height - height);
            double const size =
                columns * (columns + 1) / 2 + columns * (behind.height - (behind.end - behind.begin));
            bool const worthIt =
                std::any_of(std::begin(mergeRules), std::end(mergeRules), [&](MergeRule rule) {
                    return columns <= rule.columns && zeros < rule.zeros * size;
                });
            if (worthIt || zeros == behind.zeros) {
                behind = {begin, behind.end, end - begin + behind.height, zeros};
                continue;
            }
        }
        groups.push_back({begin, end, height, 0.0});
    }
    m_result.columnsBegin.reserve(groups.size() + 1);
    m_result.rowsBegin.assign(1, 0);
    m_result.blockBegin.assign(1, 0);
    m_result.supernodeOf.resize(at(m_size));
    for (auto group = groups.rbegin(); group != groups.rend(); ++group) {
        int const supernode = static_cast<int>(m_result.columnsBegin.size());
        m_result.columnsBegin.push_back(group->begin);
        m_result.rowsBegin.push_back(m_result.rowsBegin.back() + group->height);
        m_result.blockBegin.push_back(m_result.blockBegin.back() +
                                      std::int64_t(group->height) * (group->end - group->begin));
        std::fill(m_result.supernodeOf.begin() + group->begin, m_result.supernodeOf.begin() + group->end,
                  supernode);
        for (int column = group->begin; column < group->end; ++column) {
            double const rows = group->height - (column - group->begin);
            m_result.work += rows * rows;
        }
    }
    m_result.columnsBegin.push_back(m_size);
    m_result.parent.resize(groups.size());
    for (int supernode = 0; supernode < m_result.supernodes(); ++supernode) {
        int const above = parent[at(m_result.first(supernode + 1)) - 1];
        m_result.parent[at(supernode)] = above < 0 ? -1 : m_result.supernodeOf[at(above)];
    }
}

// A row belongs to the supernodes from those of its elements up to its own. Row by row, every list comes in
// ascending order.
void Analysis::findRows(Lists const & earlier, std::vector<int> const & number,
                        std::vector<int> const & oldNumber)
{
    m_result.rows.resize(at(m_result.rowsBegin.back()));
    std::vector<std::int64_t> end(m_result.rowsBegin.begin(), m_result.rowsBegin.end() - 1);
    std::vector<int> reachedBy(at(m_result.supernodes()), -1);
    for (int row = 0; row < m_size; ++row) {
        report(row, 0.75, 0.95);
        int const own = m_result.supernodeOf[at(row)];
        m_result.rows[at(end[at(own)]++)] = row;
        reachedBy[at(own)] = row;
        earlier.visit(oldNumber[at(row)], [&](int other) {
            for (int supernode = m_result.supernodeOf[at(number[at(other)])]; reachedBy[at(supernode)] != row;
                 supernode = m_result.parent[at(supernode)]) {
                reachedBy[at(supernode)] = row;
                m_result.rows[at(end[at(supernode)]++)] = row;
            }
        });
    }
}

void Analysis::findSources()
{
    m_result.sourcesBegin.assign(at(m_result.supernodes()) + 1, 0);
    auto const visit = [&](auto const & call) {
        for (int supernode = 0; supernode < m_result.supernodes(); ++supernode) {
            int const * const rows = m_result.rowsOf(supernode);
            int const height = m_result.heightOf(supernode);
            for (int row = m_result.columnsOf(supernode); row < height;) {
                int const target = m_result.supernodeOf[at(rows[row])];
                call(target, supernode, row);
                while (row < height && rows[row] < m_result.first(target + 1))
                    ++row;
            }
        }
    };
    visit([&](int target, int, int) { ++m_result.sourcesBegin[at(target) + 1]; });
    std::partial_sum(m_result.sourcesBegin.begin(), m_result.sourcesBegin.end(),
                     m_result.sourcesBegin.begin());
    m_result.sources.resize(at(m_result.sourcesBegin.back()));
    m_result.sourceRow.resize(m_result.sources.size());
    std::vector<std::int64_t> place(m_result.sourcesBegin.begin(), m_result.sourcesBegin.end() - 1);
    visit([&](int target, int supernode, int row) {
        std::size_t const slot = at(place[at(target)]++);
        m_result.sources[slot] = supernode;
        m_result.sourceRow[slot] = row;
    });
}

SupernodalStructure Analysis::run()
{
    Lists const earlier = earlierRows();
    std::vector<int> const tree = eliminationTree(m_size, [&](int row, auto const & visit) {
        report(row, 0.35, 0.5);
        earlier.visit(row, visit);
    });
    // The column with the most elements goes last among its siblings, next to its parent: it is the one that
    // it may be merged with.
    std::vector<int> counts;
    {
        std::vector<int> const anyOrder = postorder(tree, std::vector<int>(tree.size(), 0));
        Lists const later = laterRows(earlier);
        int visited = 0;
        counts = ColumnCounter(tree, anyOrder).count([&](int row, auto const & visit) {
            report(visited++, 0.7, 0.75);
            later.visit(row, visit);
        });
    }
    std::vector<int> const oldNumber = postorder(tree, counts);
    std::vector<int> number(tree.size()), newOrder(tree.size()), parent(tree.size()), newCounts(tree.size());
    for (std::size_t k = 0; k < tree.size(); ++k)
        number[at(oldNumber[k])] = static_cast<int>(k);
    for (std::size_t k = 0; k < tree.size(); ++k) {
        std::size_t const old = at(oldNumber[k]);
        newOrder[k] = m_order[old];
        newCounts[k] = counts[old];
        parent[k] = tree[old] < 0 ? -1 : number[at(tree[old])];
    }
    m_order = std::move(newOrder);
    findSupernodes(parent, newCounts);
    findRows(earlier, number, oldNumber);
    findSources();
    if (m_progress)
        m_progress->SetPosFloat(1.0);
    return std::move(m_result);
}

} // namespace

SupernodalStructure analyzeSupernodes(SparsePattern const & pattern, std::vector<int> & order,
                                      CProgressCounter * progress)
{
    return Analysis(pattern, order, progress).run();
}

} // namespace QzBackend

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>

#include <QZmath/Backend/LargeVector.h>

#include <QZmath/Reconstruction/Mesh/Ranges.h>

#include <algorithm>

namespace QZmath::Stages
{

SampleIndex::SampleIndex(float const * positions, std::size_t count, QzBackend::LoopTeam & team)
{
    QzBackend::assignLarge(team, m_points, count);
    QzBackend::assignLarge(team, m_slots, count);
    std::size_t leaves = 1;
    while (leaves * leafSize < count)
        leaves *= 2;
    m_firstLeaf = leaves - 1;
    QzBackend::assignLarge(team, m_boxes, 2 * leaves - 1);
    forRanges(team, count, 4096, [&](std::size_t begin, std::size_t end) {
        for (std::size_t n = begin; n < end; ++n)
            m_points[n] = {{positions[3 * n], positions[3 * n + 1], positions[3 * n + 2]},
                           static_cast<std::int32_t>(n)};
    });
    // The upper levels node by node, what is below them subtree by subtree.
    std::size_t const subtrees = std::min<std::size_t>(leaves, 64);
    std::vector<Range> level = {{0, 0, count}};
    while (level.size() < subtrees) {
        team.forEach(static_cast<int>(level.size()),
                     [&](int n) { split(level[static_cast<std::size_t>(n)]); });
        std::vector<Range> next;
        for (Range const & range : level) {
            next.push_back(left(range));
            next.push_back(right(range));
        }
        level.swap(next);
    }
    team.forEach(static_cast<int>(level.size()), [&](int n) { build(level[static_cast<std::size_t>(n)]); });
    forRanges(team, count, 4096, [&](std::size_t begin, std::size_t end) {
        for (std::size_t slot = begin; slot < end; ++slot)
            m_slots[at(m_points[slot].sample)] = static_cast<std::uint32_t>(slot);
    });
}

// Takes the box of a node, and halves its points unless it is a leaf.
void SampleIndex::split(Range const & range)
{
    float const infinite = std::numeric_limits<float>::infinity();
    Box box{{infinite, infinite, infinite},
            {-infinite, -infinite, -infinite},
            std::numeric_limits<std::int32_t>::max()};
    for (std::size_t n = range.first; n < range.last; ++n) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            box.low[axis] = std::min(box.low[axis], m_points[n].position[axis]);
            box.high[axis] = std::max(box.high[axis], m_points[n].position[axis]);
        }
        box.leastSample = std::min(box.leastSample, m_points[n].sample);
    }
    m_boxes[range.node] = box;
    if (isLeaf(range.node) || range.first == range.last)
        return;
    std::size_t widest = 0;
    for (std::size_t axis = 1; axis < 3; ++axis) {
        if (box.high[axis] - box.low[axis] > box.high[widest] - box.low[widest])
            widest = axis;
    }
    auto const place = [&](std::size_t n) { return m_points.begin() + static_cast<std::ptrdiff_t>(n); };
    std::nth_element(place(range.first), place(range.middle()), place(range.last),
                     [widest](Point const & a, Point const & b) {
                         return a.position[widest] != b.position[widest]
                                    ? a.position[widest] < b.position[widest]
                                    : a.sample < b.sample;
                     });
}

void SampleIndex::build(Range const & range)
{
    split(range);
    if (isLeaf(range.node))
        return;
    build(left(range));
    build(right(range));
}

// Judges the points of all leaves that are not too far, the nearer half of a box first.
template <class IsTooFar, class Judge>
void SampleIndex::descend(Vec const & place, IsTooFar const & isTooFar, Judge const & judge) const
{
    struct Open
    {
        Range range;
        double gap;
    };
    std::array<Open, mostOpen> open;
    std::size_t count = 0;
    open[count++] = {{0, 0, m_points.size()}, gap(place, m_boxes[0])};
    while (count > 0) {
        Open const top = open[--count];
        if (isTooFar(top.range.node, top.gap))
            continue;
        if (isLeaf(top.range.node)) {
            for (std::size_t n = top.range.first; n < top.range.last; ++n)
                judge(m_points[n]);
            continue;
        }
        Open const near = {left(top.range), gap(place, m_boxes[2 * top.range.node + 1])};
        Open const far = {right(top.range), gap(place, m_boxes[2 * top.range.node + 2])};
        bool const isSwapped = far.gap < near.gap;
        open[count++] = isSwapped ? near : far;
        open[count++] = isSwapped ? far : near;
    }
}

SampleIndex::Nearest SampleIndex::nearest(Vec const & place, double radius, std::int32_t hint) const
{
    Nearest best;
    double bound = radius * radius;
    auto const judge = [&](Point const & point) {
        double const distance = (Vec::of(point.position.data()) - place).squared();
        if (distance < best.squaredDistance
                ? distance <= bound
                : distance == best.squaredDistance && point.sample < best.sample) {
            best = {point.sample, distance};
            bound = distance;
        }
    };
    if (m_points.empty())
        return best;
    if (hint != none)
        judge(m_points[m_slots[at(hint)]]);
    // Of points as near as the best one, only those with a lesser index matter.
    auto const isTooFar = [&](std::size_t node, double gap) {
        return gap > bound || (gap == best.squaredDistance && m_boxes[node].leastSample > best.sample);
    };
    descend(place, isTooFar, judge);
    return best;
}

std::int32_t SampleIndex::anyWithin(Vec const & place, double radius, std::int32_t hint) const
{
    double const bound = radius * radius;
    auto const isWithin = [&](Point const & point) {
        return (Vec::of(point.position.data()) - place).squared() <= bound;
    };
    if (m_points.empty())
        return none;
    if (hint != none && isWithin(m_points[m_slots[at(hint)]]))
        return hint;
    std::array<Range, mostOpen> open;
    std::size_t count = 0;
    open[count++] = {0, 0, m_points.size()};
    while (count > 0) {
        Range const range = open[--count];
        if (gap(place, m_boxes[range.node]) > bound)
            continue;
        if (isLeaf(range.node)) {
            for (std::size_t n = range.first; n < range.last; ++n) {
                if (isWithin(m_points[n]))
                    return m_points[n].sample;
            }
            continue;
        }
        open[count++] = right(range);
        open[count++] = left(range);
    }
    return none;
}

void SampleIndex::nearestFew(Vec const & place, std::size_t wanted, double radius,
                             std::vector<std::pair<double, std::int32_t>> & result) const
{
    result.clear();
    if (m_points.empty() || wanted == 0)
        return;
    double const most = radius * radius;
    // A heap with the farthest of the kept on top.
    auto const bound = [&] { return result.size() < wanted ? most : result.front().first; };
    auto const isTooFar = [&](std::size_t node, double gap) {
        return gap > bound() || (result.size() == wanted && gap == result.front().first &&
                                 m_boxes[node].leastSample > result.front().second);
    };
    auto const judge = [&](Point const & point) {
        std::pair<double, std::int32_t> const entry = {(Vec::of(point.position.data()) - place).squared(),
                                                       point.sample};
        if (entry.first > most || (result.size() == wanted && !(entry < result.front())))
            return;
        if (result.size() == wanted) {
            std::pop_heap(result.begin(), result.end());
            result.back() = entry;
        } else {
            result.push_back(entry);
        }
        std::push_heap(result.begin(), result.end());
    };
    descend(place, isTooFar, judge);
    std::sort_heap(result.begin(), result.end());
}

} // namespace QZmath::Stages

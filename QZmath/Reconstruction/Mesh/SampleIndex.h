// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Reconstruction/Mesh/Vec.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace QZmath::Stages
{

/// Points in a balanced tree of boxes, for questions about what is near a place. The tree halves the points
/// along the longest side of their box, so neither far outliers nor points that lie in heaps or on one spot
/// make it deep.
///
/// Answers are exact: distances are those of the coordinates as they are, taken in `double`. Building takes
/// n log n steps on the threads of the team, and about 27 bytes a point are kept; a question costs about log
/// n steps. Immutable once built; may be asked from many threads.
class QZMATH_SISTER_API SampleIndex
{
public:
    static constexpr std::int32_t none = -1;

    struct Nearest
    {
        std::int32_t sample = none; ///< of several as near, the least
        double squaredDistance = std::numeric_limits<double>::infinity();
    };

    /// \param positions 3 a point, finite; copied
    SampleIndex(float const * positions, std::size_t count, QzBackend::LoopTeam & team);

    std::size_t size() const { return m_points.size(); }
    Vec positionOf(std::int32_t sample) const
    {
        return Vec::of(m_points[m_slots[at(sample)]].position.data());
    }

    /// The nearest point at most `radius` away; `none` where there is none. A hint, any point that is
    /// probably near, saves time and changes nothing.
    Nearest nearest(Vec const & place, double radius, std::int32_t hint = none) const;

    /// Is there a point at most `radius` away? The answer is one of them, or `none`.
    std::int32_t anyWithin(Vec const & place, double radius, std::int32_t hint = none) const;

    /// Calls visit(sample, squared distance) for all points at most `radius` away, in an order that follows
    /// from the points alone.
    template <class Visit>
    void forEachWithin(Vec const & place, double radius, Visit const & visit) const
    {
        double const bound = radius * radius;
        forEachInBoxes([&](Vec const & low, Vec const & high) { return gap(place, low, high) <= bound; },
                       [&](std::int32_t sample, Vec const & position) {
                           double const distance = (position - place).squared();
                           if (distance <= bound)
                               visit(sample, distance);
                       });
    }

    /// Calls visit(sample, position) for all points of the leaves whose boxes, and all boxes around them,
    /// are wanted: isWanted(least corner, greatest corner).
    template <class IsWanted, class Visit>
    void forEachInBoxes(IsWanted const & isWanted, Visit const & visit) const
    {
        if (m_points.empty())
            return;
        std::array<Range, mostOpen> open;
        std::size_t count = 0;
        open[count++] = {0, 0, m_points.size()};
        while (count > 0) {
            Range const range = open[--count];
            Box const & box = m_boxes[range.node];
            if (!isWanted(Vec::of(box.low.data()), Vec::of(box.high.data())))
                continue;
            if (isLeaf(range.node)) {
                for (std::size_t n = range.first; n < range.last; ++n)
                    visit(m_points[n].sample, Vec::of(m_points[n].position.data()));
                continue;
            }
            open[count++] = right(range);
            open[count++] = left(range);
        }
    }

    /// The `wanted` nearest points at most `radius` away, or as many as there are, as pairs of squared
    /// distance and sample, from the nearest to the farthest. Allocates nothing when `result` has the space.
    void nearestFew(Vec const & place, std::size_t wanted, double radius,
                    std::vector<std::pair<double, std::int32_t>> & result) const;

    /// The points in the order of the leaves, in which neighbours stand close to each other: the sample at
    /// each slot, 0 <= slot < size().
    std::int32_t sampleAt(std::size_t slot) const { return m_points[slot].sample; }

private:
    struct Point
    {
        std::array<float, 3> position;
        std::int32_t sample;
    };

    struct Box
    {
        std::array<float, 3> low, high;
        std::int32_t leastSample;
    };

    /// A node and its points. The children of node n are 2 n + 1 and 2 n + 2.
    struct Range
    {
        std::size_t node, first, last;
        std::size_t middle() const { return first + (last - first) / 2; }
    };

    static constexpr std::size_t leafSize = 8;
    static constexpr std::size_t mostOpen = 64;

    static std::size_t at(std::int32_t sample) { return static_cast<std::size_t>(sample); }
    static Range left(Range const & range) { return {2 * range.node + 1, range.first, range.middle()}; }
    static Range right(Range const & range) { return {2 * range.node + 2, range.middle(), range.last}; }
    bool isLeaf(std::size_t node) const { return node >= m_firstLeaf; }

    /// Squared distance to a box. Rounded in the same steps as that to a point in it, so never above it.
    static double gap(Vec const & place, Vec const & low, Vec const & high)
    {
        double sum = 0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            double const out = place[axis] < low[axis]    ? low[axis] - place[axis]
                               : place[axis] > high[axis] ? place[axis] - high[axis]
                                                          : 0.0;
            sum += out * out;
        }
        return sum;
    }
    static double gap(Vec const & place, Box const & box)
    {
        return gap(place, Vec::of(box.low.data()), Vec::of(box.high.data()));
    }

    template <class IsTooFar, class Judge>
    void descend(Vec const & place, IsTooFar const & isTooFar, Judge const & judge) const;
    void split(Range const & range);
    void build(Range const & range);

    std::vector<Point> m_points;        // in the order of the leaves
    std::vector<std::uint32_t> m_slots; // of the samples in it
    std::vector<Box> m_boxes;
    std::size_t m_firstLeaf = 0;
};

} // namespace QZmath::Stages

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/FactorEstimate.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <limits>

namespace VolTr
{

namespace
{

using Supports = std::vector<SupportCube>;
using Iterator = Supports::iterator;

// Fewer functions than these are eliminated as one dense block.
std::ptrdiff_t const blockSize = 64;

bool overlap(SupportCube const & a, SupportCube const & b)
{
    float const reach = a.reach + b.reach;
    return std::fabs(a.centre[0] - b.centre[0]) < reach && std::fabs(a.centre[1] - b.centre[1]) < reach &&
           std::fabs(a.centre[2] - b.centre[2]) < reach;
}

struct Plane
{
    int axis = -1;
    double at = 0.0;

    bool cuts(SupportCube const & support) const
    {
        return std::fabs(static_cast<double>(support.centre[axis]) - at) < static_cast<double>(support.reach);
    }
};

class Dissection
{
public:
    Dissection(double spacing, double place) : m_spacing(spacing), m_place(place) {}

    // Adds what the elimination of a part makes: `border` are the functions that were cut off it before.
    void eliminate(Iterator begin, Iterator end, Supports const & border)
    {
        std::ptrdiff_t const size = end - begin;
        if (size == 0)
            return;
        Plane const plane = size > blockSize ? choosePlane(begin, end) : Plane();
        if (plane.axis < 0) {
            addBlock(size, border.size());
            return;
        }
        Iterator const separator = std::partition(
            begin, end, [&plane](SupportCube const & support) { return !plane.cuts(support); });
        Iterator const right = std::partition(begin, separator, [&plane](SupportCube const & support) {
            return static_cast<double>(support.centre[plane.axis]) < plane.at;
        });
        addBlock(end - separator, border.size());
        eliminate(begin, right, borderOf(begin, right, border, separator, end));
        eliminate(right, separator, borderOf(right, separator, border, separator, end));
    }

    double elements() const { return m_elements; }

private:
    // Columns that are full among themselves and down to the border.
    void addBlock(std::ptrdiff_t columns, std::size_t border)
    {
        double const width = static_cast<double>(columns);
        m_elements += width * (width + 1) / 2 + width * static_cast<double>(border);
    }

    // The plane that cuts fewest functions, for sides of like sizes; none when the part is too dense to be
    // cut. Some functions of the part speak for all.
    Plane choosePlane(Iterator begin, Iterator end)
    {
        std::ptrdiff_t const step = std::max<std::ptrdiff_t>(1, (end - begin) / 1000);
        m_some.clear();
        for (std::ptrdiff_t index = step / 2; index < end - begin; index += step)
            m_some.push_back(begin[index]);
        std::size_t const size = m_some.size();
        Plane best;
        double least = std::numeric_limits<double>::infinity();
        for (int axis = 0; axis < 3; ++axis) {
            m_coords.clear();
            for (SupportCube const & support : m_some)
                m_coords.push_back(static_cast<double>(support.centre[axis]));
            std::sort(m_coords.begin(), m_coords.end());
            for (std::size_t const rank : {size / 2 - size / 8, size / 2, size / 2 + size / 8}) {
                Plane plane;
                plane.axis = axis;
                plane.at = (std::floor((m_coords[rank] - m_place) / m_spacing) + 0.5) * m_spacing + m_place;
                double const badness = judge(plane);
                if (badness < least) {
                    least = badness;
                    best = plane;
                }
            }
        }
        return best;
    }

    // Infinite for a plane that does not divide or cuts nearly all.
    double judge(Plane const & plane) const
    {
        double cut = 0;
        double below = 0;
        for (SupportCube const & support : m_some) {
            if (plane.cuts(support))
                ++cut;
            else if (static_cast<double>(support.centre[plane.axis]) < plane.at)
                ++below;
        }
        double const all = static_cast<double>(m_some.size());
        double const above = all - cut - below;
        if (below == 0 || above == 0 || cut > 0.7 * all)
            return std::numeric_limits<double>::infinity();
        double const share = std::max(below, above) / (below + above);
        return cut * (share > 0.75 ? 3 : 1) * (1 + share);
    }

    // What of the former border and of the separator reaches into the box around a part.
    static Supports borderOf(Iterator begin, Iterator end, Supports const & border, Iterator separatorBegin,
                             Iterator separatorEnd)
    {
        float low[3];
        float high[3];
        std::fill_n(low, 3, std::numeric_limits<float>::infinity());
        std::fill_n(high, 3, -std::numeric_limits<float>::infinity());
        for (Iterator support = begin; support != end; ++support) {
            for (int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], support->centre[axis] - support->reach);
                high[axis] = std::max(high[axis], support->centre[axis] + support->reach);
            }
        }
        auto const reachesIn = [&](SupportCube const & support) {
            for (int axis = 0; axis < 3; ++axis) {
                if (support.centre[axis] + support.reach <= low[axis] ||
                    support.centre[axis] - support.reach >= high[axis])
                    return false;
            }
            return true;
        };
        Supports result;
        std::copy_if(border.begin(), border.end(), std::back_inserter(result), reachesIn);
        std::copy_if(separatorBegin, separatorEnd, std::back_inserter(result), reachesIn);
        return result;
    }

    double m_spacing;
    double m_place;
    double m_elements = 0.0;
    Supports m_some;
    std::vector<double> m_coords;
};

} // namespace

double estimateMatrixElements(std::vector<SupportCube> const & supports)
{
    std::size_t const size = supports.size();
    if (size == 0)
        return 0.0;
    std::size_t const rows = std::min(size, std::max<std::size_t>(64, 20000000 / size));
    double coupled = 0;
    for (std::size_t row = 0; row < rows; ++row) {
        SupportCube const & support = supports[(2 * row + 1) * size / (2 * rows)];
        for (SupportCube const & other : supports)
            coupled += overlap(support, other) ? 1 : 0;
    }
    double const perRow = coupled / static_cast<double>(rows);
    return static_cast<double>(size) * (perRow + 1) / 2;
}

double estimateFactorElements(std::vector<SupportCube> & supports, double spacing)
{
    if (supports.empty())
        return 0.0;
    // The lattice is that of the octree, with the same places on each axis.
    Dissection dissection(spacing, static_cast<double>(supports.back().centre[0]));
    dissection.eliminate(supports.begin(), supports.end(), {});
    return dissection.elements();
}

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/LatticeIndex.h>

#include <algorithm>
#include <cstdint>

namespace VolTr
{

namespace
{

// Stable counting sort by one coordinate. Three of them, by z, y and x, give the lexicographic order.
void sortByAxis(std::vector<CLatticeIndex::Entry> const & source, std::vector<CLatticeIndex::Entry> & target,
                std::vector<int> & bucketBegin, int axis, int minimum, int bucketCount)
{
    bucketBegin.assign(static_cast<std::size_t>(bucketCount) + 1, 0);
    for (CLatticeIndex::Entry const & entry : source)
        ++bucketBegin[static_cast<std::size_t>(entry.place.coord(axis) - minimum) + 1];
    for (std::size_t bucket = 1; bucket < bucketBegin.size(); ++bucket)
        bucketBegin[bucket] += bucketBegin[bucket - 1];
    for (CLatticeIndex::Entry const & entry : source) {
        int & place = bucketBegin[static_cast<std::size_t>(entry.place.coord(axis) - minimum)];
        target[static_cast<std::size_t>(place++)] = entry;
    }
}

void sortEntries(std::vector<CLatticeIndex::Entry> & entries)
{
    CInt3 lo = entries.front().place;
    CInt3 hi = lo;
    for (CLatticeIndex::Entry const & entry : entries) {
        for (int axis = 0; axis < 3; ++axis) {
            lo.coordMod(axis) = std::min(lo.coord(axis), entry.place.coord(axis));
            hi.coordMod(axis) = std::max(hi.coord(axis), entry.place.coord(axis));
        }
    }
    std::int64_t extent = 1;
    for (int axis = 0; axis < 3; ++axis)
        extent = std::max(extent, static_cast<std::int64_t>(hi.coord(axis)) - lo.coord(axis) + 1);
    if (extent > 4 * static_cast<std::int64_t>(entries.size()) + 1024) {
        std::sort(
            entries.begin(), entries.end(),
            [](CLatticeIndex::Entry const & a, CLatticeIndex::Entry const & b) { return a.place < b.place; });
        return;
    }
    std::vector<CLatticeIndex::Entry> buffer(entries.size());
    std::vector<int> bucketBegin;
    for (int axis = 2; axis >= 0; --axis) {
        sortByAxis(entries, buffer, bucketBegin, axis, lo.coord(axis), hi.coord(axis) - lo.coord(axis) + 1);
        entries.swap(buffer);
    }
}

// The first of the elements [begin, end) whose coordinate is not below `bound`. The halving has no branch
// that could be predicted wrongly: queries hit the short lines of a surface at random places.
template <class Element, class Coordinate>
int firstNotBelow(std::vector<Element> const & elements, int begin, int end, int bound, Coordinate coordinate)
{
    Element const * first = elements.data() + begin;
    int length = end - begin;
    while (length > 0) {
        int const half = length >> 1;
        bool const below = coordinate(first[half]) < bound;
        first = below ? first + half + 1 : first;
        length = below ? length - half - 1 : half;
    }
    return static_cast<int>(first - elements.data());
}

} // namespace

CLatticeIndex::CLatticeIndex() = default;

void CLatticeIndex::build(std::vector<Entry> & entries)
{
    m_planes.clear();
    m_lines.clear();
    m_points.clear();
    if (entries.empty())
        return;
    sortEntries(entries);
    m_points.reserve(entries.size());
    for (Entry const & entry : entries) {
        bool const newPlane = m_planes.empty() || m_planes.back().coord != entry.place.x();
        if (newPlane)
            m_planes.push_back({entry.place.x(), static_cast<int>(m_lines.size())});
        if (newPlane || m_lines.back().coord != entry.place.y())
            m_lines.push_back({entry.place.y(), static_cast<int>(m_points.size())});
        m_points.push_back({entry.place.z(), entry.payload});
    }
    m_planes.push_back({0, static_cast<int>(m_lines.size())});
    m_lines.push_back({0, static_cast<int>(m_points.size())});
    m_planes.shrink_to_fit();
    m_lines.shrink_to_fit();
}

int CLatticeIndex::find(CInt3 const & place) const
{
    CLatticeBoxCursor const cursor(this, place, place);
    return cursor.isFinished() ? -1 : cursor.position();
}

CLatticeBoxCursor::CLatticeBoxCursor(CLatticeIndex const * index, CInt3 const & lo, CInt3 const & hi)
    : m_index(index), m_lo(lo), m_hi(hi), m_plane(0), m_line(0), m_lineEnd(0), m_point(-1), m_pointEnd(0)
{
    if (index->m_points.empty() || lo.x() > hi.x() || lo.y() > hi.y() || lo.z() > hi.z())
        return;
    int const planesEnd = static_cast<int>(index->m_planes.size()) - 1;
    enterPlane(
        firstNotBelow(index->m_planes, 0, planesEnd, lo.x(), [](auto const & plane) { return plane.coord; }));
}

// Stands on the first point of the box in this plane or a later one.
void CLatticeBoxCursor::enterPlane(int plane)
{
    m_plane = plane;
    if (plane + 1 >= static_cast<int>(m_index->m_planes.size()) ||
        m_index->m_planes[static_cast<std::size_t>(plane)].coord > m_hi.x()) {
        m_point = -1;
        return;
    }
    m_lineEnd = m_index->m_planes[static_cast<std::size_t>(plane) + 1].begin;
    goToLine(firstNotBelow(m_index->m_lines, m_index->m_planes[static_cast<std::size_t>(plane)].begin,
                           m_lineEnd, m_lo.y(), [](auto const & line) { return line.coord; }));
}

// Stands on the first point of the box in this line or a later one.
void CLatticeBoxCursor::goToLine(int line)
{
    for (; line < m_lineEnd && m_index->m_lines[static_cast<std::size_t>(line)].coord <= m_hi.y(); ++line) {
        m_pointEnd = m_index->m_lines[static_cast<std::size_t>(line) + 1].begin;
        m_point = firstNotBelow(m_index->m_points, m_index->m_lines[static_cast<std::size_t>(line)].begin,
                                m_pointEnd, m_lo.z(), [](auto const & point) { return point.z; });
        if (m_point < m_pointEnd && m_index->m_points[static_cast<std::size_t>(m_point)].z <= m_hi.z()) {
            m_line = line;
            return;
        }
    }
    enterPlane(m_plane + 1);
}

} // namespace VolTr

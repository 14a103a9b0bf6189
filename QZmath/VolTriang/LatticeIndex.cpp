// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/LatticeIndex.h>

namespace VolTr
{

namespace
{

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

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Lattice.h>

#include <vector>

namespace VolTr
{

/// Immutable sorted set of lattice points, each with an `int` payload, for box queries.
///
/// The points stand in lexicographic order, as planes of equal x, in them lines of equal y, in them points by
/// z. A box query costs a binary search among the planes, one per plane of the box among its lines and one
/// per line among its points; a step inside a line is an increment. Memory is 8 bytes per point and 8 per
/// line. Safe to read from many threads.
class QZMATH_API CLatticeIndex
{
public:
    /// An empty set; an octree makes the others.
    CLatticeIndex();

    int size() const { return static_cast<int>(m_points.size()); }

    /// Position of a place in the sorted order, or -1 when it is not in the set.
    int find(CInt3 const & place) const;
    /// Payload of the point at a position of the sorted order (unchecked).
    int payload(int position) const { return m_points[static_cast<std::size_t>(position)].payload; }

private:
    friend class CLatticeBoxCursor;
    friend class LatticeSweep;

    struct Point
    {
        int z;
        int payload;
    };
    struct Group
    {
        int coord; // x of a plane or y of a line
        int begin; // first line of a plane or first point of a line; a sentinel group ends the array
    };

    std::vector<Group> m_planes;
    std::vector<Group> m_lines;
    std::vector<Point> m_points;
};

/// Walks the points of a `CLatticeIndex` that lie in a closed box, in the sorted order. Allocates nothing.
/// The index must outlive it.
class QZMATH_API CLatticeBoxCursor
{
public:
    /// A finished cursor.
    CLatticeBoxCursor() : m_index(nullptr), m_plane(0), m_line(0), m_lineEnd(0), m_point(-1), m_pointEnd(0) {}
    /// Stands on the first point with `lo <= place <= hi` on every axis.
    CLatticeBoxCursor(CLatticeIndex const * index, CInt3 const & lo, CInt3 const & hi);

    bool isFinished() const { return m_point < 0; }

    /// Goes on to the next point of the box. Must not be called when finished.
    void next()
    {
        ++m_point;
        if (m_point >= m_pointEnd || m_index->m_points[static_cast<std::size_t>(m_point)].z > m_hi.z())
            goToLine(m_line + 1);
    }

    /// Position in the sorted order of the index.
    int position() const { return m_point; }
    int payload() const { return m_index->m_points[static_cast<std::size_t>(m_point)].payload; }
    CInt3 place() const
    {
        return CInt3(m_index->m_planes[static_cast<std::size_t>(m_plane)].coord,
                     m_index->m_lines[static_cast<std::size_t>(m_line)].coord,
                     m_index->m_points[static_cast<std::size_t>(m_point)].z);
    }

private:
    void enterPlane(int plane);
    void goToLine(int line);

    CLatticeIndex const * m_index;
    CInt3 m_lo;
    CInt3 m_hi;
    int m_plane;
    int m_line;
    int m_lineEnd;
    int m_point;
    int m_pointEnd;
};

} // namespace VolTr

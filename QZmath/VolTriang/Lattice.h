// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace VolTr
{

/// A point of the integer lattice of an octree, in units of the finest lattice step. Ordered
/// lexicographically in x, y, z.
class QZMATH_API CInt3
{
public:
    /// (-1, -1, -1): a coordinate that no cell of the lattice has.
    CInt3() : m_coords{-1, -1, -1} {}
    CInt3(int x, int y, int z) : m_coords{x, y, z} {}
    /// \param coords three values
    explicit CInt3(int const * coords) : m_coords{coords[0], coords[1], coords[2]} {}

    int x() const { return m_coords[0]; }
    int y() const { return m_coords[1]; }
    int z() const { return m_coords[2]; }
    /// Coordinate of an axis 0, 1 or 2. Any other axis throws like `coordMod`.
    int coord(int axis) const { return const_cast<CInt3 *>(this)->coordMod(axis); }

    int & xMod() { return m_coords[0]; }
    int & yMod() { return m_coords[1]; }
    int & zMod() { return m_coords[2]; }
    /// Coordinate of an axis 0, 1 or 2. Any other axis throws `std::exception` with
    /// "CInt3::coordMod incorrect argument".
    int & coordMod(int axis)
    {
        if (axis < 0 || axis > 2)
            throwIncorrectAxis();
        return m_coords[axis];
    }

    CInt3 & operator+=(CInt3 const & other)
    {
        m_coords[0] += other.m_coords[0];
        m_coords[1] += other.m_coords[1];
        m_coords[2] += other.m_coords[2];
        return *this;
    }
    CInt3 & operator-=(CInt3 const & other)
    {
        m_coords[0] -= other.m_coords[0];
        m_coords[1] -= other.m_coords[1];
        m_coords[2] -= other.m_coords[2];
        return *this;
    }

private:
    [[noreturn]] static void throwIncorrectAxis();

    int m_coords[3];
};

inline bool operator==(CInt3 const & a, CInt3 const & b)
{
    return a.x() == b.x() && a.y() == b.y() && a.z() == b.z();
}

inline bool operator!=(CInt3 const & a, CInt3 const & b) { return !(a == b); }

inline bool operator<(CInt3 const & a, CInt3 const & b)
{
    if (a.x() != b.x())
        return a.x() < b.x();
    if (a.y() != b.y())
        return a.y() < b.y();
    return a.z() < b.z();
}

inline CInt3 operator+(CInt3 a, CInt3 const & b) { return a += b; }

/// A node of an octree: its depth and its place on the finest lattice. Ordered lexicographically in depth, x,
/// y, z, so that in a sorted container the nodes of one depth, of one x plane in it and of one y line in that
/// are contiguous.
class QZMATH_API CTreeNode
{
public:
    /// Depth 0, shift (-1, -1, -1).
    CTreeNode() : m_depth(0) {}
    CTreeNode(int depth, CInt3 const & shift) : m_depth(depth), m_shift(shift) {}

    int depth() const { return m_depth; }
    int & depthRefMod() { return m_depth; }
    CInt3 const & shift() const { return m_shift; }
    CInt3 & shiftRefMod() { return m_shift; }

private:
    int m_depth;
    CInt3 m_shift;
};

inline bool operator<(CTreeNode const & a, CTreeNode const & b)
{
    return a.depth() != b.depth() ? a.depth() < b.depth() : a.shift() < b.shift();
}

inline bool operator==(CTreeNode const & a, CTreeNode const & b)
{
    return a.depth() == b.depth() && a.shift() == b.shift();
}

inline bool operator!=(CTreeNode const & a, CTreeNode const & b) { return !(a == b); }

} // namespace VolTr

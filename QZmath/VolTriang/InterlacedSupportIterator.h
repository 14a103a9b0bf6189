// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/CSFunc3.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Parallelepiped.h>

namespace VolTr
{

/// Walks the functions of a basis whose supports may touch a box, from the deepest depth to the coarsest,
/// inside a depth in the order of x, y, z. A few functions whose supports end just outside the box come
/// along.
///
/// Copyable, allocates nothing; a step costs a few nanoseconds. The basis must outlive it.
template <class TKernel>
class QZMATH_API CInterlacedSupportIteratorTmpl
{
public:
    CInterlacedSupportIteratorTmpl(COctreeFuncBasisTmpl<TKernel> const * basis, CParallelepiped const & box);
    /// Leaves out the functions of depths above `coarsestDepth`.
    CInterlacedSupportIteratorTmpl(COctreeFuncBasisTmpl<TKernel> const * basis, CParallelepiped const & box,
                                   int coarsestDepth);
    virtual ~CInterlacedSupportIteratorTmpl();
    CInterlacedSupportIteratorTmpl(CInterlacedSupportIteratorTmpl const &) = default;
    CInterlacedSupportIteratorTmpl & operator=(CInterlacedSupportIteratorTmpl const &) = default;

    bool isFinished() const { return m_depth < 0; }

    /// Goes on; does nothing when finished.
    void next()
    {
        if (m_depth < 0)
            return;
        m_nodes.next();
        if (m_nodes.isFinished())
            initForNextDepth();
        else
            moveFunction();
    }

    /// Node index of the current function, -1 when finished.
    int functionIndex() const { return m_nodes.currentNodeIndex(); }
    /// The current function, valid until the next step.
    CCSFunc3Tmpl<TKernel> const & operator*() const { return m_function; }

private:
    void initForNextDepth();

    // Scale, normalisation and depth are those of the whole depth.
    void moveFunction()
    {
        CInt3 const shift = m_nodes.currentNodeShift();
        int * offset = m_function.getArgumentShiftIntMod();
        offset[0] = shift.x();
        offset[1] = shift.y();
        offset[2] = shift.z();
        m_octree->cellCoordsToReal(m_function.getArgumentShiftMod(), shift);
    }

    CParallelepiped m_box;
    COctreeFuncBasisTmpl<TKernel> const * m_basis;
    COctree const * m_octree;
    int m_coarsestDepth;
    int m_depth; // negative when finished
    COctreeInBoxNodeIterator m_nodes;
    CCSFunc3Tmpl<TKernel> m_function;
};

extern template class CInterlacedSupportIteratorTmpl<CPiecewisePolynom>;
extern template class CInterlacedSupportIteratorTmpl<CProductPiecewisePolynom>;

} // namespace VolTr

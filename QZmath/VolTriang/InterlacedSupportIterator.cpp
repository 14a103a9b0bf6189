// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/InterlacedSupportIterator.h>

#include <algorithm>

namespace VolTr
{

namespace
{

template <class TKernel>
CCSFunc3Tmpl<TKernel> makeFunctionOfNoNode()
{
    double shift[3] = {0.0, 0.0, 0.0};
    int shiftInt[3] = {0, 0, 0};
    return CCSFunc3Tmpl<TKernel>(nullptr, shift, shiftInt, 1.0, 1.0, -1);
}

} // namespace

template <class TKernel>
CInterlacedSupportIteratorTmpl<TKernel>::CInterlacedSupportIteratorTmpl(
    COctreeFuncBasisTmpl<TKernel> const * basis, CParallelepiped const & box)
    : CInterlacedSupportIteratorTmpl(basis, box, basis->getOctreeRef().getNodeDepthBegin())
{}

template <class TKernel>
CInterlacedSupportIteratorTmpl<TKernel>::CInterlacedSupportIteratorTmpl(
    COctreeFuncBasisTmpl<TKernel> const * basis, CParallelepiped const & box, int coarsestDepth)
    : m_box(box), m_basis(basis), m_octree(&basis->getOctreeRef()),
      m_coarsestDepth(std::max(coarsestDepth, m_octree->getNodeDepthBegin())),
      m_depth(m_octree->getNodeDepthEnd()), m_nodes(m_octree, box, -1),
      m_function(makeFunctionOfNoNode<TKernel>())
{
    initForNextDepth();
}

template <class TKernel>
CInterlacedSupportIteratorTmpl<TKernel>::~CInterlacedSupportIteratorTmpl() = default;

template <class TKernel>
void CInterlacedSupportIteratorTmpl<TKernel>::initForNextDepth()
{
    while (--m_depth >= m_coarsestDepth) {
        // A function whose support meets the box has its centre in the box enlarged by the support.
        CParallelepiped const & support = m_basis->getScaledKernelSupportRef(m_depth);
        CParallelepiped box = m_box;
        for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
            box.getMinMod()[axis] += support.getMin()[axis];
            box.getMaxMod()[axis] += support.getMax()[axis];
        }
        m_nodes = COctreeInBoxNodeIterator(m_octree, box, m_depth);
        if (!m_nodes.isFinished()) {
            m_function = m_basis->makeFunctionByIndex(m_nodes.currentNodeIndex());
            return;
        }
    }
    m_depth = -1;
}

template class CInterlacedSupportIteratorTmpl<CPiecewisePolynom>;
template class CInterlacedSupportIteratorTmpl<CProductPiecewisePolynom>;

} // namespace VolTr

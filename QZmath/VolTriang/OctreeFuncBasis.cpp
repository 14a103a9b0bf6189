// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/OctreeFuncBasis.h>

#include <QZmath/VolTriang/Basis/OctreeFuncBasisTables.h>

#include <algorithm>
#include <cmath>

namespace VolTr
{

template <class TKernel>
COctreeFuncBasisImpl<TKernel>::COctreeFuncBasisImpl(TKernel const & sampleKernel, COctree const * tree,
                                                    int level)
    : octree(tree), sample(sampleKernel), derivativeLevel(level), evaluator(sample)
{
    for (int depth = 0; depth < octree->getNodeDepthEnd(); ++depth) {
        if (depth < octree->getNodeDepthBegin()) {
            argumentScales.push_back(0.0);
            normalizations.push_back(0.0);
            scaledSupports.emplace_back();
            continue;
        }
        double const edge = octree->getCellSize(depth);
        double const scale = 1.0 / edge;
        double derivativeFactor = 1.0;
        for (int order = 0; order < derivativeLevel; ++order)
            derivativeFactor *= scale;
        CParallelepiped support = sample.getCommonSupportRef();
        for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
            support.getMinMod()[axis] *= edge;
            support.getMaxMod()[axis] *= edge;
        }
        argumentScales.push_back(scale);
        normalizations.push_back(derivativeFactor * scale * scale * scale);
        scaledSupports.push_back(support);
    }
}

template <class TKernel>
COctreeFuncBasisImpl<TKernel>::~COctreeFuncBasisImpl() = default;

template <class TKernel>
COctreeFuncBasisTmpl<TKernel>::COctreeFuncBasisTmpl(TKernel const & sample, COctree const * octree,
                                                    int derivativeLevel)
    : m_impl(std::make_unique<COctreeFuncBasisImpl<TKernel>>(sample, octree, derivativeLevel))
{}

template <class TKernel>
COctreeFuncBasisTmpl<TKernel>::~COctreeFuncBasisTmpl() = default;

template <class TKernel>
int COctreeFuncBasisTmpl<TKernel>::getFunctionsNumber() const
{
    return m_impl->octree->getNodesNumber();
}

template <class TKernel>
CCSFunc3Tmpl<TKernel> COctreeFuncBasisTmpl<TKernel>::makeFunctionByIndex(int node) const
{
    int const depth = m_impl->octree->getNodeDepth(node);
    double position[3];
    int offset[3];
    m_impl->octree->getNodePosition(node, position);
    m_impl->octree->getNodeOffset(node, offset);
    return CCSFunc3Tmpl<TKernel>(&m_impl->sample, position, offset,
                                 m_impl->argumentScales[static_cast<std::size_t>(depth)],
                                 m_impl->normalizations[static_cast<std::size_t>(depth)], depth);
}

template <class TKernel>
double COctreeFuncBasisTmpl<TKernel>::evalBasisValue(int node, double const * point) const
{
    int const depth = m_impl->octree->getNodeDepth(node);
    double position[3];
    m_impl->octree->getNodePosition(node, position);
    return m_impl->evalKernel(position, depth, point) *
           m_impl->normalizations[static_cast<std::size_t>(depth)];
}

template <class TKernel>
double COctreeFuncBasisTmpl<TKernel>::evalBasisValue(int node, float const * point) const
{
    double const widened[3] = {point[0], point[1], point[2]};
    return evalBasisValue(node, widened);
}

template <class TKernel>
bool COctreeFuncBasisTmpl<TKernel>::isUniform() const
{
    return m_impl->octree->isUniform();
}

template <class TKernel>
double COctreeFuncBasisTmpl<TKernel>::getSupportSizeInCells() const
{
    double const * max = m_impl->sample.getCommonSupportRef().getMax();
    return std::max({std::fabs(max[0]), std::fabs(max[1]), std::fabs(max[2])});
}

template <class TKernel>
COctree const & COctreeFuncBasisTmpl<TKernel>::getOctreeRef() const
{
    return *m_impl->octree;
}

template <class TKernel>
TKernel const * COctreeFuncBasisTmpl<TKernel>::getSamplePtr() const
{
    return &m_impl->sample;
}

template <class TKernel>
int COctreeFuncBasisTmpl<TKernel>::getDerivativeLevel() const
{
    return m_impl->derivativeLevel;
}

template <class TKernel>
CParallelepiped const & COctreeFuncBasisTmpl<TKernel>::getScaledKernelSupportRef(int depth) const
{
    return m_impl->scaledSupports.at(static_cast<std::size_t>(depth));
}

template class COctreeFuncBasisImpl<CPiecewisePolynom>;
template class COctreeFuncBasisImpl<CProductPiecewisePolynom>;
template class COctreeFuncBasisTmpl<CPiecewisePolynom>;
template class COctreeFuncBasisTmpl<CProductPiecewisePolynom>;

} // namespace VolTr

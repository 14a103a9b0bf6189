// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>

#include <cmath>

namespace VolTr
{

/// `base` to a power of at least 0, by one multiplication after the other.
inline double powerByMultiplication(double base, int exponent)
{
    double power = 1.0;
    for (int i = 0; i < exponent; ++i)
        power *= base;
    return power;
}

/// What the integrals of a helper have in common.
struct SProductCacheSetup
{
    COctree const * octree;
    int leafDepth;
    int depthEnd; // first depth below the nodes
    int leftDerivativeLevel;
    int rightDerivativeLevel;
    double leftSupportInCells;
    double rightSupportInCells;

    /// Lattice offset from which on functions of two depths do not overlap.
    double reach(int leftDepth, int rightDepth) const
    {
        return std::ldexp(1.0, leafDepth - leftDepth) * leftSupportInCells +
               std::ldexp(1.0, leafDepth - rightDepth) * rightSupportInCells;
    }

    /// Levels by which both depths of a pair can go down until one is the deepest of nodes. The integral of
    /// the pair grows by the same factor with each of them, and as node coordinates of a depth are multiples
    /// of its lattice step, up to a half that is common to all, halving the offset with each loses nothing.
    int levelsBelow(int leftDepth, int rightDepth) const
    {
        int const deeper = leftDepth < rightDepth ? rightDepth : leftDepth;
        return deeper < depthEnd - 1 ? depthEnd - 1 - deeper : 0;
    }
};

/// The two bases of a helper of scalar products, and what its integrals take from them. Both bases stand on
/// one octree and outlive the helper.
template <class TKernel>
class CProductHelperBases
{
public:
    using TBasis = COctreeFuncBasisTmpl<TKernel>;

    CProductHelperBases(CProductHelperBases const &) = delete;
    CProductHelperBases & operator=(CProductHelperBases const &) = delete;

    TBasis const & leftBasisRef() const { return *m_leftBasis; }
    TBasis const & rightBasisRef() const { return *m_rightBasis; }

protected:
    CProductHelperBases(TBasis const * left, TBasis const * right)
        : m_leftBasis(left), m_rightBasis(right), m_setup{&left->getOctreeRef(),
                                                          left->getOctreeRef().getLeafCellDepth(),
                                                          left->getOctreeRef().getNodeDepthEnd(),
                                                          left->getDerivativeLevel(),
                                                          right->getDerivativeLevel(),
                                                          left->getSupportSizeInCells(),
                                                          right->getSupportSizeInCells()}
    {}
    ~CProductHelperBases() = default;

    TBasis const * m_leftBasis;
    TBasis const * m_rightBasis;
    SProductCacheSetup const m_setup;
};

} // namespace VolTr

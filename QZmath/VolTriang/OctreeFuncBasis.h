// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/CSFunc3.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Parallelepiped.h>
#include <QZmath/VolTriang/PiecewisePolynom.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>

#include <memory>

namespace VolTr
{

template <class TKernel>
class COctreeFuncBasisImpl;

/// One function for every node of an octree: with the node's position c and s = 1 / cell size of its depth,
/// the function of a point p is s^(3 + level) K(s (p - c)), where K is the sample kernel and `level` the
/// order of the derivative that K stands for. So a kernel of integral 1 gives functions of integral 1 at
/// every depth, and the derivative of a function is the function of the derived kernel.
///
/// Immutable and safe to read from many threads. It must outlive the functions and combinations made from it,
/// and the octree must outlive it.
template <class TKernel>
class QZMATH_API COctreeFuncBasisTmpl
{
public:
    /// \param sample          the kernel on a cell of size 1, copied
    /// \param derivativeLevel 0 for the kernel itself, 1 for a first partial derivative, 2 for the Laplacian
    COctreeFuncBasisTmpl(TKernel const & sample, COctree const * octree, int derivativeLevel);
    virtual ~COctreeFuncBasisTmpl();
    COctreeFuncBasisTmpl(COctreeFuncBasisTmpl const &) = delete;
    COctreeFuncBasisTmpl & operator=(COctreeFuncBasisTmpl const &) = delete;

    /// One function a node of the octree.
    int getFunctionsNumber() const;
    /// The function of a node (index unchecked).
    CCSFunc3Tmpl<TKernel> makeFunctionByIndex(int node) const;
    /// Value of a node's function at three coordinates, without building an object (index unchecked).
    double evalBasisValue(int node, double const * point) const;
    double evalBasisValue(int node, float const * point) const;

    /// Does only one depth carry functions?
    bool isUniform() const;
    /// Half width of the kernel's support in cells of its depth: 1.5 for the unscaled
    /// kernel and its derivatives.
    double getSupportSizeInCells() const;

    COctree const & getOctreeRef() const;
    TKernel const * getSamplePtr() const;
    int getDerivativeLevel() const;
    /// The kernel's support around the origin for a depth, in model units; zeros at a depth without nodes.
    /// `std::out_of_range` from `getNodeDepthEnd()` on.
    CParallelepiped const & getScaledKernelSupportRef(int depth) const;

    /// For the library's own use.
    COctreeFuncBasisImpl<TKernel> const & impl() const { return *m_impl; }

private:
    std::unique_ptr<COctreeFuncBasisImpl<TKernel>> m_impl;
};

extern template class COctreeFuncBasisTmpl<CPiecewisePolynom>;
extern template class COctreeFuncBasisTmpl<CProductPiecewisePolynom>;

} // namespace VolTr

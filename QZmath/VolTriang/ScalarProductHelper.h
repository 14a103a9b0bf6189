// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/CSFunc3.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>

#include <memory>

namespace VolTr
{

/// Does the bilinear form of two bases stay the same when its sides are exchanged?
enum eBasisSymmetry
{
    BasisSymmetryNone = 0,
    BasisSymmetryFull = 1
};

template <class TKernel>
class CCSFProductHelperImpl;

/// Integrals over space of products of two functions, one of a left and one of a right basis on the same
/// octree.
///
/// An integral depends only on the two depths and on the lattice offset of the nodes, left minus right, and
/// grows by a known factor when both depths go one level down. So each distinct value is computed once, on
/// the deepest level, and looked up from then on. For kernels that are sums of products of one-variable
/// factors the values are integrals of one variable, and equal pairs of factors share them: the three
/// summands of a Laplacian need two tables in all. For kernels in the general form (`CPiecewisePolynom`) they
/// are whole integrals in an ordered map, shared by the symmetries that the constructor is told.
///
/// A value never depends on what was asked before: each is computed for the pair moved to the deepest level
/// and to the origin, so that helpers on different threads give the same bits. A lookup costs a few
/// nanoseconds and allocates nothing, a first meeting of depths and offset some microseconds; with the
/// general form a fraction of a microsecond and some milliseconds. Memory grows with the values in use.
///
/// A helper belongs to one thread at a time. A copy shares the tables with its source. Bases and octree must
/// outlive it.
template <class TKernel>
class QZMATH_API CCSFProductHelperTmpl
{
public:
    /// \param left     basis of the first function
    /// \param right    basis of the second function, over the same octree
    /// \param symmetry full: the integral stays when the two nodes change places, as for a kernel and its
    ///                 Laplacian. One basis on both sides always counts as such. Does not matter for kernels
    ///                 that are sums of products.
    /// \param axisMask bit i: axis i may be exchanged with the other marked ones. Does not matter for kernels
    ///                 that are sums of products.
    /// \param parity   for each axis 1 or -1 if a value at the mirrored offset is that times the value at the
    ///                 offset, 0 if nothing is known; null means zeros. With kernels that are sums of
    ///                 products, axes with equal pairs of factors take the parity of the first of them.
    CCSFProductHelperTmpl(COctreeFuncBasisTmpl<TKernel> const * left,
                          COctreeFuncBasisTmpl<TKernel> const * right, eBasisSymmetry symmetry, int axisMask,
                          int const * parity);
    virtual ~CCSFProductHelperTmpl();
    CCSFProductHelperTmpl(CCSFProductHelperTmpl const &);
    CCSFProductHelperTmpl & operator=(CCSFProductHelperTmpl const &);

    /// The integral of f * g, for f made by the left and g by the right basis. 0 where the supports do not
    /// overlap, and for depths that the octree does not have.
    double evalScalarProduct(CCSFunc3Tmpl<TKernel> const & f, CCSFunc3Tmpl<TKernel> const & g);

    /// The integral of f times a combination over the right basis, or another one with the same kernel. Terms
    /// with a coefficient of exactly 0 are left out. The order of summation is that of
    /// `CInterlacedSupportIteratorTmpl`.
    double evalScalarProduct(CCSFunc3Tmpl<TKernel> const & f,
                             COctreeFuncLinCombTmpl<TKernel> const & combination);

    /// Turns the helper to two other bases, whose kernels are those of the present ones with the variables of
    /// axes `a` and `b` exchanged (unchecked). All known values stay in use. So one helper serves the
    /// derivatives along all axes. An axis other than 0, 1 or 2 throws `std::out_of_range`.
    void initWithVariablesSwap(int a, int b, COctreeFuncBasisTmpl<TKernel> const * left,
                               COctreeFuncBasisTmpl<TKernel> const * right);

    /// For kernels that are sums of products: how many values the full tables have, for all depths and
    /// offsets; the greatest `int` if they are more. A measure of the variety of values: memory is taken only
    /// for those in use. For kernels in the general form: how many values are known.
    int cashSize() const;

    COctreeFuncBasisTmpl<TKernel> const & leftBasisRef() const;
    COctreeFuncBasisTmpl<TKernel> const & rightBasisRef() const;

private:
    std::shared_ptr<CCSFProductHelperImpl<TKernel>> m_impl;
};

extern template class CCSFProductHelperTmpl<CPiecewisePolynom>;
extern template class CCSFProductHelperTmpl<CProductPiecewisePolynom>;

} // namespace VolTr

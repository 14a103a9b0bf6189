// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/CSFunc3.h>
#include <QZmath/VolTriang/PiecewisePolynom.h>
#include <QZmath/VolTriang/Products/ProductHelperBases.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>

#include <array>
#include <cstdint>
#include <map>

namespace VolTr
{

/// Scalar products of kernels in the general form: whole integrals over space by depths and offset.
///
/// Pairs that share an integral, by a common change of depth or by the symmetries that the caller vouches
/// for, are brought to one of them first.
template <>
class CCSFProductHelperImpl<CPiecewisePolynom> : public CProductHelperBases<CPiecewisePolynom>
{
public:
    using TKernel = CPiecewisePolynom;

    CCSFProductHelperImpl(TBasis const * left, TBasis const * right, eBasisSymmetry symmetry, int axisMask,
                          int const * parity);
    virtual ~CCSFProductHelperImpl();

    double evalScalarProduct(CCSFunc3Tmpl<TKernel> const & f, CCSFunc3Tmpl<TKernel> const & g);
    void initWithVariablesSwap(int a, int b, TBasis const * left, TBasis const * right);
    int cashSize() const { return static_cast<int>(m_values.size()); }

private:
    /// Two depths, and the lattice offset of the left function from the right one. Ordered by depths, then by
    /// the offsets along x, y, z.
    struct SKey
    {
        int leftDepth;
        int rightDepth;
        std::array<std::int64_t, 3> offsets;

        bool operator<(SKey const & other) const;
    };

    double normalise(SKey * key) const;
    double integrate(SKey const & key) const;

    bool m_leftRightSymmetric;
    std::array<bool, 3> m_axisInterchangeable;
    int m_equalAxes; // how many are interchangeable
    std::array<int, 3> m_parity;
    std::map<SKey, double> m_values; // of normalised keys
};

} // namespace VolTr

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/CSFunc3.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>
#include <QZmath/VolTriang/Products/ProductHelperBases.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace VolTr
{

/// The integrals of products of one pair of one-variable factors, each placed on nodes of all depths.
class COneVariableProductCache
{
public:
    COneVariableProductCache(SProductCacheSetup const & setup, CSingleVarLimitedPolynom const & left,
                             CSingleVarLimitedPolynom const & right, int offsetParity);

    bool isFor(CSingleVarLimitedPolynom const & left, CSingleVarLimitedPolynom const & right) const
    {
        return m_left == left && m_right == right;
    }

    /// The integral for two depths and a lattice offset, left minus right; computed when it is met first.
    double lookUp(int leftDepth, int rightDepth, std::int64_t offset);

private:
    double integrate(int leftDepth, int rightDepth, std::int64_t offset);

    SProductCacheSetup m_setup;
    CSingleVarLimitedPolynom m_left;
    CSingleVarLimitedPolynom m_right;
    int m_offsetParity;
    double m_depthFactor; // growth of an integral when both depths go one level down
    std::unordered_map<std::uint64_t, double> m_values;
    // Work space of `integrate`.
    CSingleVarPolynom m_primitive;
    CSingleVarLimitedPolynom m_leftTemp;
    CSingleVarLimitedPolynom m_rightTemp;
    CSingleVarLimitedPolynom m_productTemp;
};

/// Scalar products of separable kernels: sums over pairs of summands of products of three one-variable
/// integrals.
///
/// In front of the one-variable caches stands, for each pair of depths, a table over the offset with
/// the final values of all caches side by side, parity and growth applied. Values not met yet are
/// NaN there, which shows in the result. Pairs of depths so far apart that the table would be large
/// go to the caches directly.
template <>
class CCSFProductHelperImpl<CProductPiecewisePolynom> : public CProductHelperBases<CProductPiecewisePolynom>
{
public:
    using TKernel = CProductPiecewisePolynom;

    CCSFProductHelperImpl(TBasis const * left, TBasis const * right, eBasisSymmetry symmetry, int axisMask,
                          int const * parity);
    virtual ~CCSFProductHelperImpl();

    double evalScalarProduct(CCSFunc3Tmpl<TKernel> const & f, CCSFunc3Tmpl<TKernel> const & g)
    {
        unsigned const leftDepth = static_cast<unsigned>(f.getNodeDepth());
        unsigned const rightDepth = static_cast<unsigned>(g.getNodeDepth());
        if (leftDepth >= m_depthsNumber || rightDepth >= m_depthsNumber)
            return 0.0;
        SDepthPair & pair = m_pairs[leftDepth * m_depthsNumber + rightDepth];
        int const * const left = f.getArgumentShiftInt();
        int const * const right = g.getArgumentShiftInt();
        std::int64_t const x = static_cast<std::int64_t>(left[0]) - right[0];
        std::int64_t const y = static_cast<std::int64_t>(left[1]) - right[1];
        std::int64_t const z = static_cast<std::int64_t>(left[2]) - right[2];
        // Supports are cubes, so the largest offset decides. Touching ones do not overlap.
        std::uint64_t const limit = pair.limit;
        if (isBeyond(x, limit) || isBeyond(y, limit) || isBeyond(z, limit))
            return 0.0;
        if (pair.middle != nullptr) {
            double const sum = sumOfTerms(pair.place(x), pair.place(y), pair.place(z));
            if (sum == sum)
                return sum;
        }
        return evalByCaches(static_cast<int>(leftDepth), static_cast<int>(rightDepth), pair, {x, y, z});
    }

    void initWithVariablesSwap(int a, int b, TBasis const * left, TBasis const * right);
    int cashSize() const;

private:
    struct SDepthPair
    {
        std::uint64_t limit;        // smallest offset without overlap
        int shift;                  // levels from the deeper of the two depths to the deepest of nodes
        std::ptrdiff_t stride;      // values per offset, one for each cache
        double * middle;            // the place of offset 0 in `values`, null without a table
        std::vector<double> values; // NaN where not known

        double * place(std::int64_t offset) const { return middle + (offset >> shift) * stride; }
    };

    // For a pair of summands, which cache serves each axis.
    using CTerm = std::array<unsigned, 3>;

    static bool isBeyond(std::int64_t offset, std::uint64_t limit)
    {
        return static_cast<std::uint64_t>(offset < 0 ? -offset : offset) >= limit;
    }

    double sumOfTerms(double const * x, double const * y, double const * z) const
    {
        if (m_isLaplacianLike) {
            // The loop below with each factor loaded once.
            double const plainX = x[m_plain];
            double const plainY = y[m_plain];
            double const plainZ = z[m_plain];
            return 0.0 + x[m_other] * plainY * plainZ + plainX * y[m_other] * plainZ +
                   plainX * plainY * z[m_other];
        }
        double sum = 0.0;
        for (CTerm const & term : m_terms)
            sum += x[term[0]] * y[term[1]] * z[term[2]];
        return sum;
    }

    double evalByCaches(int leftDepth, int rightDepth, SDepthPair & pair,
                        std::array<std::int64_t, 3> const & offsets);
    void recogniseTerms();

    std::vector<COneVariableProductCache> m_caches;
    std::vector<CTerm> m_terms; // right summands run fastest
    bool m_isLaplacianLike; // terms (o, p, p), (p, o, p), (p, p, o) of the caches p = m_plain, o = m_other
    unsigned m_plain;
    unsigned m_other;
    unsigned m_depthsNumber;
    std::vector<SDepthPair> m_pairs; // left depth times m_depthsNumber plus right depth
};

} // namespace VolTr

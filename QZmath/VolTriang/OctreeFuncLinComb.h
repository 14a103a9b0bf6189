// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeFuncEvalHelper.h>

#include <memory>

namespace VolTr
{

template <class TKernel>
class COctreeFuncLinCombImpl;

/// A linear combination of the functions of a basis, with one coefficient per node, all 0 at first. A value
/// with deep copy; the basis must outlive it.
///
/// `eval` may run on many threads at the same time, each with a helper of its own, as long as
/// nobody sets coefficients.
template <class TKernel>
class QZMATH_API COctreeFuncLinCombTmpl
{
public:
    explicit COctreeFuncLinCombTmpl(COctreeFuncBasisTmpl<TKernel> const * basis);
    virtual ~COctreeFuncLinCombTmpl();
    COctreeFuncLinCombTmpl(COctreeFuncLinCombTmpl const & other);
    COctreeFuncLinCombTmpl & operator=(COctreeFuncLinCombTmpl const & other);

    /// Coefficient of a node (index unchecked).
    double getBasisCoefficient(int node) const { return m_coefficients[node]; }
    void setBasisCoefficient(int node, double coefficient) { m_coefficients[node] = coefficient; }

    COctreeFuncBasisTmpl<TKernel> const & getRelatedBasisRef() const;

    /// Value at three coordinates. The terms are added in the order of depth, x, y, z, so the result is the
    /// same to the bit with or without a helper, and whatever was evaluated before. Terms whose kernel is 0
    /// at the point add nothing.
    ///
    /// \param helper remembers the neighbourhood for further points, see `COctreeFuncEvalHelper`; null does
    /// without.
    ///               A helper that was filled before the coefficients changed goes on with the old ones.
    double eval(double const * point, COctreeFuncEvalHelper * helper) const;
    double eval(float const * point, COctreeFuncEvalHelper * helper) const;

private:
    std::unique_ptr<COctreeFuncLinCombImpl<TKernel>> m_impl;
    double * m_coefficients; // those of m_impl
};

extern template class COctreeFuncLinCombTmpl<CPiecewisePolynom>;
extern template class COctreeFuncLinCombTmpl<CProductPiecewisePolynom>;

} // namespace VolTr

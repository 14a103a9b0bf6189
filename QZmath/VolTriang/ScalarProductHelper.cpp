// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/ScalarProductHelper.h>

#include <QZmath/VolTriang/InterlacedSupportIterator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/Products/GeneralProductCache.h>
#include <QZmath/VolTriang/Products/SeparableProductCache.h>

namespace VolTr
{

template <class TKernel>
CCSFProductHelperTmpl<TKernel>::CCSFProductHelperTmpl(COctreeFuncBasisTmpl<TKernel> const * left,
                                                      COctreeFuncBasisTmpl<TKernel> const * right,
                                                      eBasisSymmetry symmetry, int axisMask,
                                                      int const * parity)
    : m_impl(std::make_shared<CCSFProductHelperImpl<TKernel>>(left, right, symmetry, axisMask, parity))
{}

template <class TKernel>
CCSFProductHelperTmpl<TKernel>::~CCSFProductHelperTmpl() = default;

template <class TKernel>
CCSFProductHelperTmpl<TKernel>::CCSFProductHelperTmpl(CCSFProductHelperTmpl const &) = default;

template <class TKernel>
CCSFProductHelperTmpl<TKernel> &
CCSFProductHelperTmpl<TKernel>::operator=(CCSFProductHelperTmpl const &) = default;

template <class TKernel>
double CCSFProductHelperTmpl<TKernel>::evalScalarProduct(CCSFunc3Tmpl<TKernel> const & f,
                                                         CCSFunc3Tmpl<TKernel> const & g)
{
    return m_impl->evalScalarProduct(f, g);
}

template <class TKernel>
double CCSFProductHelperTmpl<TKernel>::evalScalarProduct(CCSFunc3Tmpl<TKernel> const & f,
                                                         COctreeFuncLinCombTmpl<TKernel> const & combination)
{
    CCSFProductHelperImpl<TKernel> & products = *m_impl;
    double sum = 0.0;
    for (CInterlacedSupportIteratorTmpl<TKernel> function(&combination.getRelatedBasisRef(),
                                                          getScaledFunctionCommonSupport(f));
         !function.isFinished(); function.next()) {
        double const coefficient = combination.getBasisCoefficient(function.functionIndex());
        if (coefficient != 0.0)
            sum += products.evalScalarProduct(f, *function) * coefficient;
    }
    return sum;
}

template <class TKernel>
void CCSFProductHelperTmpl<TKernel>::initWithVariablesSwap(int a, int b,
                                                           COctreeFuncBasisTmpl<TKernel> const * left,
                                                           COctreeFuncBasisTmpl<TKernel> const * right)
{
    m_impl->initWithVariablesSwap(a, b, left, right);
}

template <class TKernel>
int CCSFProductHelperTmpl<TKernel>::cashSize() const
{
    return m_impl->cashSize();
}

template <class TKernel>
COctreeFuncBasisTmpl<TKernel> const & CCSFProductHelperTmpl<TKernel>::leftBasisRef() const
{
    return m_impl->leftBasisRef();
}

template <class TKernel>
COctreeFuncBasisTmpl<TKernel> const & CCSFProductHelperTmpl<TKernel>::rightBasisRef() const
{
    return m_impl->rightBasisRef();
}

template class CCSFProductHelperTmpl<CPiecewisePolynom>;
template class CCSFProductHelperTmpl<CProductPiecewisePolynom>;

} // namespace VolTr
